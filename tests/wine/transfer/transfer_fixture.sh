#!/bin/bash
# The sources the transfer pages' Wine tests download from: nginx on loopback ports serving files
# by their "urn:sha1:" names (fast, medium and slow ports, so a transfer can be watched half-way),
# and two corvid-node peers sharing every file, one of them (orphan.bin) only they have.
#   transfer_fixture.sh start DIR SOURCE_DIR   writes DIR/fixture.ini for the tests
#   transfer_fixture.sh stop DIR               stops exactly what start started
set -euo pipefail

command=$1
dir=$2

. "$(dirname "$0")/fixture_processes.sh"

if [ "$command" = stop ]; then
    stop_started "$dir"
    exit 0
fi

source_dir=$3
stop_started "$dir"
rm -rf "$dir"
mkdir -p "$dir"/files "$dir"/share "$dir"/run "$dir"/logs
chmod 755 "$dir" "$dir"/files "$dir"/share

free_port() {
    python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'
}
sha1_of() {
    openssl dgst -sha1 -binary "$1" | base32
}

ini="$dir/fixture.ini"
echo "[fixture]" >"$ini"
make_file() { # name size [peers-only]
    head -c "$2" /dev/urandom >"$dir/share/$1"
    chmod 644 "$dir/share/$1"
    local sha1
    sha1=$(sha1_of "$dir/share/$1")
    if [ "${3:-}" != peers-only ]; then
        cp "$dir/share/$1" "$dir/files/urn:sha1:$sha1"
        chmod 644 "$dir/files/urn:sha1:$sha1"
    fi
    echo "$1=$sha1" >>"$ini"
    echo "$1.size=$2" >>"$ini"
}
make_file big.bin $((3 * 1024 * 1024))
make_file slow.bin $((2 * 1024 * 1024))
make_file small.bin $((256 * 1024))
make_file resume.bin $((3 * 1024 * 1024))
# Only the peers have this one: nginx answers 404 for it.
make_file orphan.bin $((512 * 1024)) peers-only
# Big enough that the two fast ports below take seconds, during which the page must stay live.
make_file large.bin $((64 * 1024 * 1024))

fast1=$(free_port)
fast2=$(free_port)
medium=$(free_port)
slow=$(free_port)
open1=$(free_port)
open2=$(free_port)
conf="$dir/run/nginx.conf"
{
    echo "daemon off; worker_processes 1; pid $dir/run/nginx.master; error_log $dir/logs/error.log warn;"
    echo "events { worker_connections 256; }"
    echo "http {"
    echo "  default_type application/octet-stream; sendfile off;"
    echo "  log_format ranges '\$server_port \$status \$body_bytes_sent \"\$http_range\" \$args';"
    echo "  access_log $dir/logs/access.log ranges;"
    for temp in client_body proxy fastcgi uwsgi scgi; do
        echo "  ${temp}_temp_path $dir/run/${temp}_temp;"
    done
    server() { # port rate
        echo "  server { listen 127.0.0.1:$1; root $dir/files; limit_rate $2;"
        echo "    location = /uri-res/N2R { try_files /\$args =404; } }"
    }
    server "$fast1" 160k
    server "$fast2" 160k
    server "$medium" 128k
    server "$slow" 24k
    server "$open1" 8m
    server "$open2" 8m
    echo "}"
} >"$conf"
nginx -c "$conf" -p "$dir/run" >"$dir/logs/nginx.out" 2>&1 &
echo $! >"$dir/run/nginx.pid"

node=$source_dir/build/native/tools/corvid-node
node1=$(free_port)
node2=$(free_port)
for port in "$node1" "$node2"; do
    "$node" --listen "127.0.0.1:$port" --share "$dir/share" >"$dir/logs/node-$port.out" 2>&1 &
    echo $! >"$dir/run/node-$port.pid"
done
{
    echo "fast1=$fast1"
    echo "fast2=$fast2"
    echo "medium=$medium"
    echo "slow=$slow"
    echo "open1=$open1"
    echo "open2=$open2"
    echo "node1=$node1"
    echo "node2=$node2"
} >>"$ini"

# A native peer that downloads from the engine component once the upload test tells where it
# listens (it writes the port into DIR/engine.port): big.bin, then slow.bin, each to its end.
mkdir -p "$dir/peer"
(
    while [ ! -s "$dir/engine.port" ]; do sleep 0.2; done
    engine_port=$(cat "$dir/engine.port")
    for file in big.bin slow.bin; do
        sha1=$(grep "^$file=" "$ini" | cut -d= -f2)
        "$node" get "$sha1" --source "127.0.0.1:$engine_port" --out "$dir/peer" --timeout 300 \
            >>"$dir/logs/peer.out" 2>&1 &
    done
    wait
) </dev/null >/dev/null 2>&1 &
echo $! >"$dir/run/peer.pid"

# Ready when every port answers (the peers hash their share first).
for port in "$fast1" "$fast2" "$medium" "$slow" "$open1" "$open2" "$node1" "$node2"; do
    for _ in $(seq 100); do
        if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then
            continue 2
        fi
        sleep 0.1
    done
    echo "port $port never answered" >&2
    cat "$dir"/logs/*.out >&2 || true
    exit 1
done
