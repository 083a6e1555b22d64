# "-", or options without a FILE: standard input to standard output, both
# ways, both methods; the tool without any argument stays a usage error.
seq 1 3000 > a.txt
"$QXPLATFORM" - < a.txt | gzip -dc | cmp - a.txt && echo "stdin gz: same"
"$QXPLATFORM" -m zstd - < a.txt | zstd -q -dc | cmp - a.txt && echo "stdin zstd: same"
gzip -c a.txt | "$QXPLATFORM" -d | cmp - a.txt && echo "gzip | -d: same"
zstd -q -c a.txt | "$QXPLATFORM" -d - | cmp - a.txt && echo "zstd | -d: same"
cat a.txt a.txt > twice.txt
{ gzip -c a.txt; gzip -c a.txt; } | "$QXPLATFORM" -d | cmp - twice.txt && echo "two members: same"
{ zstd -q -c a.txt; zstd -q -c a.txt; } | "$QXPLATFORM" -d | cmp - twice.txt && echo "two frames: same"
"$QXPLATFORM" < a.txt > out.bin 2> /dev/null; echo "no argument: $? $(wc -c < out.bin) bytes"
