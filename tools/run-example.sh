#!/usr/bin/env bash
# Builds qes-registryd in the release configuration and serves the shipped media data with
# its page: open the printed URL in a browser. Ctrl-C stops the server cleanly (open pages
# see their live feed go down). Options go to the server, for example --port 8081 or
# --bind 0.0.0.0 to be reached from other machines.
#
#   tools/run-example.sh --session   instead runs the scripted qes-registry session of
#                                    examples/session.txt on the same data (queries, a
#                                    wildcard search, an update with its change event, a
#                                    refused update and a reference resolution)
set -euo pipefail
cd "$(dirname "$0")/.."

tools/setup.sh
cmake --preset release --log-level=WARNING
if [[ ${1:-} == --session ]]; then
    shift
    cmake --build --preset release -j2 --target qes-registry
    exec build/release/examples/qes-registry --echo "$@" < examples/session.txt
fi
cmake --build --preset release -j2 --target qes-registryd
echo "Open the URL below in a browser; Ctrl-C stops the server."
exec build/release/examples/qes-registryd --data examples/data --page page "$@"
