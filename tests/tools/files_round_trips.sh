# Both directions with the real tools: ours read by gzip -d, pigz -d and
# zstd -d; theirs (gzip, pigz, pigz -p 2 on several blocks, zstd, zstd -T2)
# read by ours.
head -c 3000000 /dev/urandom | od -An -tx1 > a.txt
"$QXPLATFORM" -c a.txt > q.gz; "$QXPLATFORM" -m zstd -c a.txt > q.zst
gzip -dc q.gz | cmp - a.txt && echo "gzip -d reads ours"
pigz -dc q.gz | cmp - a.txt && echo "pigz -d reads ours"
zstd -q -dc q.zst | cmp - a.txt && echo "zstd -d reads ours"
gzip -c a.txt > g.gz; pigz -p 2 -b 128 -c a.txt > p.gz; zstd -q -c a.txt > z.zst; zstd -q -T2 -c a.txt > z2.zst
zstd -q --no-check -c a.txt > nc.zst
for f in g.gz p.gz z.zst z2.zst nc.zst; do
  "$QXPLATFORM" -dc $f | cmp - a.txt && echo "ours reads $f"
done
