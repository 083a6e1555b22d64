"$QXPLATFORM" compress --help | head -n 1
