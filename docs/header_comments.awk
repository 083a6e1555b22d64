# Doxygen input filter for the public headers. The headers carry plain "//"
# comments in front of what they describe. This filter turns the comment block
# that follows "#pragma once" into the file's description and every later
# whole-line comment into a documentation comment, so the reference shows the
# text the headers carry. The line count is kept, so doxygen's messages point
# at the real lines.
function flush_file_block(   i) {
  for (i = 1; i <= n; ++i) {
    print " * " block[i] (i == n ? " */" : "")
  }
  n = 0
}
NR == 1 && $0 ~ /^#pragma once/ { print "/** \\file"; state = 1; next }
{
  comment = match($0, /^[ \t]*\/\/( |$)/)
  if (state == 1) {
    # Blank lines between the pragma and the block stay blank.
    if (!comment && $0 ~ /^[ \t]*$/) { print; next }
    if (comment) { state = 2 } else { print " */"; state = 3 }
  }
  if (state == 2) {
    if (comment) { block[++n] = substr($0, RSTART + RLENGTH); next }
    flush_file_block()
    state = 3
  }
  if (comment) {
    print substr($0, 1, RSTART - 1) "///" substr($0, RSTART + 2)
    next
  }
  print
}
END { if (state == 2) flush_file_block() }
