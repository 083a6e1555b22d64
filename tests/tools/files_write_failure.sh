# A write that fails names the output and the system's reason, once; gzip
# exits 1 too. A missing input names the input.
seq 1 100000 > a.txt
"$QXPLATFORM" -c a.txt > /dev/full 2> err.txt; echo "qxplatform: $?"; cat err.txt
gzip -c a.txt > /dev/full 2>/dev/null; echo "gzip: $?"
"$QXPLATFORM" -m zstd - < a.txt > /dev/full 2> err.txt; echo "qxplatform: $?"; cat err.txt
zstd -q -c a.txt > /dev/full 2>/dev/null; echo "zstd: $?"
"$QXPLATFORM" -k missing.txt 2> err.txt; echo "qxplatform: $?"; cat err.txt
gzip -k missing.txt 2>/dev/null; echo "gzip: $?"
