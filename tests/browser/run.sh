#!/usr/bin/env bash
# Runs the browser test of `pelagon serve`: run.sh PELAGON_BINARY OUTPUT_FOLDER.
# Screenshots and downloads land in OUTPUT_FOLDER. Exit status 77 (skipped)
# when the browser or the driver is missing: scripts/setup.sh installs both.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
browser="${CHROMIUM:-/usr/bin/chromium}"
if [ ! -x "$browser" ] || [ ! -d "$here/node_modules/puppeteer-core" ]; then
  echo "skipped: $browser or tests/browser/node_modules missing (run scripts/setup.sh)" >&2
  exit 77
fi
exec node "$here/serve.test.mjs" "$1" "$2"
