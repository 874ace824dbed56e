#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test:
#   1. the optimised g++ build: unit tests and the installed-package consumer;
#   2. clang with AddressSanitizer + UndefinedBehaviorSanitizer: the unit tests
#      again, and each libFuzzer target for OSTREL_FUZZ_SECONDS (default 30);
#   3. clang with ThreadSanitizer: the threaded tests.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
jobs=$(nproc)
start=$SECONDS

step() { echo; echo "=== $* ($((SECONDS - start)) s)"; }

step "release build"
bash scripts/configure.sh release
cmake --build build -j"$jobs"
step "release tests"
ctest --test-dir build --output-on-failure -j"$jobs"

step "ASan/UBSan build"
bash scripts/configure.sh asan
cmake --build build-asan -j"$jobs"
step "ASan/UBSan tests and fuzzers"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs"

step "TSan build"
bash scripts/configure.sh tsan
cmake --build build-tsan -j"$jobs"
step "TSan tests"
TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build-tsan --output-on-failure -j"$jobs" \
  --no-tests=error

step "all tests passed"
