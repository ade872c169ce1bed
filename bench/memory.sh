#!/usr/bin/env bash
# Peak memory of whole tool runs on hostile outputs: how much memory an
# answer costs against the size of the output it comes from. Each run is the
# customscan tool (the plug-in loaded as an agent loads it) measured with
# /usr/bin/time -f %M; the scanners are `cat` of generated files, so the
# tool's own peak is what is measured.
#
#   bash bench/memory.sh [TOOL]
# TOOL defaults to build/bench/src/customscan (built here with the bench
# preset). Environment: CUSTOMSCAN_BENCH_DATA (generated files, default
# build/bench/memory-data), CUSTOMSCAN_BENCH_LARGE=1 adds 256 MiB and 1 GiB
# single lines (slow, and they need that much memory).
set -euo pipefail
cd "$(dirname "$0")/.."

tool=${1:-}
if [ -z "$tool" ]; then
  cmake --preset bench >/dev/null
  cmake --build --preset bench -j2 --target customscan CustomScan >/dev/null
  tool=build/bench/src/customscan
fi
tool=$(realpath "$tool")
data=${CUSTOMSCAN_BENCH_DATA:-$PWD/build/bench/memory-data}
mkdir -p "$data/scan"
python=$(command -v /usr/bin/python3 || command -v python3)

# A scanner that writes the file NAME.
scanner() {
  printf '#!/bin/sh\nexec cat %s\n' "$data/$1" >"$data/scan/$1"
  chmod +x "$data/scan/$1"
}
line() {  # name bytes: one line of that many bytes, no line feed
  [ -e "$data/$1" ] || head -c "$2" /dev/zero | tr '\0' x >"$data/$1"
  scanner "$1"
}
line line64 $((64 * 1024 * 1024))
[ -e "$data/empty10" ] || head -c 10000000 /dev/zero | tr '\0' '\n' >"$data/empty10"
scanner empty10
[ -e "$data/defaults.mif" ] || "$python" - "$data/defaults.mif" <<'EOF'
import sys
with open(sys.argv[1], "w") as out:
    out.write('start component\nstart group\nclass = "Big"\nkey = 1\n'
              'start attribute\nid = 1\nname = "K"\nend attribute\n'
              'start attribute\nid = 2\nname = "V"\nvalue = "' + "d" * 1000000 + '"\nend attribute\n'
              'end group\nstart table\nclass = "Big"\n')
    for i in range(3000):
        out.write('{"k%d", }\n' % i)
    out.write("end table\nend component\n")
EOF
scanner defaults.mif
[ -e "$data/keys.mif" ] || "$python" - "$data/keys.mif" <<'EOF'
import sys
with open(sys.argv[1], "w") as out:
    out.write('start component\nstart group\nclass = "Big"\nkey = ' + ",".join(["1"] * 10000) + "\n"
              'start attribute\nid = 1\nname = "K"\nend attribute\nend group\n'
              'start table\nclass = "Big"\n')
    for i in range(3000):
        out.write('{"row%06d"}\n' % i)
    out.write("end table\nend component\n")
EOF
scanner keys.mif
if [ "${CUSTOMSCAN_BENCH_LARGE:-0}" = 1 ]; then
  line line256 $((256 * 1024 * 1024))
  line line1024 $((1024 * 1024 * 1024))
fi

printf '| Run | Output | Exit | Seconds | Peak memory | Peak / output |\n|---|---|---|---|---|---|\n'
measure() {  # label output-file cap-kb tool-arguments...
  local label=$1 source=$2 cap=$3
  shift 3
  local bytes status
  bytes=$(stat -c %s "$data/$source")
  status=0
  (
    [ "$cap" != - ] && ulimit -v "$cap"
    exec /usr/bin/time -f "%e %M" -o "$data/time.txt" "$tool" "$1" --scanner-dir "$data/scan" "${@:2}" >/dev/null 2>"$data/err.txt"
  ) || status=$?
  local seconds rss
  read -r seconds rss < <(tail -n 1 "$data/time.txt")
  "$python" - "$label" "$bytes" "$status" "$seconds" "$rss" <<'EOF'
import sys
label, size, status, seconds, rss = sys.argv[1], int(sys.argv[2]), sys.argv[3], sys.argv[4], int(sys.argv[5]) * 1024
def mb(n):
    return "%.1f MB" % (n / 1e6)
print("| %s | %s | %s | %s | %s | %.1f × |" % (label, mb(size), status, seconds, mb(rss), rss / size))
EOF
}
measure 'eval RunCommand, one 64 MiB line' line64 - eval RunCommand path=line64
measure 'eval --json RunCommand, one 64 MiB line' line64 - eval --json RunCommand path=line64
measure 'eval RunCommand trim=false, one 64 MiB line' line64 - eval RunCommand path=line64 trim=false
measure 'eval RunCommandEx, 10 MB of empty lines' empty10 - eval RunCommandEx path=empty10
measure 'eval RunCommandEx trim=false, 10 MB of empty lines' empty10 - eval RunCommandEx path=empty10 trim=false
measure 'eval --json RunCommandEx trim=false, 10 MB of empty lines' empty10 - eval --json RunCommandEx path=empty10 trim=false
measure 'eval CustomScanInfo, 3,000 empty cells of a 1 MB default' defaults.mif - \
  eval CustomScanInfo command=defaults.mif class=Big code=k2999 field=V
measure 'eval CustomScanList, key of one id 10,000 times (3 GB cap)' keys.mif 3000000 \
  eval CustomScanList command=keys.mif class=Big
measure 'eval CustomScanList, key of one id 10,000 times (1 GB cap)' keys.mif 1000000 \
  eval CustomScanList command=keys.mif class=Big
if [ "${CUSTOMSCAN_BENCH_LARGE:-0}" = 1 ]; then
  measure 'eval RunCommand, one 256 MiB line' line256 - eval RunCommand path=line256
  measure 'eval RunCommand, one 1 GiB line' line1024 - eval RunCommand path=line1024
fi
rm -f "$data/time.txt"
