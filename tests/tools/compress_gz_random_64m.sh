head -c 67108864 /dev/urandom > random.bin
"$QXPLATFORM" compress -m gz random.bin random.gz || exit 1
gzip -dc random.gz | cmp - random.bin && echo "gzip -dc: same"
"$QXPLATFORM" uncompress -m gz random.gz back.bin && cmp back.bin random.bin && echo "uncompress: same"
