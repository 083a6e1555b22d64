# cat unpacks zstd data by content, as gzip; frames of several files and
# concatenated frames in one.
seq 1 1000 > a.txt; seq 5 7 > b.txt
zstd -q -c a.txt > a.zst; zstd -q -c b.txt > b.bin
"$QXPLATFORM" cat a.zst b.bin | cmp - <(cat a.txt b.txt) && echo "two files: same"
cat a.zst b.bin > both.zst
"$QXPLATFORM" cat both.zst | cmp - <(cat a.txt b.txt) && echo "two frames: same"
"$QXPLATFORM" cat - < b.bin
