#!/usr/bin/env bash
# Runs every test: the unit tests of the release build, then a client project built against
# an installed copy of the library, once through its CMake package and once through pkg-config
# (each with a client of the web interface too), the installed registry tool on its installed
# data, and the installed qes-registryd answering on a free port.
set -euo pipefail
cd "$(dirname "$0")/.."

tools/setup.sh

cmake --preset release
cmake --build --preset release -j2
ctest --preset release --output-on-failure

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix="$scratch/prefix"
cmake --install build/release --prefix "$prefix"

echo "== client through the CMake package"
cmake -S tests/downstream -B "$scratch/client" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_BUILD_TYPE=Release
cmake --build "$scratch/client" -j2
"$scratch/client/app"
"$scratch/client/web-app"

echo "== client through pkg-config"
pc_file=$(find "$prefix" -name QesServiceDataLib.pc)
export PKG_CONFIG_PATH="$(dirname "$pc_file")"
libdir=$(pkg-config --variable=libdir QesServiceDataLib)
# The prefix is not on the loader's path, so the client records it as its run path.
g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror tests/downstream/main.cpp \
    $(pkg-config --cflags --libs QesServiceDataLib) -Wl,-rpath,"$libdir" \
    -o "$scratch/app-pkg-config"
g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror tests/downstream/web_main.cpp \
    $(pkg-config --cflags --libs QesServiceDataWeb) -Wl,-rpath,"$libdir" \
    -o "$scratch/web-app-pkg-config"
"$scratch/web-app-pkg-config"
"$scratch/app-pkg-config"
g++ -std=c++17 -Wall -Wextra -Wpedantic -Werror tests/downstream/web_main.cpp \
    $(pkg-config --cflags --libs QesServiceDataWeb) -Wl,-rpath,"$libdir" \
    -o "$scratch/web-app-pkg-config"
"$scratch/web-app-pkg-config"

echo "== installed registry tool on its installed data"
(cd "$scratch" && "$prefix/bin/qes-registry" 'list Albums 0 1' | grep -q '"size":40')

echo "== installed qes-registryd on its installed data"
source tools/web-daemon.sh
start_web_server "$scratch/daemon.out" "$prefix/bin/qes-registryd" --port 0 \
    2>"$scratch/daemon.log"
curl -sf "http://127.0.0.1:$web_server_port/api/Media/Albums?count=1" | grep -q '"total":40'
kill -TERM "$web_server_pid"
wait "$web_server_pid"
grep -q 'GET /api/Media/Albums?count 200' "$scratch/daemon.log"
