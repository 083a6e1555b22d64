printf 'alpha\n' | gzip -c > a.gz
printf 'beta\n' | pigz -c > b.gz
cat a.gz b.gz > ab.gz
"$QXPLATFORM" cat ab.gz
