#!/usr/bin/env bash
# Configures one build directory. Usage: configure.sh KIND
#   release  g++, optimised with debug info: tests, benchmarks, examples
#   asan     clang with AddressSanitizer + UndefinedBehaviorSanitizer, and the
#            libFuzzer targets; all code carries coverage instrumentation
#            (fuzzer-no-link) so that fuzzing is guided through the libraries
#   tsan     clang with ThreadSanitizer, only the threaded tests
set -euo pipefail
cd "$(dirname "$0")/.."
kind=$1
common=(-G Ninja -Wno-dev)
case "$kind" in
  release)
    cmake -S . -B build "${common[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_CXX_COMPILER=g++ ;;
  asan)
    cmake -S . -B build-asan "${common[@]}" -DCMAKE_BUILD_TYPE=Debug \
      -DCMAKE_CXX_COMPILER=clang++ \
      -DCMAKE_CXX_FLAGS="-O1 -fno-omit-frame-pointer -fsanitize=address,undefined -fno-sanitize-recover=all -fsanitize=fuzzer-no-link" \
      -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined" \
      -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
      -DOSTREL_BUILD_BENCH=OFF -DOSTREL_BUILD_FUZZ=ON -DOSTREL_TEST_CONSUMER=OFF ;;
  tsan)
    cmake -S . -B build-tsan "${common[@]}" -DCMAKE_BUILD_TYPE=Debug \
      -DCMAKE_CXX_COMPILER=clang++ \
      -DCMAKE_CXX_FLAGS="-O1 -fno-omit-frame-pointer -fsanitize=thread" \
      -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=thread" \
      -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" \
      -DOSTREL_BUILD_BENCH=OFF -DOSTREL_BUILD_EXAMPLES=OFF -DOSTREL_TEST_CONSUMER=OFF \
      -DOSTREL_TEST_GLOB="*ThreadTest.cpp" ;;
  *)
    echo "usage: $0 release|asan|tsan" >&2; exit 2 ;;
esac
