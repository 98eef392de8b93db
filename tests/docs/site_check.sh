#!/bin/sh
# site_check.sh SCRIPT: the check of the built site finds what it is there for.
set -eu
script=$1
command -v python3 >/dev/null 2>&1 || {
  echo "python3 is missing (./dev setup test)"
  exit 77
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# site TEXT: a site of two pages, a picture and a script, with TEXT in the first page.
site() {
  rm -rf "$work/site"
  mkdir -p "$work/site/below"
  words="A page that says as much as any page has to say."
  printf '<html><body><h1 id="top">Title</h1>%s %s</body></html>' "$words" "$1" >"$work/site/index.html"
  printf '<html><body><a id="there"></a>%s</body></html>' "$words" >"$work/site/below/page.html"
  printf '<svg xmlns="http://www.w3.org/2000/svg"/>' >"$work/site/picture.svg"
  printf 'var tree = [["Page", "below/page.html#there"]];' >"$work/site/tree.js"
}

# expect COMPLAINT: nothing if it is empty.
expect() {
  status=0
  said=$(python3 "$script" "$work/site" 2>&1) || status=$?
  case $1 in
    '') [ "$status" -eq 0 ] && return ;;
    *) [ "$status" -eq 1 ] && case $said in *"$1"*) return ;; esac ;;
  esac
  echo "expected '$1', got exit code $status: $said" >&2
  failed=1
}

site '<a href="below/page.html#there">a</a> <a href="#top">b</a> <a href="https://example.org/x">c</a> <img src="picture.svg"/>'
expect ''
site '<a href="missing.html">a</a>'
expect 'index.html: leads to a file that is not there: missing.html'
site '<a href="below">a</a>'
expect 'index.html: leads to a file that is not there: below'
site '<a href="below/page.html#elsewhere">a</a>'
expect 'index.html: leads to an anchor that is not there: below/page.html#elsewhere'
site '<a href="#nowhere">a</a>'
expect 'leads to an anchor that is not there: #nowhere'
site '<a href="../outside.html">a</a>'
expect 'leads out of the site'
site '<img src="missing.png"/>'
expect 'leads to a file that is not there: missing.png'
site '<a href="http://example.org/">a</a>'
expect 'no address of a page: http://example.org/'
site '<a href="https://HOST:PORT/1">a</a>'
expect 'no address of a page: https://HOST:PORT/1'
for element in '<script src="https://example.org/a.js"></script>' '<link rel="stylesheet" href="https://example.org/a.css"/>' \
  '<img src="//example.org/a.png"/>' '<style>p { background: url(https://example.org/a.png) }</style>' \
  '<p style="background: url(https://example.org/a.png)">a</p>'; do
  site "$element"
  expect 'index.html: would be loaded from elsewhere'
done
site ''
printf '@import "https://example.org/a.css";' >"$work/site/a.css"
expect 'a.css: would be loaded from elsewhere'
site ''
printf 'var tree = [["Page", "below/gone.html"]];' >"$work/site/tree.js"
expect 'tree.js: leads to a file that is not there: below/gone.html'
site ''
printf '<svg xmlns="http://www.w3.org/2000/svg"><text>' >"$work/site/picture.svg"
expect 'picture.svg: no picture'
site ''
printf '<svg xmlns="http://www.w3.org/2000/svg"><image href="https://example.org/a.png"/></svg>' >"$work/site/picture.svg"
expect 'picture.svg: would be loaded from elsewhere'
site ''
printf '<html><body></body></html>' >"$work/site/below/page.html"
expect 'says nothing'
rm -rf "$work/site"
mkdir "$work/site"
expect 'there is no site'
exit $failed
