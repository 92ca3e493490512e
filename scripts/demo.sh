#!/usr/bin/env bash
# The demo: installs what is missing, builds the uninstaller, and runs the
# real, unchanged program on a throw-away account. A fresh temporary folder
# gets a home with a planted Tavio footprint and canaries, an applications
# folder with a sealed Tavio.app, and the Tavio player running from it; the
# uninstaller then runs in bubblewrap with that home mounted over yours, that
# folder as /Applications and the rest of the system read-only, so none of
# your own files can be touched.
#
# With a display ($DISPLAY) the window opens for you. Without one (or with
# --headless) it runs on a virtual display and walks the whole road itself
# through the accessibility interface, saves a screenshot of every screen
# (build/demo-screenshots, or --screenshots DIR), and prints the report and
# the canary check.
set -euo pipefail
cd "$(dirname "$0")/.."

# The build folder: build/ in the checkout, or $UT_BUILD_DIR (for a
# read-only checkout, say).
build=${UT_BUILD_DIR:-build}

bash scripts/setup.sh
cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" --target uninstall-tavio tavio-footprint tavio-player tavio-seal

exec /usr/bin/python3 scripts/e2e/demo.py --build "$build" "$@"
