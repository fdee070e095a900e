#!/usr/bin/env bash
# Line and branch coverage of the library and of the simulated runtime by the whole
# test suite: an instrumented build in build-coverage, then gcovr's summaries.
set -euo pipefail
cd "$(dirname "$0")/.."

HYLN_EXTRA_PACKAGES=gcovr scripts/setup.sh build-coverage -DCMAKE_BUILD_TYPE=Debug -DHYLN_COVERAGE=ON \
  -DHYLN_BUILD_BENCH=OFF
find build-coverage -name '*.gcda' -delete
(cd build-coverage && ctest -j2 --output-on-failure >/dev/null)
# gcovr replaces its output file, so it writes to a scratch file, never to /dev/null.
report=$(mktemp)
trap 'rm -f "$report"' EXIT
for part in HYLNTools NotesSim; do
  echo "== $part"
  gcovr --root . --filter "$part/" --exclude "NotesSim/tools/" --object-directory build-coverage \
    --branches --exclude-unreachable-branches --exclude-throw-branches --print-summary --txt "$report" 2>/dev/null |
    grep -E '^(lines|branches):'
done
