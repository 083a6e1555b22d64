# --version and -V print the release with status 0, as gzip --version and
# zstd --version (and -V) succeed; an argument after them is a usage error;
# a failed write of the line is status 1.
"$QXPLATFORM" --version; echo "qxplatform --version: $?"
"$QXPLATFORM" -V; echo "qxplatform -V: $?"
gzip --version > /dev/null; echo "gzip --version: $?"
zstd --version > /dev/null; echo "zstd --version: $?"
zstd -V > /dev/null; echo "zstd -V: $?"
"$QXPLATFORM" --version extra 2> err.txt; echo "qxplatform --version extra: $? $(cat err.txt)"
"$QXPLATFORM" --version > /dev/full 2> err.txt; echo "to /dev/full: $? $(cat err.txt)"
gzip --version > /dev/full 2> /dev/null; echo "gzip --version to /dev/full: $?"
