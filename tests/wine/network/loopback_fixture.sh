#!/usr/bin/env bash
# The loopback network the network views' real-component tests join, and a native peer that
# searches it on request: a Wine test cannot start a Linux program, so it writes
# DIR/requests/NAME.req (one line: the keywords) and waits for DIR/requests/NAME.out, the hits a
# corvid-node search through the network's ultrapeer printed.
#   loopback_fixture.sh start DIR ROOT   (ROOT: the source tree, for scripts/loopback-network)
#   loopback_fixture.sh stop DIR         stops exactly what start started
set -euo pipefail

command=$1
dir=$2

stop() {
    if [ -f "$dir/responder.pid" ]; then
        pid=$(cat "$dir/responder.pid")
        kill "$pid" 2>/dev/null || true
        for _ in $(seq 50); do
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.1
        done
        rm -f "$dir/responder.pid"
    fi
    if [ -f "$dir/root" ] && [ -d "$dir/network" ]; then
        "$(cat "$dir/root")/scripts/loopback-network" stop "$dir/network" || true
    fi
}

if [ "$command" = stop ]; then
    stop
    exit 0
fi

root=$3
stop
rm -rf "$dir"
mkdir -p "$dir/requests"
echo "$root" >"$dir/root"
"$root/scripts/loopback-network" start "$dir/network" --ultrapeers 2 --leaves 2 --big-mb 1
# shellcheck disable=SC1091
. "$dir/network/network.env"
node=${CORVID_NODE:-$root/build/native/tools/corvid-node}
ultrapeer=${ULTRAPEERS%%,*}

# One search at a time, each bounded by its time-out; the loop ends when stop kills it.
(
    while true; do
        for request in "$dir"/requests/*.req; do
            [ -f "$request" ] || continue
            name=${request%.req}
            read -r -a keywords < <(tr -d '\r' <"$request") || true
            rm -f "$request"
            if [ "${#keywords[@]}" -gt 0 ]; then
                timeout 20 "$node" search --connect "$ultrapeer" --timeout 6 "${keywords[@]}" \
                    >"$name.part" 2>/dev/null || true
            fi
            mv "$name.part" "$name.out" 2>/dev/null || : >"$name.out"
        done
        sleep 0.2
    done
) </dev/null >/dev/null 2>&1 &
echo $! >"$dir/responder.pid"
