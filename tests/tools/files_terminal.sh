# Compressed data are not written to a terminal unless -f; gzip and zstd
# refuse the same for standard input. Decompressed data may go there.
# script(1) gives the command a terminal.
printf 'text\n' > a.txt; gzip -k a.txt
tty() { script -qec "$1" /dev/null < /dev/null | tr -d '\r'; echo "status ${PIPESTATUS[0]}"; }
tty "$QXPLATFORM -c a.txt"
tty "$QXPLATFORM - < a.txt"
tty "$QXPLATFORM -m zstd - < a.txt"
tty "gzip < a.txt"
tty "zstd -q < a.txt"
tty "$QXPLATFORM -f -c a.txt | gzip -dc"
tty "$QXPLATFORM -f - < a.txt | gzip -dc"
tty "$QXPLATFORM -dc a.txt.gz"
# Compressed data are not read from a terminal either, unless -f; gzip
# refuses the same.
tty "$QXPLATFORM -d"
tty "$QXPLATFORM -t"
tty "gzip -d"
