# -k keeps the input; -c writes to standard output and keeps it too; -dc
# reads back. Compared with gzip.
printf 'keep me\n' > a.txt; cp a.txt b.txt
"$QXPLATFORM" -k a.txt; echo "qxplatform -k: $?"; gzip -k b.txt; echo "gzip -k: $?"
ls
"$QXPLATFORM" -c a.txt > c.gz; echo "qxplatform -c: $?"
gzip -dc c.gz
"$QXPLATFORM" -dc c.gz; echo "qxplatform -dc: $?"
"$QXPLATFORM" -cd a.txt.gz | cmp - a.txt && echo "-cd clustered: same"
ls
