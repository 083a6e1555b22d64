# What is refused, with gzip's wording, the FILE skipped with nothing lost:
# an existing output (unless -f), a directory, -d on an unknown suffix (each
# status 2, as gzip's warnings), a name that already has the suffix (status
# 0, as gzip). Each case shows ours, then gzip's and zstd's status on the
# same case.
mkdir dir; printf 'one\n' > a.txt; printf 'old\n' > a.txt.gz; printf 'old\n' > a.txt.zst
printf 'x' > b.gz; printf 'y' > c.txt
check() { "$@" 2> err.txt < /dev/null; echo "$? $(cat err.txt)"; }
check "$QXPLATFORM" -k a.txt
echo "gzip: $(gzip -k a.txt < /dev/null 2>/dev/null; echo $?)"
check "$QXPLATFORM" -k -m zstd a.txt
echo "zstd: $(zstd -q -k a.txt < /dev/null 2>/dev/null; echo $?)"
cat a.txt.gz a.txt.zst
check "$QXPLATFORM" -- dir
echo "gzip: $(gzip dir 2>/dev/null; echo $?), zstd: $(zstd -q dir 2>/dev/null; echo $?)"
check "$QXPLATFORM" -k b.gz
echo "gzip: $(gzip -k b.gz 2>/dev/null; echo $?)"
check "$QXPLATFORM" -d c.txt
echo "gzip: $(gzip -d c.txt 2>/dev/null; echo $?), zstd: $(zstd -q -d c.txt 2>/dev/null; echo $?)"
ls
# -f replaces the existing output.
check "$QXPLATFORM" -kf a.txt
gzip -dc a.txt.gz
# A warning and a failure: the failure decides.
check "$QXPLATFORM" -k dir missing.txt
echo "gzip: $(gzip -k dir missing.txt 2>/dev/null; echo $?)"
# Only warnings: 2.
"$QXPLATFORM" -k dir 2>/dev/null
