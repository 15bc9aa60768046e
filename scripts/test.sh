#!/usr/bin/env bash
# Builds and runs every test: a normal build, one under AddressSanitizer +
# UndefinedBehaviorSanitizer (LeakSanitizer included), and the concurrency
# and lock tests under ThreadSanitizer; a Release build; then a short run of
# every fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
for preset in default asan tsan; do
  echo "=== $preset ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset"
done
# The configuration a packager builds: no tests of its own, but it must
# compile warning-free at full optimisation.
echo "=== release ==="
cmake --preset release >/dev/null
cmake --build --preset release
bash tests/install/run.sh build/release
echo "=== fuzz ==="
bash scripts/fuzz.sh 30
