#!/usr/bin/env bash
# Sets up, builds the release preset and takes a short tour of the customscan
# tool on the example scanners: a few expressions, one batch, one failure.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target customscan

tool_dir=$(cd build/release/src && pwd)
[ -x "$tool_dir/customscan" ] || { echo "run-tour: build/release/src/customscan was not built" >&2; exit 1; }
export PATH="$tool_dir:$PATH"
export CUSTOMSCAN_SCANNER_DIR="$PWD/examples/scanners"

bold=
plain=
if [ -t 1 ]; then
  bold=$(tput bold 2>/dev/null || true)
  plain=$(tput sgr0 2>/dev/null || true)
fi

say() { printf '\n%s# %s%s\n' "$bold" "$*" "$plain"; }

# Shows a command line and runs it; a failing command shows its exit status
# and the tour goes on.
show() {
  printf '%s$ %s%s\n' "$bold" "$1" "$plain"
  local status=0
  bash -c "$1" || status=$?
  if [ "$status" -ne 0 ]; then
    printf '(exit status %d)\n' "$status"
  fi
}

say "The tool, and the scanner directory every command below uses: \$CUSTOMSCAN_SCANNER_DIR=examples/scanners"
show 'customscan --version'

say "RunCommand runs a scanner and returns its output as one string (a scalar)"
show 'customscan eval RunCommand path=kernel.sh'

say "RunCommandEx returns one string per line (a vector); parameters follow the program name"
show 'customscan eval RunCommandEx "path=kernel.sh all"'

say "CustomScanInfo reads one field of one row of a MIF class (os-release.sh writes a scalar group)"
show 'customscan eval CustomScanInfo command=os-release.sh class=OperatingSystem code=Linux field=PrettyName'

say "CustomScanList lists the row keys of a class (block devices, keyed MAJOR#MINOR)"
show 'customscan eval CustomScanList command=block-devices.sh class=BlockDevices'

say "CustomScanExists tells whether a row exists; --json gives the code as well"
show 'customscan eval --json CustomScanExists command=mounts.sh class=FileSystems code=/'

say "What the MIF of a class looks like to the plug-in, as a table"
show 'examples/scanners/os-release.sh | customscan mif table - --class OperatingSystem'

say "batch evaluates JSON Lines requests in one plug-in life (the MIF cache runs each scanner once)"
show 'customscan batch examples/requests.jsonl'

say "A failure: failing.sh exits with status 3; the tool names the code and exits 1"
show 'customscan eval RunCommand path=failing.sh'

say "mif check tells a scanner author what is wrong before deployment"
show 'examples/scanners/bad-mif.sh | customscan mif check -'

say "doctor tells who can change what the plug-in runs, and what keeps a scanner from running (silent: all is well)"
show 'customscan doctor && echo "doctor: nothing to report on $CUSTOMSCAN_SCANNER_DIR"'

say "More: customscan --help, customscan doctor --help, docs/customscan.md, docs/operands.md, docs/mif.md"
