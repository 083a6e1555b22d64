"$QXPLATFORM" write --help | head -n 1
