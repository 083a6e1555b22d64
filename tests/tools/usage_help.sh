"$QXPLATFORM" --help | grep -E '^  (cat|write|compress|uncompress|info|versions) ' | awk '{print $1}'
