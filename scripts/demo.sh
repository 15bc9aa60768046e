#!/usr/bin/env bash
# Builds the project and runs the demonstration against the virtual board.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
exec build/default/bin/pelagon-demo "$@"
