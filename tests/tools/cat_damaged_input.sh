# Damaged gzip data and unreadable input end with status 1 and one line
# naming the input and the damage; the good part is still copied out.
seq 1 20000 > numbers.txt
gzip -c numbers.txt > good.gz
size=$(stat -c %s good.gz)
head -c $((size / 2)) good.gz > cut.gz
head -c $((size - 3)) good.gz > cut_trailer.gz
head -c 5 good.gz > cut_header.gz
python3 - <<'PY'
data = open('good.gz', 'rb').read()
crc = bytearray(data); crc[-6] ^= 1; open('crc.gz', 'wb').write(crc)
length = bytearray(data); length[-2] ^= 1; open('length.gz', 'wb').write(length)
head = bytearray(data); head[3] = 0xE0; open('header.gz', 'wb').write(head)
PY
gzip -c numbers.txt > second.gz
head -c 40 good.gz >> second.gz
for f in cut.gz cut_trailer.gz cut_header.gz crc.gz length.gz header.gz second.gz; do
  "$QXPLATFORM" cat $f > out.txt 2> err.txt
  echo "$f: status $?"
  cat err.txt
done
# What was sound is delivered: all of the data before a bad trailer.
"$QXPLATFORM" cat crc.gz 2>/dev/null | cmp - numbers.txt && echo "crc.gz: data delivered whole"
"$QXPLATFORM" cat second.gz 2>/dev/null | head -c $(stat -c %s numbers.txt) | cmp - numbers.txt && echo "second.gz: first member whole"
# gzip refuses them too.
for f in cut.gz crc.gz length.gz header.gz second.gz; do
  gzip -t $f 2>/dev/null || echo "gzip -t $f: refused"
done
# The other names are still copied; the status stays 1.
"$QXPLATFORM" cat cut.gz numbers.txt 2>err.txt | tail -n 1
echo "status ${PIPESTATUS[0]}"
cat err.txt
mkdir adir
"$QXPLATFORM" cat < adir 2>err.txt
echo "standard input a directory: status $?"
cat err.txt
"$QXPLATFORM" cat good.gz > out.txt
echo "good.gz: status $?"
