#!/usr/bin/env bash
# Times the customscan mif subcommands on large texts with hyperfine (Debian
# package hyperfine): 8,000 classes, one class of 10,000 attributes and 20
# rows, one of 10,000 rows and 20 attributes, and 20,000 nested scopes.
# Each time should grow with the text, not with its square.
#
#   bash bench/mif_scale.sh [TOOL]      default: build/release/src/customscan
# Environment: CUSTOMSCAN_BENCH_DATA (default build/bench/mif-scale) holds the
# texts, CUSTOMSCAN_BENCH_RUNS (default 10) the runs per command.
set -euo pipefail
cd "$(dirname "$0")/.."

tool=${1:-build/release/src/customscan}
data=${CUSTOMSCAN_BENCH_DATA:-$PWD/build/bench/mif-scale}
runs=${CUSTOMSCAN_BENCH_RUNS:-10}
command -v hyperfine >/dev/null || { echo "mif_scale: hyperfine is missing (apt-get install hyperfine)" >&2; exit 2; }
if [ ! -x "$tool" ]; then
  cmake --preset release >/dev/null
  cmake --build --preset release -j2 --target customscan
fi
mkdir -p "$data"
python3 bench/mif_scale.py classes 8000 >"$data/classes.mif"
python3 bench/mif_scale.py wide 10000 20 >"$data/wide.mif"
python3 bench/mif_scale.py long 10000 20 >"$data/long.mif"
python3 bench/mif_scale.py deep 20000 >"$data/deep.mif"

hyperfine -N -w 2 -r "$runs" --export-markdown "$data/results.md" \
  "$tool mif check $data/classes.mif" \
  "$tool mif check --json $data/classes.mif" \
  "$tool mif table $data/wide.mif --class Wide" \
  "$tool mif table $data/wide.mif --class Wide --format json" \
  "$tool mif table $data/long.mif --class Wide" \
  "$tool mif tree $data/deep.mif" \
  "$tool mif tree --json $data/deep.mif"
for args in "tree $data/deep.mif" "tree --json $data/deep.mif"; do
  # shellcheck disable=SC2086
  echo "mif $args: $("$tool" mif $args | wc -c) bytes of output"
done
