#!/usr/bin/env bash
# Builds the libFuzzer targets (preset fuzz: clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for SECONDS (default 30), starting
# from the seeds in tests/fuzz/corpus/<target>. What a run finds goes to a
# temporary folder, never into the repository's corpus. Fails when any target
# finds a crash, a sanitizer report, a leak or a time-out; the input that did
# it is left in build/fuzz/findings/ and named in the message.
#   bash scripts/fuzz.sh          # the short run of the test command
#   bash scripts/fuzz.sh 3600     # an hour per target
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || { echo "usage: $0 [SECONDS]" >&2; exit 2; }
targets=(config_reader_fuzz lut_reader_fuzz dispatch_fuzz xml_fuzz)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

findings=$PWD/build/fuzz/findings
logs=$PWD/build/fuzz/logs
mkdir -p "$findings" "$logs"
work=$(mktemp -d "${TMPDIR:-/tmp}/pelagon-fuzz.XXXXXX")
trap 'rm -rf "$work"' EXIT

# The configuration keys come from the table the applet saves them with.
{
  printf '"%s"\n' '[Kamerasektion]' 'ConfigFileVersion=2.0;' 'Hersteller=' 'Typ=' 'Version=' 'LoadAppletId=' \
    'AktivePort=' '[Port A]' '[Port B]' "='" "';" ';'
  sed -n 's/^PELAGON_CONFIG_KEY(\([A-Z0-9_]*\),.*/"\1="/p' applet/configuration.def
} >"$work/config_reader_fuzz.dict"
cp tests/fuzz/lut_reader_fuzz.dict "$work/"

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:halt_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
failed=()
for target in "${targets[@]}"; do
  corpus=$work/$target
  mkdir -p "$corpus"
  args=(-max_total_time="$seconds" -timeout=30 -rss_limit_mb=4096 -max_len=4096 -print_final_stats=1
        -artifact_prefix="$findings/$target-")
  [ -f "$work/$target.dict" ] && args+=(-dict="$work/$target.dict")
  log=$logs/$target.log
  # The new inputs go to the first (temporary) folder; the seeds are only read.
  if build/fuzz/bin/$target "${args[@]}" "$corpus" "tests/fuzz/corpus/$target" >"$log" 2>&1; then
    stats=$(sed -n 's/^stat::number_of_executed_units: *\([0-9]*\)/\1 runs/p; s/^stat::average_exec_per_sec: *\([0-9]*\)/\1 exec\/s/p' "$log" | paste -sd, -)
    cov=$(grep -o 'cov: [0-9]* ft: [0-9]*' "$log" | tail -n 1)
    echo "fuzz: $target: ${stats:-?}, $cov, $(ls "$corpus" | wc -l) new inputs"
  else
    failed+=("$target")
    grep -E '^(==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$log" | head -n 5 >&2 || true
    input=$(sed -n 's/.*Test unit written to \(.*\)/\1/p' "$log" | tail -n 1)
    echo "fuzz: $target FAILED: input ${input:-(none written)}, log $log" >&2
    echo "      reproduce: build/fuzz/bin/$target ${input:-INPUT}" >&2
  fi
done
[ ${#failed[@]} -eq 0 ] || { echo "fuzz: failures in ${failed[*]}" >&2; exit 1; }
