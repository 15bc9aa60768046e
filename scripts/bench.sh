#!/usr/bin/env bash
# Builds the project and runs every benchmark program in bench/ (extra
# arguments go to each, for example --benchmark_repetitions=5), then repeats
# the figures that have targets, from every program, in one table.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default
out=$(mktemp)
trap 'rm -f "$out"' EXIT
for b in build/default/bin/bench_*; do
  echo "=== $(basename "$b") ==="
  "$b" "$@" | tee -a "$out"
done
echo
echo "=== every figure with a target ==="
awk '/^Targets/ { if (!shown) print; shown = 1; on = 1; next } on && NF == 0 { on = 0 } on' "$out"
