seq 1 100000 > numbers.txt
gzip -9 -c numbers.txt > packed.dat
"$QXPLATFORM" cat packed.dat | cmp - numbers.txt && echo "gzip -9 by content: same"
gzip -1 -c numbers.txt > numbers.gz
"$QXPLATFORM" cat numbers.gz | cmp - numbers.txt && echo "gzip -1: same"
"$QXPLATFORM" cat numbers | cmp - numbers.txt && echo "missing name found with .gz: same"
