#!/bin/sh
# Fuzzes every target for a while under AddressSanitizer and UndefinedBehaviorSanitizer, each
# with a corpus of its own that persists from run to run outside the repository, so that long
# fuzzing adds up. With --merge it then adds to the seeds in fuzz/seeds the inputs of that
# corpus that reach code the seeds do not, leaving out long ones: seeds stay small.
#
#   scripts/fuzz.sh [SECONDS] [--merge]    SECONDS for each target, 600 when not given
#
# QLMAIL_FUZZ_CORPUS is where the corpora are kept (default ~/.cache/qlmail-fuzz). A failing
# input is left in build-fuzz/ and the script exits 1.
set -eu
cd "$(dirname "$0")/.."

seconds=600
merge=no
for arg in "$@"; do
    case $arg in
    --merge) merge=yes ;;
    *[!0-9]* | '')
        echo "usage: scripts/fuzz.sh [SECONDS] [--merge]" >&2
        exit 2
        ;;
    *) seconds=$arg ;;
    esac
done
corpus=${QLMAIL_FUZZ_CORPUS:-${XDG_CACHE_HOME:-$HOME/.cache}/qlmail-fuzz}
max_len=8192 # longest input the fuzzer makes, and longest seed a merge adds

targets=$(for f in fuzz/fuzz_*.cpp; do basename "$f" .cpp; done)
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQLMAIL_BUILD_FUZZ=ON -DQLMAIL_SANITIZE=ON -DQLMAIL_BUILD_TESTS=OFF \
    -DQLMAIL_BUILD_BENCH=OFF -DQLMAIL_BUILD_TOOLS=OFF >/dev/null
# shellcheck disable=SC2086
cmake --build build-fuzz -j "$(nproc)" --target $targets

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
for target in $targets; do
    name=${target#fuzz_}
    mkdir -p "$corpus/$name"
    log="build-fuzz/fuzz-$name.log"
    status=0
    "./build-fuzz/fuzz/$target" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
        -max_len=$max_len -print_final_stats=1 -artifact_prefix="build-fuzz/$name-" \
        "$corpus/$name" "fuzz/seeds/$name" >"$log" 2>&1 || status=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    echo "$target: ${runs:-0} inputs in $seconds s, ${rate:-0} per second," \
        "$(find "$corpus/$name" -type f | wc -l) in $corpus/$name"
    if [ "$status" -ne 0 ]; then
        echo "$target failed (exit status $status); its log is $log:" >&2
        awk '/^fuzz_|ERROR|runtime error|SUMMARY/ { on = 1 } on && n < 40 { print; n++ }' \
            "$log" >&2
        exit 1
    fi
    if [ "$merge" = yes ]; then
        short="build-fuzz/merge-$name"
        rm -rf "$short"
        mkdir -p "$short"
        find "$corpus/$name" -type f -size -$((max_len + 1))c -exec cp {} "$short/" \;
        before=$(find "fuzz/seeds/$name" -type f | wc -l)
        "./build-fuzz/fuzz/$target" -merge=1 -max_len=$max_len "fuzz/seeds/$name" "$short" \
            >"build-fuzz/merge-$name.log" 2>&1
        echo "$target: $(($(find "fuzz/seeds/$name" -type f | wc -l) - before)) seeds added"
    fi
done
