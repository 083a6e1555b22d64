printf 'x\n' | "$QXPLATFORM" write no/such/dir/out.txt 2> err.txt
status=$?
cat err.txt
exit $status
