printf 'from standard input\n' | "$QXPLATFORM" cat
printf 'dash too\n' | "$QXPLATFORM" cat -
