"$QXPLATFORM" cat --help | head -n 1
