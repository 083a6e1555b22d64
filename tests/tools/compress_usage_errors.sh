printf 'x' > in.bin
for args in "compress" "compress -m" "compress -m lzma in.bin" "uncompress in.bin" "compress -m gz a b c" "compress -x -m gz in.bin"; do
  $QXPLATFORM $args > /dev/null 2> err.txt
  echo "$args -> $? : $(head -n 1 err.txt)"
done
"$QXPLATFORM" compress -m gz missing.bin out.gz 2> err.txt
echo "missing input -> $? : $(cat err.txt)"
