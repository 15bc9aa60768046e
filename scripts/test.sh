#!/usr/bin/env bash
# Builds and runs every test twice: a normal build and one under
# AddressSanitizer + UndefinedBehaviorSanitizer (LeakSanitizer included).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
for preset in default asan; do
  echo "=== $preset ==="
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset"
done
