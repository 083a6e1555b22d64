seq 1 70000 > text.txt
"$QXPLATFORM" compress -m gz text.txt ours.gz && gzip -dc ours.gz | cmp - text.txt && echo "gzip reads ours"
gzip -c text.txt > theirs.gz && "$QXPLATFORM" uncompress -m gz theirs.gz | cmp - text.txt && echo "we read gzip's"
pigz -c text.txt > pigz.gz && "$QXPLATFORM" uncompress -m gz pigz.gz | cmp - text.txt && echo "we read pigz's"
