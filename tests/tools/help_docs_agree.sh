#!/usr/bin/env bash
# The tool's help texts, its manual page and docs/tool.md say the same: the
# manual page built beside the tool is what scripts/manpage.sh makes from
# the tool now, each no-fill block of the page, unescaped, is a help text of
# the tool, and docs/tool.md quotes every help text verbatim in a fenced
# block.
#
#   help_docs_agree.sh TOOL MANPAGE SOURCE_DIR
set -euo pipefail
tool=$1
man_page=$2
src=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail=0

version=$(sed -n 's/^\.TH QXPLATFORM 1 "" "qxplatform \([^"]*\)".*/\1/p' "$man_page")
bash "$src/scripts/manpage.sh" "$tool" "$version" "$work/fresh.1"
if ! cmp -s "$work/fresh.1" "$man_page"; then
  echo "the built manual page is not what the tool's help makes now:"
  diff "$man_page" "$work/fresh.1" | head -n 20
  fail=1
fi

# Help texts: the tool's, and each command's that the tool's help lists.
"$tool" --help >"$work/help.main"
helps=("$work/help.main")
for c in $(sed -n 's/^  \([a-z][a-z]*\) .*/\1/p' "$work/help.main"); do
  "$tool" "$c" --help >"$work/help.$c"
  helps+=("$work/help.$c")
done

# The fenced blocks of docs/tool.md and the no-fill blocks of the page.
python3 - "$src/docs/tool.md" "$man_page" "$work" "${helps[@]}" <<'PY' || fail=1
import re, sys
doc_path, man_path, work, *helps = sys.argv[1:]
doc = open(doc_path, encoding="utf-8").read()
fenced = [m.group(1) for m in re.finditer(r"^```[a-z]*\n(.*?)^```$", doc, re.M | re.S)]
man = open(man_path, encoding="utf-8").read()
blocks = []
for m in re.finditer(r"^\.nf\n(.*?)^\.fi$", man, re.M | re.S):
    text = m.group(1)
    text = re.sub(r"^\\&", "", text, flags=re.M).replace("\\e", "\\")
    blocks.append(text)
ok = True
for h in helps:
    text = open(h, encoding="utf-8").read()
    name = h.rsplit("/help.", 1)[1]
    if text not in fenced:
        print(f"docs/tool.md has no fenced block equal to the help of '{name}':")
        print(text)
        ok = False
    if text not in blocks:
        print(f"the manual page has no block equal to the help of '{name}'")
        ok = False
for b in blocks[1:]:  # the first is the synopsis
    if not any(open(h, encoding="utf-8").read() == b for h in helps):
        print("the manual page has a block that is no help text of the tool:")
        print(b)
        ok = False
sys.exit(0 if ok else 1)
PY
exit $fail
