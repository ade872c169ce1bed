#!/usr/bin/env bash
# Third CI pass: the tool's end-to-end tests (CTest tests e2e.*) with every
# tool run under valgrind memcheck. Builds the dev preset if needed.
# The e2e tests put the words of CUSTOMSCAN_E2E_WRAPPER before each tool run.
# valgrind writes to one log per process so that the tests still see the
# tool's own standard error; afterwards every log is checked for memory errors,
# leaks and descriptors the tool opened and left open.
set -euo pipefail
cd "$(dirname "$0")/.."
start=$(date +%s)
if [ ! -d tests/e2e ]; then
  echo "ci-valgrind: this tree has no end-to-end tests (tests/e2e); nothing to run"
  exit 0
fi
cmake --preset dev >/dev/null
cmake --build --preset dev -j2

logs=$PWD/build/valgrind-logs
rm -rf "$logs"
mkdir -p "$logs"
suppressions=()
# Known false reports of glibc's vectorised string routines, kept with the tests.
[ -f tests/e2e/valgrind.supp ] && suppressions=(--suppressions="$PWD/tests/e2e/valgrind.supp")
# The tool's children (the scanners) run natively: valgrind follows no exec
# and stays silent in the child between fork and exec.
export CUSTOMSCAN_E2E_WRAPPER="valgrind --error-exitcode=1 --leak-check=full --track-fds=yes --child-silent-after-fork=yes ${suppressions[*]} --log-file=$logs/%p.log"
status=0
# The Debian packages' test (label "package") runs in the dev pass only.
ctest --test-dir build/dev -R '^e2e\.' -LE package -j2 --no-tests=error --output-on-failure --timeout 1800 || status=$?

runs=0
bad=0
for log in "$logs"/*.log; do
  # An empty log is a child between fork and exec, which valgrind keeps silent.
  [ -s "$log" ] || continue
  runs=$((runs + 1))
  # A descriptor the program opened itself (not inherited) and left open.
  stray=$(awk '/Open (file descriptor|AF_[A-Z0-9]+ socket) [0-9]+:/ {fd=$0; getline; if ($0 !~ /inherited from parent/) print fd}' "$log")
  # Every run must have ended with its summary, and with no error (leaks of
  # the kinds --leak-check=full reports are errors too).
  if ! grep -q 'ERROR SUMMARY: 0 errors' "$log" || grep -q 'definitely lost: [1-9]\|indirectly lost: [1-9]' "$log" ||
     [ -n "$stray" ]; then
    echo "ci-valgrind: findings in $log:" >&2
    cat "$log" >&2
    bad=$((bad + 1))
  fi
done
echo "ci-valgrind: $runs tool runs under valgrind, $bad with findings, $(( $(date +%s) - start )) s, ctest exit $status"
[ $bad -eq 0 ] || status=1
exit $status
