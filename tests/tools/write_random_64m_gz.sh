head -c 67108864 /dev/urandom > random.bin
"$QXPLATFORM" write random.bin.gz < random.bin || exit 1
gzip -dc random.bin.gz | cmp - random.bin && echo "64 MiB of random bytes: same"
