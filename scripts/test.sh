#!/bin/sh
# Builds and runs every test twice: a normal build, then one with AddressSanitizer and
# UndefinedBehaviorSanitizer in which any finding fails the run.
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
jobs=$(nproc)

echo "== normal build =="
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs"
ctest --test-dir build --output-on-failure -j "$jobs"

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build =="
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DQLMAIL_SANITIZE=ON >/dev/null
cmake --build build-asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1 \
UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir build-asan --output-on-failure -j "$jobs"

echo "all tests passed"
