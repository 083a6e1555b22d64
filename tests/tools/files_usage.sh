# Usage errors: one line and a pointer to --help on standard error, status
# 2 (gzip says 1). Unknown options, values where none belong, unknown
# methods, -m without one.
for args in "-x" "--bogus" "--keep=yes" "-m lzma" "--method=lzma" "-m"; do
  "$QXPLATFORM" $args < /dev/null > out.txt 2> err.txt
  echo "$args -> $? : $(head -n 1 err.txt) [$(wc -l < err.txt) lines, $(wc -c < out.txt) bytes out]"
done
gzip -x < /dev/null 2>/dev/null; echo "gzip -x: $?"
# -- ends the options: a file called -k.
printf 'dash\n' > ./-k
"$QXPLATFORM" -k -- -k; echo "-- : $?"; gzip -dc ./-k.gz
