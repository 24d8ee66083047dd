#!/usr/bin/env bash
# Builds the libFuzzer program over the module's entry point with clang,
# AddressSanitizer and UndefinedBehaviorSanitizer, and runs it for a fixed
# time. Exits non-zero on any crash, sanitizer report, leak, timeout or
# broken invariant.
#
#   scripts/fuzz.sh [SECONDS] [extra libFuzzer options...]      (default 60)
#
# Build dir: $FUZZ_BUILD_DIR or build-fuzz. The kept seeds are
# tests/fuzz/corpus (read only); inputs found along the way go to
# BUILD/fuzz/corpus, a failing input to BUILD/fuzz/crashes/.
# Replay one:  BUILD/tests/fuzz/tarvo_ripple_fuzzer BUILD/fuzz/crashes/crash-...
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh fuzz
seconds=${1:-60}
shift || true
build=${FUZZ_BUILD_DIR:-build-fuzz}

# The whole project is instrumented (so the module loaded by the fuzzer
# reports its own faults) and carries coverage counters for libFuzzer;
# only the fuzzer program links libFuzzer itself.
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DTARVO_SANITIZE=address,undefined -DTARVO_FUZZER=ON \
  -DCMAKE_C_FLAGS=-fsanitize=fuzzer-no-link -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link >/dev/null
cmake --build "$build" --target tarvo_ripple_fuzzer

work=$build/fuzz
mkdir -p "$work/corpus" "$work/crashes"
export ASAN_OPTIONS=detect_leaks=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
# -timeout: an input that takes 10 s is a hang. -rss_limit_mb also caps any
# single allocation (malloc_limit_mb defaults to it).
"$build/tests/fuzz/tarvo_ripple_fuzzer" "$work/corpus" tests/fuzz/corpus \
  -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=1024 \
  -artifact_prefix="$work/crashes/" -print_final_stats=1 "$@"
