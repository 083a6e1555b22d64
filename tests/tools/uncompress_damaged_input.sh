# Damaged compressed input and unreadable input give status 1 and one line.
seq 1 20000 > numbers.txt
gzip -c numbers.txt > good.gz
size=$(stat -c %s good.gz)
head -c $((size / 2)) good.gz > cut.gz
python3 -c "
d = bytearray(open('good.gz', 'rb').read()); d[-6] ^= 1
open('crc.gz', 'wb').write(d)"
zstd -q -c numbers.txt > good.zst
head -c $(( $(stat -c %s good.zst) / 2 )) good.zst > cut.zst
for f in cut.gz crc.gz; do
  "$QXPLATFORM" uncompress -m gz $f out.txt 2> err.txt
  echo "$f: status $?"
  cat err.txt
done
"$QXPLATFORM" uncompress -m zstd cut.zst out.txt 2> err.txt
echo "cut.zst: status $?"
cat err.txt
# A cut frame is not continued by the next good one.
"$QXPLATFORM" uncompress -m zstd good.zst out.txt
echo "good.zst: status $?"
cmp out.txt numbers.txt && echo "good.zst: same"
"$QXPLATFORM" uncompress -m gz - out.txt < cut.gz 2> err.txt
echo "cut.gz on standard input: status $?"
cat err.txt
mkdir adir
"$QXPLATFORM" uncompress -m gz adir out.txt 2> err.txt
echo "a directory: status $?"
cat err.txt
"$QXPLATFORM" uncompress -m gz < adir 2> err.txt
echo "standard input a directory: status $?"
cat err.txt
"$QXPLATFORM" uncompress -m gz good.gz /dev/full 2> err.txt
echo "full device: status $?"
cat err.txt
