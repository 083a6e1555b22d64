mkdir adir
"$QXPLATFORM" cat adir 2> err.txt
status=$?
cat err.txt
exit $status
