#!/usr/bin/env bash
# Builds the API reference from the public headers and the Markdown pages
# under docs/ into build/docs, installing doxygen from Debian when it is
# missing. Fails when doxygen reports any warning or when an excerpt that a
# page quotes from examples/ no longer matches the example.
#
#   scripts/docs.sh                    excerpt check, then doxygen
#   scripts/docs.sh --check-excerpts   the excerpt check alone
set -euo pipefail
cd "$(dirname "$0")/.."

# A page quotes an example as a fenced block right after a line
#   <!-- excerpt: examples/<file> -->
# and the block's lines must appear, in order and unbroken, in that file.
# Every example must also be named by some page, and every example a page
# names must exist.
check_excerpts() {
  python3 - <<'PY'
import glob, os, re, sys

problems = []
pages = sorted(glob.glob("docs/*.md"))
named = set()
for page in pages:
    lines = open(page, encoding="utf-8").read().split("\n")
    for name in re.findall(r"examples/[A-Za-z0-9_/]+\.(?:cpp|txt)", "\n".join(lines)):
        named.add(name)
        if not os.path.exists(name):
            problems.append(f"{page}: names missing file {name}")
    i = 0
    while i < len(lines):
        m = re.match(r"\s*<!-- excerpt: (\S+) -->\s*$", lines[i])
        i += 1
        if not m:
            continue
        source = m.group(1)
        while i < len(lines) and not lines[i].startswith("```"):
            i += 1
        start = i + 1
        end = start
        while end < len(lines) and not lines[end].startswith("```"):
            end += 1
        block = lines[start:end]
        i = end + 1
        if not block:
            problems.append(f"{page}:{start}: empty excerpt of {source}")
            continue
        if not os.path.exists(source):
            problems.append(f"{page}:{start}: excerpt of missing {source}")
            continue
        text = open(source, encoding="utf-8").read().split("\n")
        found = any(text[k:k + len(block)] == block
                    for k in range(len(text) - len(block) + 1))
        if not found:
            problems.append(f"{page}:{start}: excerpt differs from {source}")

examples = sorted(glob.glob("examples/*.cpp") + glob.glob("examples/*/*.cpp"))
for example in examples:
    if example not in named:
        problems.append(f"{example}: not described by any page under docs/")

for p in problems:
    print("docs: " + p, file=sys.stderr)
sys.exit(1 if problems else 0)
PY
}

# Only what the documentation needs, and only when it is missing; the
# build's own packages are scripts/setup.sh's business.
install_missing() {
  local missing=() p status
  for p in "$@"; do
    status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
    case "$status" in
      *"install ok installed"*) ;;
      *) missing+=("$p") ;;
    esac
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return 0
  fi
  echo "docs: installing ${missing[*]}"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
  fi
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null
}

if [ "${1:-}" = "--check-excerpts" ]; then
  install_missing python3
  check_excerpts
  echo "docs: excerpts match the examples"
  exit 0
fi

install_missing python3 doxygen
check_excerpts

mkdir -p build/docs
log=build/docs/warnings.log
rm -f "$log"
doxygen docs/Doxyfile >build/docs/doxygen.out
if [ -s "$log" ]; then
  echo "docs: doxygen warnings:" >&2
  cat "$log" >&2
  exit 1
fi
echo "docs: build/docs/html/index.html (no doxygen warnings)"
