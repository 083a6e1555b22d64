"$QXPLATFORM" > out.txt 2> err.txt
status=$?
grep -q '^usage: qxplatform <command>' out.txt && echo "usage shown"
exit $status
