"$QXPLATFORM" write < /dev/null 2> err.txt
status=$?
head -n 1 err.txt
exit $status
