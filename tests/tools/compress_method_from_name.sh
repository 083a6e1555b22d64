# Without -m the method comes from OUT's name (compress) or IN's name
# (uncompress), and gzip and zstd read the results; --method=METHOD and --
# work; with neither a method nor such a name it stays a usage error.
seq 1 40000 > a.txt
"$QXPLATFORM" compress a.txt a.txt.gz; echo "compress to .gz: $?"
"$QXPLATFORM" compress a.txt a.txt.zst; echo "compress to .zst: $?"
gzip -dc a.txt.gz | cmp - a.txt && echo "gzip -dc reads a.txt.gz"
zstd -q -dc a.txt.zst | cmp - a.txt && echo "zstd -dc reads a.txt.zst"
gzip -c a.txt > g.gz; zstd -q -c a.txt > z.zst
"$QXPLATFORM" uncompress z.zst back1; echo "uncompress z.zst: $?"
"$QXPLATFORM" uncompress g.gz back2; echo "uncompress g.gz: $?"
cmp back1 a.txt && cmp back2 a.txt && echo "both: same"
"$QXPLATFORM" compress --method=zstd -- a.txt out.bin; zstd -q -dc out.bin | cmp - a.txt && echo "--method=zstd --: a zstd frame"
"$QXPLATFORM" compress a.txt.gz out.txt 2> err.txt; echo "compress, plain OUT: $? $(head -n 1 err.txt)"
"$QXPLATFORM" uncompress a.txt out.gz 2> err.txt; echo "uncompress, plain IN: $? $(head -n 1 err.txt)"
"$QXPLATFORM" compress a.txt b.gz c.gz 2> err.txt; echo "three names: $? $(head -n 1 err.txt)"
"$QXPLATFORM" compress -m gz a.txt b.zst; gzip -t b.zst && echo "-m wins over the name"
