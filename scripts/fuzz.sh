#!/usr/bin/env bash
# Runs the libFuzzer targets (clang, fuzz preset).
#
#   scripts/fuzz.sh [TARGET|all] [SECONDS]   fuzz each target for SECONDS (default 60)
#   scripts/fuzz.sh --merge [TARGET|all]     fold new coverage found so far into fuzz/corpus/
#   scripts/fuzz.sh --list                   the target names
#
# Each run starts from the seed corpus fuzz/corpus/TARGET and keeps what it
# finds in build/fuzz-work/TARGET; crashes, leaks and hangs are written to
# build/fuzz-findings/TARGET. Per target it prints executions, seconds, corpus
# size and findings, and appends the same line to build/fuzz-results.txt.
# One target runs at a time, on one core. A finding makes the exit status 1;
# copy the finding into fuzz/corpus/TARGET once fixed, so that the replay test
# keeps it fixed.
set -euo pipefail
cd "$(dirname "$0")/.."

# name:max input bytes (each target refuses larger inputs itself as well)
targets=(
  text_roundtrip:65536
  command_line_split:4096
  command_resolution:4096
  gettoken:16384
  row_values:16384
  mif_parse:262144
)

names() { for t in "${targets[@]}"; do echo "${t%%:*}"; done; }
max_len() {
  for t in "${targets[@]}"; do
    if [ "${t%%:*}" = "$1" ]; then echo "${t##*:}"; fi
  done
}

mode=run
if [ "${1:-}" = "--list" ]; then names; exit 0; fi
if [ "${1:-}" = "--merge" ]; then mode=merge; shift; fi
which=${1:-all}
seconds=${2:-60}

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j2 >/dev/null

if [ "$which" = all ]; then selected=$(names); else selected=$which; fi

status=0
for name in $selected; do
  len=$(max_len "$name")
  bin=build/fuzz/fuzz/customscan_fuzz_$name
  if [ -z "$len" ] || [ ! -x "$bin" ]; then
    echo "fuzz: no target $name (built: $(ls build/fuzz/fuzz | grep customscan_fuzz_ | sed 's/customscan_fuzz_//' | tr '\n' ' '))" >&2
    status=1
    continue
  fi
  seed=fuzz/corpus/$name
  work=build/fuzz-work/$name
  findings=build/fuzz-findings/$name
  mkdir -p "$work" "$findings"
  dict=()
  case $name in mif_parse|row_values) dict=(-dict=fuzz/mif.dict) ;; esac

  if [ $mode = merge ]; then
    "$bin" -merge=1 -max_len="$len" "${dict[@]}" "$seed" "$work" 2>&1 | tail -1
    echo "$name: seed corpus now $(ls "$seed" | wc -l) files"
    continue
  fi

  log=build/fuzz-work/$name.log
  set +e
  ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$bin" -max_total_time="$seconds" -max_len="$len" -timeout=10 -rss_limit_mb=4096 \
    -print_final_stats=1 -artifact_prefix="$findings/" "${dict[@]}" "$work" "$seed" >"$log" 2>&1
  rc=$?
  set -e
  execs=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$log" | awk '{print $2}' | tail -1)
  secs=$(grep -o 'Done [0-9]* runs in [0-9]* second' "$log" | awk '{print $5}' | tail -1)
  corpus_files=$(cat <(ls "$work") <(ls "$seed") | sort -u | wc -l)
  corpus_bytes=$(du -cb "$work" "$seed" | tail -1 | cut -f1)
  found=$(ls "$findings" | wc -l)
  line="$name: executions ${execs:-?} seconds ${secs:-?} corpus ${corpus_files} files ${corpus_bytes} bytes findings ${found} exit ${rc} ($(date -u +%FT%TZ))"
  echo "$line"
  echo "$line" >>build/fuzz-results.txt
  if [ "$rc" -ne 0 ] || [ "$found" -ne 0 ]; then
    echo "fuzz: $name found something; see $log and $findings/" >&2
    status=1
  fi
done
exit $status
