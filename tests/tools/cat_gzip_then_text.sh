printf 'packed\n' | gzip -c > mixed.gz
printf 'plain tail\n' >> mixed.gz
"$QXPLATFORM" cat mixed.gz
