#!/usr/bin/env bash
# Builds and tests the project the ways its users build it: GCC RelWithDebInfo (every
# test), GCC Debug and Clang (builds only: warnings that one configuration alone raises),
# AddressSanitizer + UndefinedBehaviorSanitizer with leak checking (every test), and
# ThreadSanitizer (only the threaded tests, to keep the time down), then the fuzz targets
# for a bounded time. Warnings are errors.
# Each step reports its time: the whole run has to stay well under 25 minutes on 2 cores.
set -euo pipefail
cd "$(dirname "$0")/.."

step() {
  local name=$1 start=$SECONDS
  shift
  "$@"
  echo "test.sh: $name: $((SECONDS - start)) s"
}

step "GCC build" env HYLN_EXTRA_PACKAGES=clang scripts/setup.sh build -DHYLN_WERROR=ON
step "GCC tests" ctest --test-dir build --output-on-failure -j2

step "GCC Debug build" scripts/setup.sh build-debug -DCMAKE_BUILD_TYPE=Debug -DHYLN_WERROR=ON -DHYLN_BUILD_BENCH=OFF

step "Clang build" scripts/setup.sh build-clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Release \
  -DHYLN_WERROR=ON -DHYLN_BUILD_BENCH=OFF

step "ASan build" scripts/setup.sh build-asan -DHYLN_SANITIZE=ON -DHYLN_WERROR=ON -DHYLN_BUILD_BENCH=OFF
# A leak fails the test whose process leaked, forked children and the programs the
# tests start included. tests/sanitizers/lsan.supp lists the allocations that stay
# by design. intercept_tls_get_addr=0: GCC 12's runtime can misread a forked child's
# dynamic TLS and crash in its leak check ("Tracer caught signal 11"); glibc keeps
# those blocks in the heap, so the check still sees what they point to.
# allocator_may_return_null=1: a failed allocation returns null, as the C allocator does,
# so the library's paths for it run as they would in a host.
step "ASan tests" env ASAN_OPTIONS=detect_leaks=1:intercept_tls_get_addr=0:allocator_may_return_null=1 \
  LSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/lsan.supp" ctest --test-dir build-asan --output-on-failure -j2

# ThreadSanitizer: only the threaded tests (label "threads") and what they need.
step "TSan build" env HYLN_TARGETS=hyln_thread_tests scripts/setup.sh build-tsan -DHYLN_TSAN=ON -DHYLN_WERROR=ON \
  -DHYLN_BUILD_BENCH=OFF
step "TSan tests" ctest --test-dir build-tsan --output-on-failure -j2 -L threads

# libFuzzer targets (clang, sanitizers) for the parsers of outside bytes, each for a
# bounded time (HYLN_FUZZ_SECONDS, default 15).
step "Fuzzing" scripts/fuzz.sh
