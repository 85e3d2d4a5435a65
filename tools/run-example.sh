#!/usr/bin/env bash
# Builds the registry tool in the release configuration and runs the scripted session of
# examples/session.txt on the shipped media data: queries, a wildcard search, an update with
# its change event, a refused update and a reference resolution. Arguments go to the tool
# (for example --pretty).
set -euo pipefail
cd "$(dirname "$0")/.."

tools/setup.sh
cmake --preset release --log-level=WARNING
cmake --build --preset release -j2 --target qes-registry
exec build/release/examples/qes-registry --echo "$@" < examples/session.txt
