#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, AddressSanitizer + UndefinedBehaviorSanitizer) in
# build-fuzz and runs each one for a bounded time, starting from its seeds in
# fuzz/corpus/<target>/. Exits non-zero when any target crashes, trips a sanitizer,
# hangs or fails one of its checks; the input is kept in build-fuzz/fuzz-findings/ and
# `build-fuzz/fuzz/<target> <input>` replays it.
#   HYLN_FUZZ_SECONDS   seconds per target (default 15)
#   HYLN_FUZZ_TARGETS   targets to run (default: all)
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${HYLN_FUZZ_SECONDS:-15}"
build_dir=build-fuzz
HYLN_EXTRA_PACKAGES=clang scripts/setup.sh "$build_dir" -DCMAKE_CXX_COMPILER=clang++ -DHYLN_BUILD_FUZZ=ON \
  -DHYLN_BUILD_TESTS=OFF -DHYLN_BUILD_BENCH=OFF -DHYLN_WERROR=ON

targets="${HYLN_FUZZ_TARGETS:-$(cd fuzz && ls fuzz_*.cpp | grep -v fuzz_support | sed 's/\.cpp$//')}"
findings="$build_dir/fuzz-findings"
mkdir -p "$findings"
failed=()
for target in $targets; do
  # New inputs go to a corpus in the build tree; the seeds in the repository stay as they are.
  corpus="$build_dir/fuzz-corpus/$target"
  log="$build_dir/fuzz-logs/$target.log"
  mkdir -p "$corpus" "$(dirname "$log")"
  # Leaks are not looked for: the library keeps every database it reported open, by design,
  # and LeakSanitizer would scan the heap after each such input.
  status=0
  "$build_dir/fuzz/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 -detect_leaks=0 \
    -print_final_stats=1 -artifact_prefix="$findings/$target-" "$corpus" "fuzz/corpus/$target" >"$log" 2>&1 \
    || status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  [ -n "$runs" ] || runs=$(grep -oE '^#[0-9]+' "$log" | tail -1 | tr -d '#')
  if [ "$status" -eq 0 ]; then
    echo "fuzz: $target: ${runs:-?} executions in ${seconds} s, no findings"
  else
    echo "fuzz: $target: FAILED (exit $status) after ${runs:-?} executions; log: $log" >&2
    grep -E "^(SUMMARY|fuzz property failed|==[0-9]+==ERROR)|Test unit written" "$log" >&2 || tail -20 "$log" >&2
    failed+=("$target")
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in: ${failed[*]}" >&2
  exit 1
fi
