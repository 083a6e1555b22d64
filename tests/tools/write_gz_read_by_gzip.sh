seq 1 200000 > numbers.txt
"$QXPLATFORM" write numbers.txt.gz < numbers.txt || exit 1
gzip -t numbers.txt.gz && echo "gzip -t: valid"
gzip -dc numbers.txt.gz | cmp - numbers.txt && echo "gzip -dc: same"
pigz -dc numbers.txt.gz | cmp - numbers.txt && echo "pigz -dc: same"
python3 -c 'import gzip,sys; sys.stdout.buffer.write(gzip.open("numbers.txt.gz").read())' | cmp - numbers.txt && echo "python gzip: same"
"$QXPLATFORM" write run.gz.log < numbers.txt && gzip -dc < run.gz.log | cmp - numbers.txt && echo ".gz inside the name compresses"
