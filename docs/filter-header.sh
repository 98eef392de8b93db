#!/bin/sh
# filter-header.sh FILE: a header as doxygen gets it.
#
# Types that are private in a class are left out: doxygen 1.9.4 links to them although it does not show them. An
# argument of a mock that has brackets, because of a comma in its type, stands without. And an address that stands for
# others must not become a link, as in the pages.
sed -E 's/([( ])\(((const )?std::(array|map)<[^()]*)\)/\1\2/' "$1" | awk '
  { gsub(/:\/\/HOST/, "\342\200\213&") }
  /^[a-z]*:$/ { isPrivate = $0 == "private:" }
  /^};/ { isPrivate = 0 }
  isPrivate && /^    (struct|class|enum) [^;]*$/ { isType = 1 }
  { print isType ? "" : $0 }
  /^    };/ { isType = 0 }
'
