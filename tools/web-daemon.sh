# Sourced by the scripts that run qes-registryd on a free loopback port:
#   start_web_server <output file> <program> [arguments...]
# starts the program in the background with its standard output in <output file> (standard
# error is dropped unless the caller redirects it), waits until it prints the address it
# serves ("127.0.0.1:<port>", or "listening on <port>" for the bare baseline server), and sets
# web_server_pid and web_server_port. Fails after 10 s without an address.
start_web_server() {
    local output=$1
    shift
    "$@" >"$output" &
    web_server_pid=$!
    web_server_port=""
    for _ in $(seq 100); do
        web_server_port=$(grep -o -E '(127\.0\.0\.1:|listening on )[0-9]+' "$output" |
            grep -o -E '[0-9]+$' || true)
        [[ -n $web_server_port ]] && return 0
        sleep 0.1
    done
    echo "no address from $*" >&2
    return 1
}
