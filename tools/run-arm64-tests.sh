#!/usr/bin/env bash
# Cross-builds the library, its tests and the example programs for arm64 (aarch64-linux-gnu)
# and runs the whole test suite on this machine under qemu-user, which the toolchain file
# cmake/aarch64-linux-gnu.cmake sets as CTest's emulator. Installs the arm64 tool chain first
# (tools/setup.sh --arm64). Ends by making the arm64 Debian packages.
set -euo pipefail
cd "$(dirname "$0")/.."

tools/setup.sh --arm64

cmake --preset arm64
cmake --build --preset arm64 -j2

# A binary built for this machine would run without the emulator and prove nothing about arm64,
# so every program and shared library of the build must be an AArch64 ELF file.
mapfile -t binaries < <(find build/arm64 -path '*/CMakeFiles' -prune -o -type f \
    \( -perm -u+x -o -name '*.so*' \) -print)
if ((${#binaries[@]} == 0)); then
    echo "run-arm64-tests: the build made no program or library" >&2
    exit 1
fi
for binary in "${binaries[@]}"; do
    machine=$(readelf -h "$binary" 2>/dev/null | sed -n 's/^ *Machine: *//p')
    if [[ "$machine" != AArch64 ]]; then
        echo "run-arm64-tests: $binary is not an AArch64 ELF file (${machine:-not ELF})" >&2
        exit 1
    fi
done
echo "run-arm64-tests: ${#binaries[@]} programs and libraries are AArch64;" \
    "$(qemu-aarch64 --version | head -n 1)"

ctest --preset arm64

# The Debian packages of the arm64 build (runtime, development, qes-registryd): all three
# must be made, for arm64.
packages=$(mktemp -d)
trap 'rm -rf "$packages"' EXIT
(cd build/arm64 && cpack -G DEB -B "$packages" >/dev/null)
for deb in "$packages"/*.deb; do
    architecture=$(dpkg-deb -f "$deb" Architecture)
    if [[ "$architecture" != arm64 ]]; then
        echo "run-arm64-tests: $(basename "$deb") is for $architecture, not arm64" >&2
        exit 1
    fi
    echo "run-arm64-tests: made $(basename "$deb")"
done
count=$(find "$packages" -maxdepth 1 -name '*_arm64.deb' | wc -l)
if ((count != 3)); then
    echo "run-arm64-tests: expected 3 arm64 packages, made $count" >&2
    exit 1
fi
