#!/usr/bin/env bash
# Runs every libFuzzer target of fuzz/ under AddressSanitizer + UndefinedBehaviorSanitizer (the
# fuzz preset, built with clang) for a bounded time each, and fails on any finding.
#
#   tools/run-fuzzers.sh          30 s per target
#   tools/run-fuzzers.sh 60       CI's short run (at most 60 s per target)
#   tools/run-fuzzers.sh 3600     a deeper run: an hour per target
#
# Installs clang and its libFuzzer runtime if they are missing (tools/setup.sh --fuzz), then
# configures and builds the fuzz preset (build/fuzz). Each target starts from a copy of its
# seed corpus, fuzz/corpus/<target>/, in a scratch directory under /tmp: new corpus entries
# stay there and never enter the repository. Hang detection: an input running longer than
# 5 s is a finding; so are crashes, sanitizer reports, leaks and more than 2048 MB of memory.
# A finding stops its target and keeps the input that caused it; the scratch directory is
# left in place then and the input reproduces with
#   build/fuzz/fuzz/<target> <input>
# Prints, per target, the runs libFuzzer made ("Done N runs in S second(s)"), and exits
# non-zero when any target found something.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-30}
if ! [[ "$seconds" =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: tools/run-fuzzers.sh [seconds-per-target]" >&2
    exit 2
fi

tools/setup.sh --fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

# A sanitizer report ends the process at once; libFuzzer then keeps the input.
export ASAN_OPTIONS="halt_on_error=1:detect_leaks=1:check_initialization_order=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"

scratch=$(mktemp -d /tmp/qes-fuzz.XXXXXX)
failed=()
for seeds in fuzz/corpus/*/; do
    target=$(basename "$seeds")
    work="$scratch/$target"
    mkdir -p "$work/corpus" "$work/findings"
    cp "$seeds"* "$work/corpus/"
    status=0
    "build/fuzz/fuzz/$target" "$work/corpus" -dict=fuzz/fuzz.dict \
        -max_total_time="$seconds" -timeout=5 -rss_limit_mb=2048 -detect_leaks=1 \
        -artifact_prefix="$work/findings/" -print_final_stats=1 >"$work/log" 2>&1 || status=$?
    done_line=$(grep -a -E '^Done [0-9]+ runs in [0-9]+ second' "$work/log" | tail -n 1 || true)
    if ((status == 0)) && [[ -n "$done_line" ]]; then
        echo "$target: $done_line"
    else
        echo "$target: FAILED (exit $status); the end of its log:"
        tail -n 60 "$work/log"
        echo "$target: findings in $work/findings"
        failed+=("$target")
    fi
done

if ((${#failed[@]} > 0)); then
    echo "fuzz: ${#failed[@]} target(s) found something: ${failed[*]} (logs and inputs in $scratch)"
    exit 1
fi
rm -rf "$scratch"
echo "fuzz: every target ran $seconds s without a finding"
