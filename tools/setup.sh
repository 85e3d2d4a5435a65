#!/usr/bin/env bash
# Installs the Debian packages this project needs to build, test, install and benchmark.
# On a machine that has them all it only asks dpkg and returns; apt (and the network) is
# used only when something is missing. Runs as root, or through sudo otherwise.
#
#   tools/setup.sh           what building, testing, installing and benchmarking need
#   tools/setup.sh --fuzz    that, plus clang and its libFuzzer runtime (tools/run-fuzzers.sh)
#   tools/setup.sh --docs    that, plus Doxygen for the API reference (the `docs` target)
#   tools/setup.sh --arm64   that, plus the arm64 cross tool chain, arm64 libraries and
#                            qemu-user (tools/run-arm64-tests.sh)
#   tools/setup.sh --browser that, plus Chromium, its WebDriver and the Python clients the
#                            browser test of the page uses (tools/run-page-tests.sh)
set -euo pipefail

packages=(
    g++ make cmake pkg-config
    libpoco-dev
    googletest libgtest-dev libgmock-dev
    libbenchmark-dev libsqlite3-dev libboost-dev
    dpkg-dev file
    wrk curl
)

# Debian 12 cannot install libpoco-dev:arm64 beside the native libpoco-dev: it depends on
# libmariadb-dev, which is not multi-arch, so apt would remove the native one. The arm64 Poco
# headers, libraries and CMake package are unpacked from their .deb files into this tree
# instead, where cmake/aarch64-linux-gnu.cmake looks for them; the run-time libraries are
# installed as usual.
arm64_poco_root=/opt/aarch64-linux-gnu-poco
arm64_poco_debs=(libpoco-dev:arm64 libpocofoundation80:arm64 libpocojson80:arm64
    libpoconet80:arm64)
arm64=false

for option in "$@"; do
    case "$option" in
        --arm64)
            arm64=true
            packages+=(
                g++-aarch64-linux-gnu qemu-user
                libgtest-dev:arm64 libgmock-dev:arm64
                libpocofoundation80:arm64 libpocojson80:arm64 libpoconet80:arm64
                zlib1g-dev:arm64 libpcre3-dev:arm64
            )
            ;;
        --fuzz) packages+=(clang libclang-rt-14-dev) ;;
        --docs) packages+=(doxygen) ;;
        --browser) packages+=(chromium chromium-driver python3-selenium python3-websocket) ;;
        *)
            echo "usage: tools/setup.sh [--fuzz] [--docs] [--arm64] [--browser]" >&2
            exit 2
            ;;
    esac
done

# A name without an architecture means the native or architecture-independent package; dpkg
# lists the instances of every architecture under the bare name, so each is matched here.
native=$(dpkg --print-architecture)
missing=()
for package in "${packages[@]}"; do
    architecture=$native
    [[ $package == *:* ]] && architecture=${package#*:}
    status=$(dpkg-query -W -f='${Architecture} ${db:Status-Status}\n' "${package%%:*}" 2>/dev/null ||
        true)
    grep -Eqx "($architecture|all) installed" <<<"$status" || missing+=("$package")
done
unpack_poco=false
# A tree unpacked before the web library needed Poco Net is unpacked again.
if $arm64 && [[ ! -e $arm64_poco_root/usr/lib/aarch64-linux-gnu/libPocoNet.so.80 ]]; then
    unpack_poco=true
fi
if ((${#missing[@]} == 0)) && ! $unpack_poco; then
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

if $arm64; then
    "${as_root[@]}" dpkg --add-architecture arm64
fi
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=1200)
"${apt[@]}" update
if ((${#missing[@]} > 0)); then
    echo "setup: installing ${missing[*]}"
    "${apt[@]}" install --no-install-recommends "${missing[@]}"
fi
if $unpack_poco; then
    echo "setup: unpacking ${arm64_poco_debs[*]} into $arm64_poco_root"
    debs=$(mktemp -d)
    (cd "$debs" && "${apt[@]}" -o APT::Sandbox::User=root download "${arm64_poco_debs[@]}")
    # Unpacked beside the tree and then renamed, so an interrupted run leaves no partial tree.
    "${as_root[@]}" rm -rf "$arm64_poco_root.new"
    for deb in "$debs"/*.deb; do
        "${as_root[@]}" dpkg-deb -x "$deb" "$arm64_poco_root.new"
    done
    # The old tree goes first: mv would otherwise put the new one inside it.
    "${as_root[@]}" rm -rf "$arm64_poco_root"
    "${as_root[@]}" mv -T "$arm64_poco_root.new" "$arm64_poco_root"
    rm -rf "$debs"
fi
