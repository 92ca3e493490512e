#!/usr/bin/env bash
# Installs what is missing, builds everything with warnings as errors, and
# runs every test. With --sanitize, the same in a separate build under
# AddressSanitizer and UndefinedBehaviorSanitizer. The build folder is
# build/ (build-sanitize/) in the checkout, or $UT_BUILD_DIR, for example
# when the checkout is read-only.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

build=${UT_BUILD_DIR:-build}
options=(-DUT_WERROR=ON)
if [ "${1:-}" = "--sanitize" ]; then
  build=${UT_BUILD_DIR:-build-sanitize}
  options+=(-DUT_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug)
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
fi

cmake -S . -B "$build" -G Ninja "${options[@]}" >/dev/null
cmake --build "$build"
ctest --test-dir "$build" --output-on-failure --timeout 900 -j2
