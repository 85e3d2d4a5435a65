#!/usr/bin/env bash
# Installs the Debian packages this project needs to build, test, install and benchmark.
# On a machine that has them all it only asks dpkg and returns; apt (and the network) is
# used only when something is missing. Runs as root, or through sudo otherwise.
set -euo pipefail

packages=(
    g++ make cmake pkg-config
    libpoco-dev
    googletest libgtest-dev libgmock-dev
    libbenchmark-dev
)

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    [[ "$status" == installed ]] || missing+=("$package")
done
if ((${#missing[@]} == 0)); then
    exit 0
fi

if ((EUID == 0)); then
    as_root=()
elif command -v sudo >/dev/null; then
    as_root=(sudo)
else
    echo "setup: root or sudo is needed to install: ${missing[*]}" >&2
    exit 1
fi

echo "setup: installing ${missing[*]}"
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y)
"${apt[@]}" update
"${apt[@]}" install --no-install-recommends "${missing[@]}"
