# Output that does not arrive: a full device and a reader that has gone.
seq 1 100000 > numbers.txt
"$QXPLATFORM" cat numbers.txt > /dev/full 2> err.txt
echo "full device: status $?"
cat err.txt
"$QXPLATFORM" cat numbers.txt numbers.txt numbers.txt 2> err.txt | head -c 10 > /dev/null
echo "closed pipe: status ${PIPESTATUS[0]}"
cat err.txt
