# -T N packs on N threads: gz as one ordinary member that gzip, pigz and
# Python read back, the same bytes for every N above 1, a little larger than
# on one thread; zstd with workers, as zstd -T makes. The compress command
# takes it too. A bad count is a usage error.
seq 1 300000 > a.txt
"$QXPLATFORM" -T2 -c a.txt > t2.gz
"$QXPLATFORM" -T 4 -c a.txt > t4.gz
"$QXPLATFORM" --threads=3 -c a.txt > t3.gz
"$QXPLATFORM" -c a.txt > t1.gz
gzip -dc t2.gz | cmp - a.txt && echo "gzip reads -T2"
pigz -dc t4.gz | cmp - a.txt && echo "pigz reads -T 4"
python3 -c "import gzip,sys; sys.stdout.buffer.write(gzip.open('t3.gz').read())" | cmp - a.txt && echo "python reads --threads=3"
gzip -t t2.gz && echo "gzip -t: one sound member"
cmp t2.gz t4.gz && cmp t2.gz t3.gz && echo "the same bytes on 2, 3 and 4 threads"
cmp -s t1.gz t2.gz || echo "not the bytes of one thread"
[ $(stat -c %s t2.gz) -le $(( $(stat -c %s t1.gz) * 101 / 100 )) ] && echo "within 1% of one thread"
"$QXPLATFORM" -T1 -c a.txt | cmp - t1.gz && echo "-T1 is one thread"
"$QXPLATFORM" -m zstd -T2 -c a.txt > t2.zst; zstd -q -dc t2.zst | cmp - a.txt && echo "zstd reads -m zstd -T2"
zstd -q -T2 -c a.txt | "$QXPLATFORM" -d -c | cmp - a.txt && echo "zstd -T2 reads back"
"$QXPLATFORM" compress -m gz -T 2 a.txt c2.gz && cmp c2.gz t2.gz && echo "compress -T 2: the same member"
"$QXPLATFORM" compress --threads=2 a.txt c2.zst && zstd -q -dc c2.zst | cmp - a.txt && echo "compress --threads=2 to .zst: zstd reads it"
"$QXPLATFORM" -T0 -c a.txt > /dev/null 2> err.txt; echo "-T0: $? $(head -n 1 err.txt)"
"$QXPLATFORM" -T65 -c a.txt > /dev/null 2> err.txt; echo "-T65: $? $(head -n 1 err.txt)"
"$QXPLATFORM" -c a.txt -T 2> err.txt > /dev/null; echo "-T without a count: $? $(head -n 1 err.txt)"
"$QXPLATFORM" compress -m gz -Tx a.txt x.gz 2> err.txt; echo "compress -Tx: $? $(head -n 1 err.txt)"
