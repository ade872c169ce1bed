#!/usr/bin/env bash
# Installs what building and testing CustomScan needs, from Debian's packages.
# Run as root (or with sudo available). Installs only what is missing.
set -euo pipefail

# pandoc makes the manual pages; dpkg-dev (dpkg-shlibdeps), lintian, pkg-config,
# groff-base, bash and zsh are for the packages and their tests; clang-format
# and clang-tidy for scripts/lint.sh.
packages=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev
          libcli11-dev nlohmann-json3-dev valgrind clang libclang-rt-14-dev python3 time
          pandoc dpkg-dev lintian pkg-config groff-base zsh clang-format clang-tidy)
headers=(/usr/include/gtest/gtest.h /usr/include/gmock/gmock.h /usr/include/benchmark/benchmark.h
         /usr/include/CLI/CLI.hpp /usr/include/nlohmann/json.hpp)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup: installing missing packages: ${missing[*]}" >&2
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then
    SUDO=sudo
  else
    echo "setup: not root and no sudo; please install: ${missing[*]}" >&2
    exit 1
  fi
else
  SUDO=
fi
export DEBIAN_FRONTEND=noninteractive
if ! $SUDO apt-get update -qq >/dev/null || ! $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null; then
  echo "setup: apt-get could not install: ${missing[*]}" >&2
  echo "setup: install them by hand (Debian 12 package names) and run again." >&2
  exit 1
fi
for h in "${headers[@]}"; do
  [ -e "$h" ] || { echo "setup: $h is still missing after the install" >&2; exit 1; }
done
