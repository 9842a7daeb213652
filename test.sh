#!/usr/bin/env bash
# Installs what is missing, checks that every C++ source is formatted, builds, and runs every test;
# then builds and runs the tests again under AddressSanitizer and UndefinedBehaviorSanitizer, with GCC
# and with clang (whose UBSan also checks every call's function type), and runs each fuzzer briefly.
set -euo pipefail
cd "$(dirname "$0")"

./scripts/install-deps.sh image cups pappl windows clang

echo "== format (.clang-format)"
./scripts/check-format.sh

jobs=$(nproc 2>/dev/null || echo 2)

./build-windows.sh  # the Windows DLL and its host test, run under Wine by tests/windows

echo "== build and test (build/)"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DINKWEAVE_BENCH=ON >/dev/null
cmake --build build -j "$jobs"
ctest --test-dir build --output-on-failure -j "$jobs"
# Why any test skipped (one does only when the machine lacks what it needs).
grep -h -A1 ": Skipped$" build/Testing/Temporary/LastTest.log || true

echo "== build and test with the address and undefined-behaviour sanitizers (build-san/)"
cmake -S . -B build-san -G Ninja -DCMAKE_BUILD_TYPE=Debug -DINKWEAVE_SANITIZE=ON >/dev/null
cmake --build build-san -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-san --output-on-failure -j "$jobs"

echo "== build and test with clang's sanitizers, function types included (build-clang-san/)"
CC=clang CXX=clang++ cmake -S . -B build-clang-san -G Ninja -DCMAKE_BUILD_TYPE=Debug -DINKWEAVE_SANITIZE=ON >/dev/null
cmake --build build-clang-san -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-clang-san --output-on-failure -j "$jobs"

echo "== fuzzers, 20 seconds each (build-fuzz/; fuzz/run.sh SECONDS for longer runs)"
./fuzz/run.sh 20
