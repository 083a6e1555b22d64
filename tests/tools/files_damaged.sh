# Damaged or foreign input: status 1, the reason named, no output left,
# the input kept. gzip -d behaves alike; with -dcf both copy data that are
# not compressed unchanged.
seq 1 5000 > a.txt; gzip -c a.txt > cut.gz; truncate -s 200 cut.gz; cp cut.gz gcut.gz
printf 'plain' > p.gz; cp p.gz gp.gz
zstd -q -c a.txt > cut.zst; truncate -s 100 cut.zst; cp cut.zst zcut.zst
"$QXPLATFORM" -d cut.gz 2> err.txt; echo "qxplatform: $? $(cat err.txt)"
gzip -d gcut.gz 2>/dev/null; echo "gzip: $?"
"$QXPLATFORM" -d cut.zst 2> err.txt; echo "qxplatform: $? $(cat err.txt)"
zstd -q -d zcut.zst 2>/dev/null; echo "zstd: $?"
"$QXPLATFORM" -d p.gz 2> err.txt; echo "qxplatform: $? $(cat err.txt)"
gzip -d gp.gz 2>/dev/null; echo "gzip: $?"
ls
printf 'plain\n' | "$QXPLATFORM" -dcf; echo "qxplatform -dcf: $?"
printf 'plain\n' | gzip -dcf; echo "gzip -dcf: $?"
"$QXPLATFORM" -dc < p.gz 2> err.txt; echo "qxplatform -dc: $? $(cat err.txt)"
gzip -dc < p.gz 2> /dev/null; echo "gzip -dc: $?"
# With -f over an existing output, damaged input leaves that output as it
# was (gzip has removed it by then), and no scratch file behind.
printf 'old\n' > cut; printf 'old\n' > gcut
"$QXPLATFORM" -df cut.gz 2> err.txt; echo "qxplatform -df: $? $(cat err.txt)"; cat cut
gzip -df gcut.gz 2> /dev/null; echo "gzip -df: $?"; cat gcut 2> /dev/null || echo "gcut: gone"
rm err.txt; ls
# Empty input is cut short, as gzip and zstd say; with -f on standard input
# it is copied (as nothing), as plain data are.
: > empty.gz
"$QXPLATFORM" -d < empty.gz 2> err.txt; echo "qxplatform -d empty: $? $(cat err.txt)"
gzip -d < empty.gz 2> /dev/null; echo "gzip -d empty: $?"
zstd -q -d < empty.gz 2> /dev/null; echo "zstd -d empty: $?"
"$QXPLATFORM" -t empty.gz 2> err.txt; echo "qxplatform -t empty: $? $(cat err.txt)"
"$QXPLATFORM" -df < empty.gz; echo "qxplatform -df empty: $?"
gzip -df < empty.gz; echo "gzip -df empty: $?"
printf 'plain\n' | "$QXPLATFORM" -df; echo "qxplatform -df plain: $?"
