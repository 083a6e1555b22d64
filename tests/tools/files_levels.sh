# -1 is faster and larger, -9 smaller, as with gzip; --fast and --best are
# their long names; every level reads back with gzip and zstd.
seq 1 200000 > a.txt
for l in 1 5 9; do
  "$QXPLATFORM" -$l -c a.txt > q$l.gz; gzip -$l -c a.txt > g$l.gz
  "$QXPLATFORM" -m zstd -$l -c a.txt > q$l.zst
  gzip -dc q$l.gz | cmp - a.txt && zstd -q -dc q$l.zst | cmp - a.txt && echo "level $l reads back"
done
[ $(stat -c %s q9.gz) -lt $(stat -c %s q1.gz) ] && echo "qxplatform: -9 smaller than -1"
[ $(stat -c %s g9.gz) -lt $(stat -c %s g1.gz) ] && echo "gzip: -9 smaller than -1"
[ $(stat -c %s q9.zst) -lt $(stat -c %s q1.zst) ] && echo "qxplatform -m zstd: -9 smaller than -1"
"$QXPLATFORM" --best -c a.txt | cmp - q9.gz && echo "--best is -9"
"$QXPLATFORM" --fast -c a.txt | cmp - q1.gz && echo "--fast is -1"
