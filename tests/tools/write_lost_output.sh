# Every lost write gives status 1 and one line: a full device, the file-size
# limit (with SIGXFSZ ignored by the caller, and at its default), a reader
# that has gone; plain and gzip output alike.
seq 1 200000 > numbers.txt
for name in /dev/full; do
  "$QXPLATFORM" write $name < numbers.txt 2> err.txt
  echo "$name: status $?"
  cat err.txt
done
# Gzip output to the full device: the name must contain .gz, so go through a
# link to it.
ln -s /dev/full full.gz
"$QXPLATFORM" write full.gz < numbers.txt 2> err.txt
echo "full.gz: status $?"
cat err.txt
printf 'hello\n' | "$QXPLATFORM" write full.gz 2> err.txt
echo "full.gz, 6 bytes: status $?"
cat err.txt
(
  ulimit -f 20
  trap '' XFSZ
  "$QXPLATFORM" write limited.txt < numbers.txt 2> err.txt
  echo "size limit, SIGXFSZ ignored: status $?"
  cat err.txt
  "$QXPLATFORM" write limited.txt.gz < numbers.txt 2> err.txt
  echo "size limit, gzip: status $?"
  cat err.txt
)
(
  ulimit -f 20
  trap - XFSZ
  "$QXPLATFORM" write limited.txt < numbers.txt 2> err.txt
  echo "size limit, SIGXFSZ at its default: status $?"
  cat err.txt
)
"$QXPLATFORM" write /dev/stdout < numbers.txt 2> err.txt | head -c 10 > /dev/null
echo "closed pipe: status ${PIPESTATUS[0]}"
cat err.txt
mkdir adir
"$QXPLATFORM" write out.txt < adir 2> err.txt
echo "standard input a directory: status $?"
cat err.txt
"$QXPLATFORM" write good.txt.gz < numbers.txt
echo "good: status $?"
gzip -dc good.txt.gz | cmp - numbers.txt && echo "good: same"
