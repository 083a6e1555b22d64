# compress takes a level: -1 (fastest) to -9 for gz, up to -19 for zstd, as
# gzip and zstd do; the default is 6 for gz (what gzip makes) and 3 for zstd
# (what zstd makes). Out of range, or given to uncompress, it is a usage
# error.
seq 1 200000 > a.txt
for m in gz zstd; do
  "$QXPLATFORM" compress -m $m -1 a.txt fast.$m; "$QXPLATFORM" compress -m $m -9 a.txt small.$m
  [ $(stat -c %s small.$m) -lt $(stat -c %s fast.$m) ] && echo "$m: -9 smaller than -1"
done
gzip -dc small.gz | cmp - a.txt && zstd -q -dc small.zstd | cmp - a.txt && echo "gzip and zstd read -9"
"$QXPLATFORM" compress -m zstd -19 a.txt best.zst && zstd -q -dc best.zst | cmp - a.txt && echo "zstd -19: read back"
# The default levels make what the level options make.
"$QXPLATFORM" compress -m gz a.txt default.gz; "$QXPLATFORM" compress -m gz -6 a.txt six.gz
cmp -s <(tail -c +11 default.gz) <(tail -c +11 six.gz) && echo "gz default is -6"
"$QXPLATFORM" compress -m zstd a.txt default.zst; "$QXPLATFORM" compress -m zstd -3 a.txt three.zst
cmp default.zst three.zst && echo "zstd default is -3"
for args in "compress -m gz -10 a.txt x.gz" "compress -m zstd -20 a.txt x.zst" "compress -m gz -0 a.txt x.gz" "uncompress -m gz -9 small.gz x"; do
  "$QXPLATFORM" $args > /dev/null 2> err.txt
  echo "$args -> $? : $(head -n 1 err.txt)"
done
