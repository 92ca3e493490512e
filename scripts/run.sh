#!/usr/bin/env bash
# Installs what is missing, builds the uninstaller and opens its window on
# the account of the user who runs this. It only scans until "Uninstall…" is
# confirmed in the window. Without a display it runs on a virtual one.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target uninstall-tavio

program="build/src/app/Uninstall Tavio.app/Contents/MacOS/Uninstall Tavio"
if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
  exec "$program"
fi
echo "run: no display; starting on a virtual one (xvfb-run)" >&2
exec xvfb-run -a "$program"
