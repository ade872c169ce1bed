#!/usr/bin/env bash
# Sets up, builds (dev preset: debug, warnings as errors) and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset dev >/dev/null
cmake --build --preset dev
ctest --preset dev
