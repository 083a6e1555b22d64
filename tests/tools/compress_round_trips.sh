seq 1 50000 > text.txt
head -c 100000 /dev/urandom > random.bin
: > empty.bin
for m in gz zstd; do
  for f in text.txt random.bin empty.bin; do
    "$QXPLATFORM" compress -m $m $f packed || exit 1
    "$QXPLATFORM" uncompress -m $m packed back || exit 1
    cmp -s back $f && echo "$m $f: same"
  done
done
"$QXPLATFORM" compress -m zstd < text.txt | "$QXPLATFORM" uncompress -m zstd | cmp - text.txt && echo "pipes: same"
