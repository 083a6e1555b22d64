printf 'this is not a zstd frame at all' > bad.zst
"$QXPLATFORM" uncompress -m zstd bad.zst out.bin 2> err.txt
status=$?
cat err.txt
exit $status
