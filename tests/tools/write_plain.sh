printf 'some text\n' | "$QXPLATFORM" write out.txt && cat out.txt
