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

echo "== fuzzing: libFuzzer with AddressSanitizer + UndefinedBehaviorSanitizer =="
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQLMAIL_BUILD_FUZZ=ON -DQLMAIL_SANITIZE=ON -DQLMAIL_BUILD_TESTS=OFF \
    -DQLMAIL_BUILD_BENCH=OFF -DQLMAIL_BUILD_TOOLS=OFF >/dev/null
cmake --build build-fuzz -j "$jobs" --target fuzz_message fuzz_format
seconds=${QLMAIL_FUZZ_SECONDS:-60}
rm -f build-fuzz/crash-* build-fuzz/leak-* build-fuzz/timeout-* build-fuzz/oom-*
for target in message format; do
    # New inputs go to a scratch corpus; the seeds in the repository stay as they are.
    work="build-fuzz/corpus-$target"
    rm -rf "$work"
    mkdir -p "$work"
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        "./build-fuzz/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=30 \
        -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix=build-fuzz/ \
        "$work" "fuzz/seeds/$target" 2>&1 | grep -E '^(stat::number_of_executed_units|Done)|ERROR|SUMMARY' || true
    if ls build-fuzz/crash-* build-fuzz/leak-* build-fuzz/timeout-* build-fuzz/oom-* >/dev/null 2>&1; then
        echo "fuzz_$target found a failing input in build-fuzz/" >&2
        exit 1
    fi
done

echo "all tests passed"
