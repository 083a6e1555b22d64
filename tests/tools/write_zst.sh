# write NAME.zst packs zstd data that zstd reads; ".zst" elsewhere in the
# name does not.
seq 1 20000 > a.txt
"$QXPLATFORM" write out.zst < a.txt; echo "write: $?"
zstd -q -dc out.zst | cmp - a.txt && echo "zstd reads it"
"$QXPLATFORM" write out.zst.txt < a.txt; cmp out.zst.txt a.txt && echo "out.zst.txt: plain"
# A lost write names the file and the reason.
(
  ulimit -f 4
  seq 1 2000000 | "$QXPLATFORM" write limited.zst 2> err.txt
  echo "size limit: status $? $(cat err.txt)"
)
