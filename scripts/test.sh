#!/usr/bin/env bash
# Builds and runs the whole test suite twice: a normal build and an
# AddressSanitizer + UndefinedBehaviorSanitizer build.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build
(cd build && ctest --output-on-failure -j2)

scripts/setup.sh build-asan -DHYLN_SANITIZE=ON -DHYLN_BUILD_BENCH=OFF
(cd build-asan && ASAN_OPTIONS=detect_leaks=0 ctest --output-on-failure -j2)
