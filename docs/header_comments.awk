# Doxygen input filter for the public headers. The headers carry plain "//"
# comments in front of what they describe. This filter turns the comment block
# that follows "#pragma once" into the file's description, and every later
# block of whole-line comments that sits directly on a declaration at
# namespace or class scope into that declaration's documentation. A block
# followed by an empty line introduces a group of declarations and stays a
# plain comment, and so do comments inside function bodies, which explain the
# code rather than the interface. The line count is kept, so doxygen's
# messages point at the real lines.
function emit_block(asDoc,   i) {
  for (i = 1; i <= n; ++i) {
    print indent[i] (asDoc ? "///" : "//") text[i]
  }
  n = 0
}
function emit_file_block(   i) {
  for (i = 1; i <= n; ++i) {
    print " *" text[i] (i == n ? " */" : "")
  }
  n = 0
}
# True while every open brace belongs to a namespace, class, struct, union,
# enum or extern block.
function at_scope(   i) {
  for (i = 1; i <= depth; ++i) {
    if (!scope[i]) {
      return 0
    }
  }
  return 1
}
# Follows the braces of a code line, skipping literals and a trailing comment.
function track_braces(line,   i, c, quote, opensScope) {
  opensScope = line ~ /(^|[^A-Za-z0-9_])(namespace|class|struct|union|enum)([^A-Za-z0-9_]|$)/ ||
               line ~ /extern "C"/
  quote = ""
  for (i = 1; i <= length(line); ++i) {
    c = substr(line, i, 1)
    if (quote != "") {
      if (c == "\\") {
        ++i
      } else if (c == quote) {
        quote = ""
      }
    } else if (c == "\"" || c == "'") {
      quote = c
    } else if (c == "/" && substr(line, i + 1, 1) == "/") {
      break
    } else if (c == "{") {
      scope[++depth] = opensScope
    } else if (c == "}" && depth > 0) {
      --depth
    }
  }
}
BEGIN { depth = 0; n = 0; state = "body" }
NR == 1 && $0 ~ /^#pragma once/ { print "/** \\file"; state = "pragma"; next }
{
  if ($0 ~ /^[ \t]*\/\/( |$)/) {
    match($0, /^[ \t]*/)
    ++n
    indent[n] = substr($0, 1, RLENGTH)
    text[n] = substr($0, RLENGTH + 3)
    if (state == "pragma") {
      state = "fileblock"
    }
    next
  }
  if (state == "pragma") {
    # Blank lines between the pragma and the first comment stay blank.
    if ($0 ~ /^[ \t]*$/) { print; next }
    print " */"
    state = "body"
  } else if (state == "fileblock") {
    emit_file_block()
    state = "body"
  } else if (n > 0) {
    emit_block($0 !~ /^[ \t]*$/ && at_scope())
  }
  track_braces($0)
  print
}
END {
  if (state == "fileblock") {
    emit_file_block()
  } else if (n > 0) {
    emit_block(0)
  }
}
