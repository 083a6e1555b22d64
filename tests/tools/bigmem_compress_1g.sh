# compress and uncompress of a 1 GiB file, both methods, and -d -c, stream
# with bounded memory: the peak resident size of the child (VmHWM read from
# /proc/<pid>/status while it runs, and its ru_maxrss when it ends) stays
# under 64 MiB. gzip and zstd read what was written.
if [ -n "${ASAN_OPTIONS:-}" ]; then
  # The sanitizer's shadow memory and quarantine are resident too.
  echo "skipped: resident size is not the tool's own under AddressSanitizer"
  exit 77
fi
yes "$(seq 1 60 | tr '\n' ' ')" | head -c 1073741824 > big.txt
peak() {
  python3 - "$@" <<'PY'
import resource, subprocess, sys, time
args = sys.argv[1:]
out = args.index(">")
cmd, target = args[:out], args[out + 1]
with open(target, "wb") as sink:
    child = subprocess.Popen(cmd, stdout=sink)
    hwm = 0
    while child.poll() is None:
        try:
            with open(f"/proc/{child.pid}/status") as status:
                for line in status:
                    if line.startswith("VmHWM:"):
                        hwm = max(hwm, int(line.split()[1]))
        except OSError:
            pass
        time.sleep(0.01)
# The only child this interpreter waited for.
maxrss = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
peak = max(hwm, maxrss)
verdict = "yes" if 0 < hwm and peak < 64 * 1024 else f"NO ({hwm} KiB VmHWM, {maxrss} KiB maxrss)"
print(f"{' '.join(a.rsplit('/', 1)[-1] for a in cmd)}: status {child.returncode}, under 64 MiB: {verdict}")
PY
}
peak "$QXPLATFORM" compress -m zstd big.txt big.zst ">" /dev/null
peak "$QXPLATFORM" uncompress -m zstd big.zst ">" back.txt
cmp back.txt big.txt && echo "zstd: same"
peak "$QXPLATFORM" compress -m gz big.txt ">" big.gz
peak "$QXPLATFORM" uncompress big.gz - ">" /dev/null
peak "$QXPLATFORM" -d -c big.zst ">" /dev/null
rm back.txt
zstd -q -dc big.zst | cmp - big.txt && echo "zstd -dc: same"
gzip -dc big.gz | cmp - big.txt && echo "gzip -dc: same"
