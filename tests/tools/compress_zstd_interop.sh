seq 1 70000 > text.txt
"$QXPLATFORM" compress -m zstd text.txt ours.zst && zstd -q -d -c ours.zst | cmp - text.txt && echo "zstd reads ours"
zstd -q -19 -c text.txt > theirs.zst && "$QXPLATFORM" uncompress -m zstd theirs.zst | cmp - text.txt && echo "we read zstd's"
