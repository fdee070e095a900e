#!/usr/bin/env bash
# Builds and tests the project the ways its users build it: GCC RelWithDebInfo (every
# test), GCC Debug and Clang (builds only: warnings that one configuration alone raises),
# AddressSanitizer + UndefinedBehaviorSanitizer (every test), then the fuzz targets for a
# bounded time. Warnings are errors.
set -euo pipefail
cd "$(dirname "$0")/.."

HYLN_EXTRA_PACKAGES=clang scripts/setup.sh build -DHYLN_WERROR=ON
(cd build && ctest --output-on-failure -j2)

scripts/setup.sh build-debug -DCMAKE_BUILD_TYPE=Debug -DHYLN_WERROR=ON -DHYLN_BUILD_BENCH=OFF

scripts/setup.sh build-clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Release -DHYLN_WERROR=ON \
  -DHYLN_BUILD_BENCH=OFF

scripts/setup.sh build-asan -DHYLN_SANITIZE=ON -DHYLN_WERROR=ON -DHYLN_BUILD_BENCH=OFF
(cd build-asan && ASAN_OPTIONS=detect_leaks=0 ctest --output-on-failure -j2)

# libFuzzer targets (clang, sanitizers) for the parsers of outside bytes, each for a
# bounded time (HYLN_FUZZ_SECONDS, default 20).
scripts/fuzz.sh
