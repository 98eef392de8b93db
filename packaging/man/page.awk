# Makes a man page, man(7), of a help text as CLI11 lays it out: a summary, the usage, lists of positionals, options and
# subcommands, and a closing text. Variables: name, version, date, parent (the page of the program, or nothing).

function escaped(text) {
  gsub(/\\/, "\\e", text)
  gsub(/-/, "\\-", text)
  sub(/^[.']/, "\\\\\\&&", text)
  return text
}
function verbatim(on) {
  if (on != isVerbatim) print on ? ".nf\n.RS" : ".RE\n.fi"
  isVerbatim = on
}
function section(title) {
  verbatim(0)
  printf ".SH \"%s\"\n", toupper(title)
}
function item(text) { printf ".TP\n\\fB%s\\fR\n", escaped(text) }

NR == 1 {
  summary = $0
  sub(/\.$/, "", summary)
  printf ".TH \"%s\" 1 \"%s\" \"tavutils %s\" \"User Commands\"\n", toupper(name), date, version
  printf ".SH NAME\n%s \\- %s\n", escaped(name), escaped(summary)
  next
}
/^Usage: / {
  section("synopsis")
  print escaped(substr($0, 8))
  isList = 1
  next
}
/^(Positionals|Options|Subcommands):$/ {
  isList = 1
  section(substr($0, 1, length($0) - 1))
  next
}
/^\[Option Group: .*\]$/ {
  isList = 1
  printf ".SS \"%s\"\n", substr($0, 16, length($0) - 16)
  next
}
/^(Exit codes|Examples):$/ {
  isList = 0
  section($1 == "Exit" ? "exit status" : "examples")
  next
}
isList && /^  Options:$/ { next }
# Below a list: a long name stands alone, and what it means on the line after it.
isList && match($0, /^ +/) && RLENGTH >= 28 {
  sub(/^ +/, "")
  print escaped($0)
  next
}
isList && /^ +[^ ].*   *[^ ]/ {
  sub(/^ +/, "")
  at = match($0, /   *[^ ]/)
  item(substr($0, 1, at - 1))
  sub(/^.*   */, "", $0)
  print escaped($0)
  next
}
isList && /^ +-/ {
  sub(/^ +/, "")
  item($0)
  next
}
isList && /^ +[^ ]/ {
  sub(/^ +/, "")
  sub(/ +$/, "")
  printf ".PP\n%s\n", escaped($0)
  next
}
/^$/ {
  wasEmpty = 1
  next
}
isList {
  isList = 0
  section("description")
  wasEmpty = 0
}
{
  verbatim(/^ /)
  if (wasEmpty && !isVerbatim) print ".PP"
  wasEmpty = 0
  sub(/^  /, "")
  print escaped($0)
}
END {
  section("see also")
  if (parent != "") printf ".BR %s (1),\n", parent
  print "the guide and the reference, which ./dev docs builds in the source tree."
}
