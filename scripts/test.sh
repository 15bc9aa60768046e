#!/usr/bin/env bash
# Builds and runs every test: a normal build, one under AddressSanitizer +
# UndefinedBehaviorSanitizer (LeakSanitizer included), and the concurrency
# and lock tests under ThreadSanitizer; then a short run of every fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
for preset in default asan tsan; do
  echo "=== $preset ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset"
done
echo "=== fuzz ==="
bash scripts/fuzz.sh 30
