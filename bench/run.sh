#!/usr/bin/env bash
# Builds the bench preset, runs every benchmark and prints one table in which
# each figure is set against a baseline measured in the same run.
#
#   bash bench/run.sh
# Environment: CUSTOMSCAN_BENCH_REPETITIONS (default 5; the spawn round trip,
# short and the noisiest, gets four times as many), CUSTOMSCAN_BENCH_OUT
# (default build/bench/results), CUSTOMSCAN_BENCH_DATA (generated MIF files).
set -euo pipefail
cd "$(dirname "$0")/.."

reps=${CUSTOMSCAN_BENCH_REPETITIONS:-5}
out=${CUSTOMSCAN_BENCH_OUT:-$PWD/build/bench/results}
export CUSTOMSCAN_BENCH_DATA=${CUSTOMSCAN_BENCH_DATA:-$PWD/build/bench/data}
bin=build/bench/bench
class='Bench|Volumes|1.0'
python=$(command -v /usr/bin/python3 || command -v python3)

bash scripts/setup.sh
cmake --preset bench >/dev/null
cmake --build --preset bench -j2
rm -rf "$out"
mkdir -p "$out" "$CUSTOMSCAN_BENCH_DATA"

# The MIF files, generated once and reused by later runs.
for size in 4096 65536 1048576 10485760 104857600; do
  label=$(( size >= 1048576 ? size / 1048576 : size / 1024 ))$([ "$size" -ge 1048576 ] && echo MB || echo KB)
  file=$CUSTOMSCAN_BENCH_DATA/volumes-$label.mif
  [ -e "$file" ] || "$bin/cs_mifgen" "$size" "$file"
done

{
  echo "nproc: $(nproc)"
  echo "cpu: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')"
  echo "memory: $(free -h | awk '/^Mem:/ {print $2}')"
  echo "kernel: $(uname -r)"
  echo "compiler: $(c++ --version | head -1)"
  echo "python: $($python --version 2>&1)"
  echo "repetitions: $reps (spawn round trip: $((reps * 4)))"
} | tee "$out/machine.txt"

for program in "$bin"/cs_bench_*; do
  name=$(basename "$program")
  [ "$name" = cs_bench_child ] && continue
  echo "running $name" >&2
  n=$reps
  [ "$name" = cs_bench_spawn ] && n=$((reps * 4))
  "$program" --benchmark_repetitions="$n" --benchmark_enable_random_interleaving=true \
    --benchmark_out="$out/$name.json" --benchmark_out_format=json >"$out/$name.txt" 2>"$out/$name.log"
done

# Whole processes for peak memory (and the time comparison with Python).
once() {  # what size repetition command...
  local what=$1 size=$2 rep=$3
  shift 3
  /usr/bin/time -f '%e %M' -o "$out/time.tmp" "$@" >"$out/$what-$size.out"
  read -r seconds rss <"$out/time.tmp"
  echo "$what,$size,$rep,$seconds,$rss" >>"$out/processes.csv"
}
echo "running whole-process runs" >&2
for size in 1048576 10485760 104857600; do
  label=$(( size / 1048576 ))MB
  file=$CUSTOMSCAN_BENCH_DATA/volumes-$label.mif
  runs=1
  [ "$size" -eq 104857600 ] && runs=3
  for rep in $(seq "$runs"); do
    for what in floor plugin baseline; do
      if [ "$what" = plugin ] && ! "$bin/cs_mif_once" --has-plugin; then continue; fi
      once "$what" "$size" "$rep" "$bin/cs_mif_once" "$what" "$file" "$class"
    done
    once python "$size" "$rep" "$python" bench/mif_baseline.py "$file" "$class"
  done
done
rm -f "$out/time.tmp"
# Every parser must have found the same rows.
for size in 1048576 10485760 104857600; do
  counts=$(for what in plugin baseline python; do
    [ -e "$out/$what-$size.out" ] && cat "$out/$what-$size.out"
  done | sort -u)
  if [ "$(echo "$counts" | wc -l)" -ne 1 ]; then
    echo "the parsers disagree on $size bytes: $counts" >&2
    exit 1
  fi
done

"$python" bench/report.py "$out" | tee "$out/table.md"
