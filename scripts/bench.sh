#!/usr/bin/env bash
# Builds the project and runs every benchmark program in bench/ (extra
# arguments go to each, for example --benchmark_repetitions=5).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
for b in build/default/bin/bench_*; do
  echo "=== $(basename "$b") ==="
  "$b" "$@"
done
