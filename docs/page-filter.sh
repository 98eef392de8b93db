#!/bin/sh
# page-filter.sh FILE: a page or a header as doxygen gets it.
#
# A page gets the list of its sections behind its title. An address that stands for others ("https://HOST:PORT/1") must
# not become a link: a space of no width keeps it from that. Types that are private in a class are left out: doxygen
# 1.9.4 links to them although it does not show them. And an argument of a mock that has brackets, because of a comma in
# its type, stands without.
sed -E 's/([( ])\(((const )?std::(array|map)<[^()]*)\)/\1\2/' "$1" | awk -v name="$1" '
  { gsub(/:\/\/HOST/, "\342\200\213&") }
  name ~ /\.md$/ { print; if (FNR == 1) print "\n[TOC]"; next }
  /^[a-z]*:$/ { isPrivate = $0 == "private:" }
  /^};/ { isPrivate = 0 }
  isPrivate && /^    (struct|class|enum) [^;]*$/ { isType = 1 }
  { print isType ? "" : $0 }
  /^    };/ { isType = 0 }
'
