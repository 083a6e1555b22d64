# -t checks integrity (status 1 on damage, the reason named) and -l lists
# sizes; gzip -t and zstd -t agree on the status, gzip -l on the sizes.
seq 1 5000 > a.txt; gzip -k a.txt; zstd -q -k a.txt
head -c 100 a.txt.gz > cut.gz; head -c 100 a.txt.zst > cut.zst
cp a.txt.zst flip.zst; size=$(stat -c %s flip.zst)
printf '\x00' | dd of=flip.zst bs=1 seek=$((size - 2)) conv=notrunc status=none
for f in a.txt.gz a.txt.zst cut.gz cut.zst flip.zst; do
  "$QXPLATFORM" -t $f 2> err.txt; q=$?
  case $f in *.gz) gzip -t $f 2>/dev/null ;; *) zstd -q -t $f 2>/dev/null ;; esac
  theirs=$?
  echo "$f: qxplatform -t $q ($(cat err.txt)), gzip/zstd -t $theirs"
done
"$QXPLATFORM" -l a.txt.gz a.txt.zst; echo "status $?"
gzip -l a.txt.gz | awk 'NR == 2 { print "gzip -l: " $1, $2, $4 }'
"$QXPLATFORM" -l < a.txt.gz
"$QXPLATFORM" -l cut.gz 2> err.txt; echo "cut: $? $(cat err.txt)"
