"$QXPLATFORM" frobnicate 2> err.txt
status=$?
cat err.txt
exit $status
