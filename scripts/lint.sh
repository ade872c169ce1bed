#!/usr/bin/env bash
# Checks the layout with clang-format and the code with clang-tidy, using the
# repository's .clang-format and .clang-tidy. Exits non-zero on any finding.
#
#   scripts/lint.sh, or --all    every C++ source: clang-format on src/, tests/,
#                                fuzz/, bench/ and examples/, clang-tidy on src/
#   scripts/lint.sh FILE...      just these files
#
# clang-tidy reads the compile commands of build/dev (configured when missing);
# set LINT_BUILD_DIR to use another build tree. LINT_JOBS sets its parallelism.
set -euo pipefail
cd "$(dirname "$0")/.."

find_tool() {
  local name
  for name in "$@"; do
    if command -v "$name" >/dev/null 2>&1; then
      echo "$name"
      return 0
    fi
  done
  return 1
}

CLANG_FORMAT=$(find_tool clang-format clang-format-14) || {
  echo "lint: clang-format is missing (Debian package clang-format)" >&2
  exit 1
}
CLANG_TIDY=$(find_tool clang-tidy clang-tidy-14) || {
  echo "lint: clang-tidy is missing (Debian package clang-tidy)" >&2
  exit 1
}
BUILD_DIR=${LINT_BUILD_DIR:-build/dev}
JOBS=${LINT_JOBS:-2}

format_files=()
tidy_files=()
if [ $# -eq 0 ] || { [ $# -eq 1 ] && [ "$1" = "--all" ]; }; then
  mapfile -t format_files < <(find src tests fuzz bench examples \
    \( -name '*.h' -o -name '*.cpp' \) | sort)
  mapfile -t tidy_files < <(find src -name '*.cpp' | sort)
else
  format_files=("$@")
  for f in "$@"; do
    case "$f" in *.cpp) tidy_files+=("$f") ;; esac
  done
fi

status=0

echo "lint: clang-format on ${#format_files[@]} files"
if ! "$CLANG_FORMAT" --dry-run -Werror "${format_files[@]}"; then
  echo "lint: layout differs; run: $CLANG_FORMAT -i FILE..." >&2
  status=1
fi

if [ ${#tidy_files[@]} -gt 0 ]; then
  if [ ! -f "$BUILD_DIR/compile_commands.json" ]; then
    echo "lint: configuring $BUILD_DIR for its compile commands"
    cmake --preset dev >/dev/null
  fi
  echo "lint: clang-tidy on ${#tidy_files[@]} files"
  if ! printf '%s\n' "${tidy_files[@]}" |
      xargs -P "$JOBS" -n 1 "$CLANG_TIDY" -p "$BUILD_DIR" --quiet 2>/dev/null; then
    echo "lint: clang-tidy reported findings (above)" >&2
    status=1
  fi
fi

if [ $status -eq 0 ]; then
  echo "lint: clean"
fi
exit $status
