#!/bin/sh
# Builds and runs every test twice: a normal build, then one with AddressSanitizer and
# UndefinedBehaviorSanitizer in which any finding fails the run. The mime, codec and scanner
# tests run a third time with the byte scanners in their portable form only and char unsigned,
# as on arm64. Then every fuzz target runs for a bounded time under the same sanitizers; a
# crash, leak, timeout or out-of-memory stop fails the run.
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

echo "== portable scanners, unsigned char: the mime, codec and scanner tests again =="
cmake -S . -B build-portable -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQLMAIL_PORTABLE=ON \
    -DQLMAIL_UNSIGNED_CHAR=ON -DQLMAIL_BUILD_JAVA=OFF -DQLMAIL_BUILD_BENCH=OFF >/dev/null
cmake --build build-portable -j "$jobs" --target test_mime test_codec test_internal
for t in test_mime test_codec test_internal; do
    QLMAIL_CORPUS_DIR="$PWD/../shared/corpus" "./build-portable/tests/$t" --gtest_brief=1
done

echo "== fuzzing: libFuzzer with AddressSanitizer + UndefinedBehaviorSanitizer =="
targets=$(for f in fuzz/fuzz_*.cpp; do basename "$f" .cpp; done)
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQLMAIL_BUILD_FUZZ=ON -DQLMAIL_SANITIZE=ON -DQLMAIL_BUILD_TESTS=OFF \
    -DQLMAIL_BUILD_BENCH=OFF -DQLMAIL_BUILD_TOOLS=OFF >/dev/null
# shellcheck disable=SC2086
cmake --build build-fuzz -j "$jobs" --target $targets

# Runs a fuzz target on a scratch corpus and the given seed folders. Fails when the fuzzer
# exits non-zero or leaves any artifact, showing the target's message and the input's path.
fuzz() {
    target=$1
    seconds=$2
    shift 2
    out="build-fuzz/run-$target"
    rm -rf "$out"
    mkdir -p "$out/corpus"
    status=0
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        "./build-fuzz/fuzz/$target" -max_total_time="$seconds" -timeout=30 \
        -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$out/" \
        "$out/corpus" "$@" >"$out/log" 2>&1 || status=$?
    artifacts=$(find "$out" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'leak-*' \
        -o -name 'timeout-*' -o -name 'oom-*' \) | sort)
    if [ "$status" -ne 0 ] || [ -n "$artifacts" ]; then
        echo "$target failed (exit status $status); its log is $out/log:" >&2
        # The target's own message and the sanitizer's report, from where they begin.
        awk '/^fuzz_|ERROR|runtime error|SUMMARY/ { on = 1 } on && n < 40 { print; n++ }' \
            "$out/log" >&2
        for a in $artifacts; do echo "failing input: $a" >&2; done
        return 1
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$out/log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$out/log")
    echo "$target: $runs inputs in $seconds s, $rate per second"
}

# The gate must be able to fail: an input planted in every target has to stop it.
plant="qlmail-planted-crash"
planted="build-fuzz/planted"
rm -rf "$planted"
mkdir -p "$planted"
printf '%s' "$plant" >"$planted/input"
for target in $targets; do
    if (export QLMAIL_FUZZ_PLANT="$plant" && fuzz "$target" 20 "$planted") 2>/dev/null; then
        echo "the fuzz gate let a planted crash of $target pass" >&2
        exit 1
    fi
    echo "$target: a planted crash fails the gate, as it must"
done

seconds=${QLMAIL_FUZZ_SECONDS:-60}
for target in $targets; do
    # New inputs go to a scratch corpus; the seeds in the repository stay as they are.
    fuzz "$target" "$seconds" "fuzz/seeds/${target#fuzz_}"
done

echo "all tests passed"
