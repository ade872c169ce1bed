#!/bin/sh
# Plain text for RunCommand and RunCommandEx: the kernel release on one line,
# or, given the parameter "all", the kernel's name, release, version and the
# machine's hardware name, one a line.
#   customscan eval RunCommand path=kernel.sh
#   customscan eval RunCommandEx "path=kernel.sh all"
set -u

if [ "${1:-}" = all ]; then
  uname -s
  uname -r
  uname -v
  uname -m
else
  uname -r
fi
