# Damaged input: status 1 naming IN and the reason; an existing OUT is left
# as it was, no scratch file stays behind.
seq 1 50000 > a.txt
"$QXPLATFORM" compress -m zstd a.txt a.zst; "$QXPLATFORM" compress -m gz a.txt a.gz
truncate -s 3000 a.zst; truncate -s 3000 a.gz
printf 'keep\n' > out.txt
"$QXPLATFORM" uncompress -m zstd a.zst out.txt 2> err.txt; echo "zstd: $? $(cat err.txt)"
"$QXPLATFORM" uncompress -m gz a.gz out.txt 2> err.txt; echo "gz: $? $(cat err.txt)"
rm err.txt; cat out.txt; ls
