#!/usr/bin/env bash
# Builds the project and runs the demonstration: `pelagon demo` on a virtual
# board, writing its frames, configuration and XML into ./pelagon-demo (extra
# arguments go to the demo, for example -o /tmp/demo or --set NAME=VALUE).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
exec build/default/bin/pelagon demo "$@"
