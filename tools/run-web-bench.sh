#!/usr/bin/env bash
# The web interface's load benchmark: wrk against qes-registryd (the example media service with
# the shipped data) and, in the same run, against a bare Poco HTTP server answering a constant
# JSON body (bench/web/BareServer.cpp), both on free loopback ports.
#
#   tools/run-web-bench.sh                 10 s per case
#   tools/run-web-bench.sh --seconds 2     CI's short run
#
# Cases, 64 connections each: the bare handler; GET of one element; a search
# (where=genre=jazz&q=a&ci=1); and a 90/10 read/write mix (tools/web-mix.lua) while a WebSocket
# subscriber (bench/web/FeedCounter.cpp) counts the feed's events. Prints requests per second,
# p50 and p99 latency, errors (non-2xx answers and socket errors) and the ratio to the bare
# handler; then the subscriber's count against the writes the service recorded. Target: the
# element GET at least 0.5 of the bare handler. Exits non-zero on errors or lost events.
# Installs wrk when it is missing; builds the release preset's programs it needs.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=10
while (($#)); do
    case "$1" in
        --seconds)
            seconds=${2:-}
            shift 2 || true
            ;;
        *)
            echo "usage: tools/run-web-bench.sh [--seconds N]" >&2
            exit 2
            ;;
    esac
done
if ! [[ "$seconds" =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: tools/run-web-bench.sh [--seconds N]" >&2
    exit 2
fi

if ! command -v wrk >/dev/null; then
    if ((EUID == 0)); then apt-get install -y wrk >/dev/null; else sudo apt-get install -y wrk >/dev/null; fi
fi
build=build/release
[[ -f $build/CMakeCache.txt ]] || cmake --preset release >/dev/null
cmake --build "$build" --target qes-registryd qes-web-bare-server qes-web-feed-counter -j2 >/dev/null

scratch=$(mktemp -d /tmp/qes-web-bench.XXXXXX)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$scratch"
}
trap cleanup EXIT

source tools/web-daemon.sh
start_web_server "$scratch/daemon" "$build/examples/qes-registryd" --port 0 --threads 80 2>/dev/null
pids+=("$web_server_pid")
daemon_port=$web_server_port
start_web_server "$scratch/bare" "$build/bench/qes-web-bare-server" 0 80
pids+=("$web_server_pid")
bare_port=$web_server_port
base="http://127.0.0.1:$daemon_port"
json() { /usr/bin/python3 -c "import json,sys; print($1)"; }
album=$(curl -sf "$base/api/Media/Albums?count=1" | json 'json.load(sys.stdin)["elements"][0]["id"]')
track=$(curl -sf "$base/api/Media/Tracks?count=1" | json 'json.load(sys.stdin)["elements"][0]["id"]')
revision() { curl -sf "$base/api/Media" | json 'json.load(sys.stdin)["revision"]'; }

declare -A rate p50 p99 errors
# wrk's own report, reduced to the numbers above.
run_wrk() {
    local name=$1
    shift
    wrk -t2 -c64 -d"${seconds}s" --latency "$@" >"$scratch/$name.wrk"
    rate[$name]=$(awk '/^Requests\/sec:/ {print $2}' "$scratch/$name.wrk")
    p50[$name]=$(awk '$1 == "50%" {print $2}' "$scratch/$name.wrk")
    p99[$name]=$(awk '$1 == "99%" {print $2}' "$scratch/$name.wrk")
    errors[$name]=$(awk '/Non-2xx or 3xx responses:/ {n += $NF}
        /Socket errors:/ {gsub(",", ""); n += $4 + $6 + $8 + $10} END {print n + 0}' "$scratch/$name.wrk")
}

run_wrk bare "http://127.0.0.1:$bare_port/"
run_wrk get-element "$base/api/Media/Albums/$album"
run_wrk search "$base/api/Media/Albums?where=genre=jazz&q=a&ci=1"

before=$(revision)
"$build/bench/qes-web-feed-counter" "$daemon_port" Media >"$scratch/feed" &
counter=$!
sleep 0.5
run_wrk mix -s tools/web-mix.lua "$base" -- "/api/Media/Albums/$album" "/api/Media/Tracks/$track"
kill -TERM "$counter"
wait "$counter"
after=$(revision)

printf '%-12s %12s %10s %10s %8s %8s\n' case "req/s" p50 p99 errors "x bare"
failed=0
for name in bare get-element search mix; do
    ratio=$(awk -v a="${rate[$name]}" -v b="${rate[bare]}" 'BEGIN {printf "%.2f", a / b}')
    printf '%-12s %12s %10s %10s %8s %8s\n' "$name" "${rate[$name]}" "${p50[$name]}" \
        "${p99[$name]}" "${errors[$name]}" "$ratio"
    ((errors[$name] == 0)) || failed=1
done
read -r _ events _ resyncs _ _ _ _ _ gaps <"$scratch/feed"
recorded=$((after - before))
lost=$((recorded - events))
echo "mix: $(grep -o 'writes sent [0-9]*' "$scratch/mix.wrk"), writes recorded $recorded," \
    "feed events received $events, resyncs $resyncs, gaps $gaps, lost $lost"
ratio=$(awk -v a="${rate[get-element]}" -v b="${rate[bare]}" 'BEGIN {print (a >= 0.5 * b) ? "met" : "missed"}')
echo "target element GET >= 0.5 x bare: $ratio"
((lost == 0 && resyncs == 0 && gaps == 0)) || failed=1
exit "$failed"
