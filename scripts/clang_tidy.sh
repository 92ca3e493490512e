#!/usr/bin/env bash
# Runs the committed .clang-tidy over the sources of src/, compiled as the
# build compiles them (BUILD/compile_commands.json). Fails, showing every
# finding, when a check is broken; a missing clang-tidy is a failure too,
# never a skip.
#   usage: scripts/clang_tidy.sh BUILD SOURCE
set -euo pipefail
build=$1
source=$2
runner=run-clang-tidy-14
if ! command -v "$runner" >/dev/null || ! command -v clang-tidy-14 >/dev/null; then
  echo "style: clang-tidy 14 is missing; bash scripts/setup.sh installs it (Debian package clang-tidy)" >&2
  exit 1
fi
exec "$runner" -p "$build" -quiet -j 2 -clang-tidy-binary "$(command -v clang-tidy-14)" \
  "^$source/src/.*\.(cpp|mm)$"
