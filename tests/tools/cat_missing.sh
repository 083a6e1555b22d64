printf 'present\n' > here.txt
"$QXPLATFORM" cat here.txt nowhere.txt 2> err.txt
status=$?
cat err.txt
exit $status
