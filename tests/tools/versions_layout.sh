"$QXPLATFORM" versions
