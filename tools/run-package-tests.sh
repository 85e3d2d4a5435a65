#!/usr/bin/env bash
# Makes the Debian packages from the release build, installs them into this machine with dpkg
# and builds the client project in tests/downstream against the system copy, once through the
# CMake package and once through pkg-config, with no search path given to either, and runs
# both clients. The packages are purged again on the way out, whether the checks passed or not.
# Needs root, and a machine without these packages installed.
set -euo pipefail
cd "$(dirname "$0")/.."

runtime_package=libqesservicedatalib08304
development_package=libqesservicedatalib-dev
daemon_package=qes-registryd
architecture=$(dpkg --print-architecture)
multiarch_libdir=/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)

tools/setup.sh

for package in "$runtime_package" "$development_package" "$daemon_package"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
    if [[ -n "$status" && "$status" != not-installed ]]; then
        echo "run-package-tests: $package is already on this machine ($status)" >&2
        exit 1
    fi
done

# Packages hold a build for /usr, where GNUInstallDirs puts the library into Debian's multiarch
# directory. tools/run-tests.sh installs the same build elsewhere with --prefix.
cmake --preset release -DCMAKE_INSTALL_PREFIX=/usr
cmake --build --preset release -j2

scratch=$(mktemp -d)
cleanup() {
    dpkg --purge "$daemon_package" "$development_package" "$runtime_package"
    rm -rf "$scratch"
}
trap cleanup EXIT
trap 'exit 1' HUP INT TERM

(cd build/release && cpack -G DEB -B "$scratch/debs")
debs=(
    "$scratch/debs/${runtime_package}_"*"_$architecture.deb"
    "$scratch/debs/${development_package}_"*"_$architecture.deb"
    "$scratch/debs/${daemon_package}_"*"_$architecture.deb"
)
for deb in "${debs[@]}"; do
    dpkg-deb -I "$deb" control
done

echo "== installing ${debs[*]##*/}"
if ! dpkg -i "${debs[@]}"; then
    apt-get -o DPkg::Lock::Timeout=1200 -y -f install
fi

# The client must find the packaged copy and nothing else; each check names the file it needs
# and the package that has to own it.
owned_by() {
    local file=$1 package=$2
    if ! dpkg -S "$file" 2>/dev/null | grep -q "^$package:"; then
        echo "run-package-tests: $file does not come from $package" >&2
        exit 1
    fi
}
# The file the loader maps for the client, with links resolved, as dpkg records it.
loaded_library() {
    realpath -e "$(ldd "$1" | awk '$1 == "libQesServiceDataLib.so.08304" { print $3 }')"
}
owned_by "$multiarch_libdir/libQesServiceDataLib.so.08304" "$runtime_package"
owned_by "$multiarch_libdir/libQesServiceDataWeb.so.08304" "$runtime_package"
owned_by /usr/share/doc/QesServiceDataLib/THREADS.md "$development_package"
owned_by /usr/bin/qes-registryd "$daemon_package"
owned_by /usr/share/QesServiceDataLib/media/elements.json "$daemon_package"

echo "== client through the CMake package in /usr"
unset CMAKE_PREFIX_PATH PKG_CONFIG_PATH
cmake -S tests/downstream -B "$scratch/client" -DCMAKE_BUILD_TYPE=Release
cmake --build "$scratch/client" -j2
package_dir=$(sed -n 's/^QesServiceDataLib_DIR:PATH=//p' "$scratch/client/CMakeCache.txt")
owned_by "$package_dir/QesServiceDataLibConfig.cmake" "$development_package"
owned_by "$(loaded_library "$scratch/client/app")" "$runtime_package"
"$scratch/client/app"
"$scratch/client/web-app"

echo "== client through pkg-config"
pc_file=$(pkg-config --variable=pcfiledir QesServiceDataLib)/QesServiceDataLib.pc
owned_by "$pc_file" "$development_package"
owned_by "$(pkg-config --variable=pcfiledir QesServiceDataWeb)/QesServiceDataWeb.pc" \
    "$development_package"
g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror tests/downstream/main.cpp \
    $(pkg-config --cflags --libs QesServiceDataLib) -o "$scratch/app-pkg-config"
owned_by "$(loaded_library "$scratch/app-pkg-config")" "$runtime_package"
"$scratch/app-pkg-config"
g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror tests/downstream/web_main.cpp \
    $(pkg-config --cflags --libs QesServiceDataWeb) -o "$scratch/web-app-pkg-config"
"$scratch/web-app-pkg-config"

echo "== qes-registryd from its package"
/usr/bin/qes-registryd --help | grep -q -- '--tokens FILE'
source tools/web-daemon.sh
start_web_server "$scratch/daemon.out" /usr/bin/qes-registryd --port 0 2>/dev/null
curl -sf "http://127.0.0.1:$web_server_port/api/Media" | grep -q '"name":"Albums"'
kill -TERM "$web_server_pid"
wait "$web_server_pid"
