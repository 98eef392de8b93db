#!/bin/sh
# filter-page.sh FILE: a page as doxygen gets it.
#
# It gets the list of its sections behind its title. Names of classes become links to them. An address that stands for
# others ("https://HOST:PORT/1") must not become a link: a space of no width keeps it from that.
awk -v headers="$(find include/tav -name '*.h')" '
  BEGIN {
    count = split(headers, paths, "\n")
    for (i = 1; i <= count; ++i) {
      name = paths[i]
      gsub(/.*\/|\.h$/, "", name)
      scope[name] = paths[i] ~ /testing/ ? "TAV::test::" : "TAV::"
    }
    delete scope["Export"]; delete scope["OneLine"]; delete scope["FakeArchiveFile"] # no classes
  }
  function linked(line,   done, word) {
    while (match(line, /`[A-Za-z]+`/)) {
      word = substr(line, RSTART + 1, RLENGTH - 2)
      done = done substr(line, 1, RSTART - 1)
      done = done (word in scope ? "<code>@ref " scope[word] word " \"" word "\"</code>" : "`" word "`")
      line = substr(line, RSTART + RLENGTH)
    }
    return done line
  }
  { gsub(/:\/\/HOST/, "\342\200\213&") }
  /^```/ { isCode = !isCode }
  { print isCode || /^#/ ? $0 : linked($0) }
  NR == 1 { print "\n[TOC]" }
' "$1"
