"$QXPLATFORM" info > info.txt || exit 1
cut -c1-22 info.txt | sed 's/ *$//'
grep -q "^release: *2026.1.0$" info.txt && echo "release is 2026.1.0"
grep -q "^processors: *[1-9][0-9]*$" info.txt && echo "processors counted"
grep -q "^working directory: *$(pwd)$" info.txt && echo "working directory matches"
