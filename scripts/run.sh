#!/usr/bin/env bash
# Installs what is missing, builds the uninstaller and runs it on a
# throw-away account in a sandbox, never on yours: see scripts/demo.sh.
set -euo pipefail
exec bash "$(dirname "$0")/demo.sh" "$@"
