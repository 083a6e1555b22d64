# Without a command the help is a usage error: on standard error, nothing on
# standard output, status 2.
"$QXPLATFORM" > out.txt 2> err.txt
status=$?
grep -q '^usage: qxplatform <command>' err.txt && echo "usage shown on standard error"
[ -s out.txt ] || echo "standard output empty"
exit $status
