#!/usr/bin/env bash
# Writes the manual page qxplatform.1 (and qxplatform.1.gz beside it) from the
# tool's own help texts: `qxplatform --help` and `qxplatform COMMAND --help`
# for every command that help lists. Each text goes in verbatim, in a no-fill
# block, so the page says what the tool says.
#
#   scripts/manpage.sh TOOL VERSION OUT [RUNNER...]
#
# RUNNER, when given, starts the tool (an emulator for a cross build).
set -euo pipefail
tool=$1
version=$2
out=$3
shift 3
runner=("$@")

# Roff: a backslash is written \e; a line starting with '.' or "'" would be a
# request, so it gets a zero-width \& in front.
verbatim() {
  echo ".nf"
  sed -e 's/\\/\\e/g' -e "s/^\([.']\)/\\\\\&\1/"
  echo ".fi"
}

main_help=$(${runner[@]+"${runner[@]}"} "$tool" --help)
commands=$(printf '%s\n' "$main_help" | sed -n 's/^  \([a-z][a-z]*\) .*/\1/p')
{
  echo ".TH QXPLATFORM 1 \"\" \"qxplatform $version\" \"User Commands\""
  echo ".SH NAME"
  echo "qxplatform \\- streams, compression, system facts and versions of the QXPlatform library"
  echo ".SH SYNOPSIS"
  # Every usage line: the first, and those lined up under it.
  printf '%s\n' "$main_help" | sed -n -e '/^$/q' -e 's/^usage: //p' \
    -e 's/^       \(qxplatform \)/\1/p' | verbatim
  echo ".SH DESCRIPTION"
  printf '%s\n' "$main_help" | verbatim
  echo ".SH COMMANDS"
  for c in $commands; do
    echo ".SS $c"
    ${runner[@]+"${runner[@]}"} "$tool" "$c" --help | verbatim
  done
  echo ".SH SEE ALSO"
  echo "The documentation installed under share/doc/qxplatform, docs/tool.md in particular."
} >"$out"
gzip -9 -n -c "$out" >"$out.gz"
