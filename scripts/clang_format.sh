#!/usr/bin/env bash
# Checks that every C++ file of src/, tests/, bench/ and tools/ is formatted
# as the committed .clang-format says, with Debian's clang-format 14; shows
# each difference and fails when there is one. A missing clang-format is a
# failure too, never a skip. To format: the same list with `clang-format-14 -i`.
#   usage: scripts/clang_format.sh SOURCE
set -euo pipefail
source=$1
if ! command -v clang-format-14 >/dev/null; then
  echo "style: clang-format 14 is missing; bash scripts/setup.sh installs it (Debian package clang-format)" >&2
  exit 1
fi
cd "$source"
find src tests bench tools -type f \( -name '*.cpp' -o -name '*.h' -o -name '*.mm' \) -print0 |
  sort -z | xargs -0 clang-format-14 --dry-run --Werror
