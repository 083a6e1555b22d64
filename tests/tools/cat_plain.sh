printf 'first line\nsecond line\n' > a.txt
printf 'third\n' > b.txt
"$QXPLATFORM" cat a.txt b.txt
