#!/usr/bin/env bash
# registryd-sigterm.sh [emulator ...] <program>: SIGTERM while a client holds a keep-alive
# connection ends the program with status 0 after it has logged the request and its stop. A
# cross-built program runs under the emulator given before it, which passes the signal on.
set -euo pipefail
source "$(dirname "$0")/../../tools/web-daemon.sh"
out=$(mktemp)
log=$(mktemp)
trap 'rm -f "$out" "$log"' EXIT
start_web_server "$out" "$@" --port 0 2>"$log"
exec 3<>"/dev/tcp/127.0.0.1/$web_server_port"
printf 'GET /api HTTP/1.1\r\nHost: test\r\n\r\n' >&3
read -r -t 10 status <&3
[[ $status == "HTTP/1.1 200 OK"* ]]
kill -TERM "$web_server_pid"
wait "$web_server_pid"
grep -q 'GET /api 200' "$log"
grep -q 'stopping on' "$log"
