# Compressed data are not written to a terminal unless -f: status 1 and one
# line naming standard output; gzip refuses the same for its standard input
# with status 1. To a file, or with -f, the data go out. script(1) gives the
# command a terminal.
printf 'text\n' > a.txt
on_tty() { script -qec "$1" /dev/null < /dev/null | tr -d '\r'; echo "status ${PIPESTATUS[0]}"; }
on_tty "$QXPLATFORM compress -m gz a.txt"
on_tty "gzip < a.txt"
on_tty "$QXPLATFORM compress -f -m gz a.txt | gzip -dc"
on_tty "$QXPLATFORM compress --force -m zstd < a.txt | zstd -q -dc"
on_tty "$QXPLATFORM compress -m gz a.txt a.txt.gz && gzip -dc a.txt.gz"
on_tty "$QXPLATFORM uncompress a.txt.gz"
"$QXPLATFORM" uncompress -f a.txt.gz 2> err.txt; echo "uncompress -f: $? $(head -n 1 err.txt)"
