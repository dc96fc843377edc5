# Sourced by the transfer fixtures: ends the processes a fixture started, by the pids it wrote to
# DIR/run/*.pid, each process's own children first (a peer's download jobs), waiting up to five
# seconds for each to go.
stop_started() {
    local dir=$1 pidfile pid
    for pidfile in "$dir"/run/*.pid; do
        [ -f "$pidfile" ] || continue
        pid=$(cat "$pidfile")
        pkill -P "$pid" 2>/dev/null || true
        kill "$pid" 2>/dev/null || true
        for _ in $(seq 50); do
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.1
        done
        rm -f "$pidfile"
    done
}
