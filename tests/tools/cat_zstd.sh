# cat unpacks zstd data by content, as gzip; frames of several files and
# concatenated frames in one.
seq 1 1000 > a.txt; seq 5 7 > b.txt
zstd -q -c a.txt > a.zst; zstd -q -c b.txt > b.bin
"$QXPLATFORM" cat a.zst b.bin | cmp - <(cat a.txt b.txt) && echo "two files: same"
cat a.zst b.bin > both.zst
"$QXPLATFORM" cat both.zst | cmp - <(cat a.txt b.txt) && echo "two frames: same"
"$QXPLATFORM" cat - < b.bin
# Damaged zstd data: status 1 and one line
# naming the file and the damage; zstd -t refuses them too.
head -c 200 a.zst > cut.zst
cp a.zst flip.zst; size=$(stat -c %s flip.zst)
printf '\x00' | dd of=flip.zst bs=1 seek=$((size - 2)) conv=notrunc status=none
for f in cut.zst flip.zst; do
  "$QXPLATFORM" cat $f > out.txt 2> err.txt; echo "$f: status $? $(cat err.txt)"
  zstd -q -t $f 2> /dev/null || echo "zstd -t $f: refused"
done
