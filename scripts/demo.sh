#!/usr/bin/env bash
# The main job: what the library knows about this machine, then a gzip round
# trip through the stream manager, checked against the gzip tool.
set -euo pipefail
build=${1:-build/release}
tool="$(pwd)/$build/tools/qxplatform/qxplatform"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

echo "== qxplatform info"
"$tool" info
echo
echo "== qxplatform versions"
"$tool" versions
echo
sample="$work/sample.txt"
{
  echo "QXPlatform demo: a few lines of text written through the stream manager."
  for i in $(seq 1 5); do echo "line $i: the quick brown fox jumps over the lazy dog"; done
} > "$sample"
echo "== qxplatform write $work/sample.txt.gz  (compressed because of .gz)"
"$tool" write "$work/sample.txt.gz" < "$sample"
ls -l "$work/sample.txt.gz" | awk '{print "compressed size:", $5, "bytes"}'
echo
echo "== qxplatform cat $work/sample.txt.gz  (unpacked by content)"
"$tool" cat "$work/sample.txt.gz"
echo
echo "== gzip -dc agrees?"
if gzip -dc "$work/sample.txt.gz" | cmp -s - "$sample" &&
   "$tool" cat "$work/sample.txt.gz" | cmp -s - "$sample"; then
  echo "yes: gzip -dc and qxplatform cat both give back the original bytes"
else
  echo "NO: the round trip differs" >&2
  exit 1
fi
