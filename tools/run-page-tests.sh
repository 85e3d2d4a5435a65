#!/usr/bin/env bash
# The browser test of the page: installs Chromium, its driver and the Python clients when
# missing (tools/setup.sh --browser), builds qes-registryd in the release configuration and
# runs tests/page/test_page.py in headless Chromium against it. The test starts the server on
# a free port of 127.0.0.1 with a copy of the shipped data, stops it by itself, and saves the
# screenshot doc/page.png. Prints how long the test and the whole run took.
#
# Skipped, with the reason printed, only when Chromium cannot start on this machine.
set -euo pipefail
cd "$(dirname "$0")/.."

started=$(date +%s%3N)
tools/setup.sh --browser
cmake --preset release --log-level=WARNING
cmake --build --preset release -j2 --target qes-registryd
built=$(date +%s%3N)

status=0
/usr/bin/python3 tests/page/test_page.py --server build/release/examples/qes-registryd \
    --data examples/data --page page --screenshot doc/page.png || status=$?
ended=$(date +%s%3N)

# Milliseconds from $1 to $2 as seconds with one decimal.
seconds() { printf '%d.%d' $((($2 - $1) / 1000)) $((($2 - $1) % 1000 / 100)); }
case $status in
    0) outcome="passed" ;;
    77) outcome="SKIPPED (Chromium cannot start here)" ;;
    *) outcome="FAILED" ;;
esac
echo "page tests $outcome: $(seconds "$built" "$ended") s in the browser," \
    "$(seconds "$started" "$ended") s with setup and build"
((status == 0 || status == 77)) || exit "$status"
