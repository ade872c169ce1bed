#!/usr/bin/env bash
# Sets up, builds (release preset) and loads the plug-in through the host.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
