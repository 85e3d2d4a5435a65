#!/usr/bin/env bash
# Builds the example program in the release configuration and runs it.
set -euo pipefail
cd "$(dirname "$0")/.."

tools/setup.sh
cmake --preset release --log-level=WARNING
cmake --build --preset release -j2 --target qes_example
exec build/release/examples/qes_example "$@"
