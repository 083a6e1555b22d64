# Data that start with a skippable frame are zstd data: -d, -t, cat and
# uncompress -m zstd skip it and unpack the frames after it, as zstd does.
# Frames without a content size (zstd reading a pipe) and without a checksum
# read back too, and -l counts what they hold.
seq 1 3000 > a.txt
zstd -q -c a.txt > a.zst
python3 - <<'PY'
import struct
frame = open("a.zst", "rb").read()
skip = struct.pack("<II", 0x184D2A53, 5) + b"notes"
open("skip.zst", "wb").write(skip + frame + skip)
PY
zstd -q -dc skip.zst | cmp - a.txt && echo "zstd -dc skip.zst: same"
"$QXPLATFORM" -dc skip.zst | cmp - a.txt && echo "qxplatform -dc skip.zst: same"
"$QXPLATFORM" -t skip.zst && echo "qxplatform -t skip.zst: 0"
"$QXPLATFORM" cat skip.zst | cmp - a.txt && echo "cat skip.zst: same"
"$QXPLATFORM" uncompress skip.zst | cmp - a.txt && echo "uncompress skip.zst: same"
zstd -q --no-check -c < a.txt > piped.zst
"$QXPLATFORM" -dc piped.zst | cmp - a.txt && echo "no size, no checksum: same"
"$QXPLATFORM" -l piped.zst | awk 'NR == 2 { print "-l piped.zst:", $2, $4 }'
