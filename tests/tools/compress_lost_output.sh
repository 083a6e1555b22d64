# compress: unreadable input and lost output give status 1 and one line.
seq 1 200000 > numbers.txt
"$QXPLATFORM" compress -m gz numbers.txt /dev/full 2> err.txt
echo "full device: status $?"
cat err.txt
"$QXPLATFORM" compress -m zstd numbers.txt > /dev/full 2> err.txt
echo "full standard output: status $?"
cat err.txt
(
  ulimit -f 4
  "$QXPLATFORM" compress -m gz numbers.txt limited.gz 2> err.txt
  echo "size limit: status $?"
  cat err.txt
)
head -c 3000000 /dev/urandom > random.bin
"$QXPLATFORM" compress -m gz random.bin 2> err.txt | head -c 10 > /dev/null
echo "closed pipe: status ${PIPESTATUS[0]}"
cat err.txt
mkdir adir
"$QXPLATFORM" compress -m gz adir out.gz 2> err.txt
echo "a directory: status $?"
cat err.txt
