#!/usr/bin/env bash
# Checks what the plug-in needs of its host: every symbol that libCustomScan.so
# imports from the host library must be on scripts/plugin-host-imports.txt,
# and the plug-in must import nothing that takes a lock, starts a thread or
# is an atomic operation.
#
#   bash scripts/check-host-contract.sh [PLUGIN.so [HOST.so]]
# (default: build/dev/src/libCustomScan.so and libCustomScanHost.so beside it)
set -euo pipefail
cd "$(dirname "$0")/.."
plugin=${1:-build/dev/src/libCustomScan.so}
host=${2:-$(dirname "$plugin")/libCustomScanHost.so}
allow=scripts/plugin-host-imports.txt
for f in "$plugin" "$host" "$allow"; do
  [ -e "$f" ] || { echo "check-host-contract: $f does not exist" >&2; exit 2; }
done

imports=$(nm -D -u "$plugin" | awk '{print $NF}' | sed 's/@.*//' | sort -u)
exports=$(nm -D --defined-only "$host" | awk '{print $NF}' | sed 's/@.*//' | sort -u)
from_host=$(comm -12 <(echo "$imports") <(echo "$exports") | c++filt | sort -u)
allowed=$(sed -e 's/#.*//' -e 's/[[:space:]]*$//' "$allow" | grep -v '^$' | sort -u)

status=0
extra=$(comm -23 <(echo "$from_host") <(echo "$allowed"))
if [ -n "$extra" ]; then
  echo "check-host-contract: $plugin imports host operations that are not on $allow:" >&2
  echo "$extra" | sed 's/^/  /' >&2
  status=1
fi
locks=$(echo "$imports" | grep -E '^(pthread_|__atomic_|__sync_|__cxa_guard_|__tls_get_addr|_ZNSt6thread|_ZNSt5mutex|sem_|mtx_|thrd_|cnd_)' || true)
if [ -n "$locks" ]; then
  echo "check-host-contract: $plugin imports locks, threads or atomic operations:" >&2
  echo "$locks" | c++filt | sed 's/^/  /' >&2
  status=1
fi
if [ "$status" -eq 0 ]; then
  echo "check-host-contract: $(echo "$from_host" | grep -c .) host operations imported, all on the list; no lock, thread or atomic"
fi
exit "$status"
