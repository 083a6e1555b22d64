# FILE becomes FILE.gz and the input goes away; -d gives it back and removes
# FILE.gz; mode and modification time travel along. gzip does the same.
seq 1 20000 > ours.txt; cp ours.txt theirs.txt; cp ours.txt orig.txt
chmod 640 ours.txt theirs.txt; touch -d '2020-01-02 03:04:05' ours.txt theirs.txt
"$QXPLATFORM" -- ours.txt; echo "qxplatform: $?"
gzip theirs.txt; echo "gzip: $?"
ls ours.txt* theirs.txt*
stat -c '%a %y' ours.txt.gz theirs.txt.gz | cut -c1-24
gzip -dc ours.txt.gz | cmp - orig.txt && echo "gzip -dc reads ours"
"$QXPLATFORM" -d ours.txt.gz; echo "qxplatform -d: $?"
gzip -d theirs.txt.gz; echo "gzip -d: $?"
ls ours.txt* theirs.txt*
cmp ours.txt orig.txt && stat -c '%a %y' ours.txt | cut -c1-24
