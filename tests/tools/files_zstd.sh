# -m zstd (also --method=zstd, --method zstd and in a cluster) makes FILE.zst that zstd
# reads; -d takes the method from the data; zstd's own output reads back.
seq 1 30000 > a.txt; cp a.txt orig.txt; cp a.txt b.txt; cp a.txt c.txt; cp a.txt d.txt
"$QXPLATFORM" -m zstd -k a.txt; echo "-m zstd: $?"
"$QXPLATFORM" --method=zstd -k b.txt; echo "--method=zstd: $?"
"$QXPLATFORM" --method zstd -k c.txt; echo "--method zstd: $?"
"$QXPLATFORM" -kmzstd -9 d.txt; echo "-kmzstd -9: $?"; zstd -q -dc d.txt.zst | cmp - orig.txt && echo "zstd reads -kmzstd -9"
zstd -q -dc a.txt.zst | cmp - orig.txt && echo "zstd -dc reads ours"
zstd -q -t b.txt.zst && echo "zstd -t: ok"
rm a.txt; "$QXPLATFORM" -d a.txt.zst; echo "qxplatform -d: $?"; cmp a.txt orig.txt && echo same
zstd -q -19 -c orig.txt > z.zst; "$QXPLATFORM" -dc z.zst | cmp - orig.txt && echo "reads zstd -19"
ls
