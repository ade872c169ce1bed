#!/usr/bin/env bash
# Second CI pass: builds the asan preset (AddressSanitizer, UndefinedBehavior-
# Sanitizer and leak detection, no recovery; the test programs, the children
# they run and the tool are built sanitized too, so the runtime is loaded
# first) and runs the whole test suite under it.
set -euo pipefail
cd "$(dirname "$0")/.."
start=$(date +%s)
cmake --preset asan >/dev/null
cmake --build --preset asan -j2
# The preset sets ASAN_OPTIONS and UBSAN_OPTIONS for every test. The Debian
# packages (label "package") are tested by the dev pass only: packing
# sanitized binaries would prove nothing more.
status=0
ctest --preset asan -LE package || status=$?
echo "ci-asan: $(( $(date +%s) - start )) s, ctest exit $status"
exit $status
