#!/bin/sh
# page-filter.sh FILE: a page or a header as doxygen gets it. Behind a page's title comes the list of its sections. An
# address that stands for others ("https://HOST:PORT/1") must not become a link: a space of no width keeps it from that.
toc='1s/^# .*/&\n\n[TOC]/'
case $1 in
  *.md) ;;
  *) toc= ;;
esac
sed -e "$toc" -e "s#\(https\{0,1\}\)://HOST#\1$(printf '\342\200\213')://HOST#g" "$1"
