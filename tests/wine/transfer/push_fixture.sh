#!/bin/bash
# A firewalled host for the download page to fetch from: a corvid-node ultrapeer on loopback and a
# corvid-node leaf behind it that says it is firewalled and shares one file. Only a Push reaches
# that leaf, so the file can come only through the engine's relay.
#   push_fixture.sh start DIR SOURCE_DIR   writes DIR/push.ini for the test
#   push_fixture.sh stop DIR               stops exactly what start started
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
mkdir -p "$dir"/share "$dir"/run "$dir"/logs
node=$source_dir/build/native/tools/corvid-node

name="hidden harbour.bin"
head -c $((700 * 1024 + 13)) /dev/urandom >"$dir/share/$name"
sha1=$(openssl dgst -sha1 -binary "$dir/share/$name" | base32)

"$node" --listen 127.0.0.1:0 --ultrapeer --port-file "$dir/run/up.port" \
    --status-file "$dir/run/up.status" >"$dir/logs/up.out" 2>&1 &
echo $! >"$dir/run/up.pid"
for _ in $(seq 100); do
    [ -s "$dir/run/up.port" ] && break
    sleep 0.1
done
[ -s "$dir/run/up.port" ] || { cat "$dir/logs/up.out" >&2; exit 1; }
up=127.0.0.1:$(cat "$dir/run/up.port")

"$node" --listen 127.0.0.1:0 --leaf --firewalled --share "$dir/share" --connect "$up" \
    >"$dir/logs/leaf.out" 2>&1 &
echo $! >"$dir/run/leaf.pid"

# Ready when the ultrapeer holds the leaf's routing table: only then do searches reach the leaf.
for _ in $(seq 200); do
    if grep -qx 'leaf-tables 1' "$dir/run/up.status" 2>/dev/null; then
        {
            echo "[push]"
            echo "ultrapeer=$up"
            echo "name=$name"
            echo "sha1=$sha1"
            echo "size=$(stat -c %s "$dir/share/$name")"
        } >"$dir/push.ini"
        exit 0
    fi
    sleep 0.1
done
echo "the firewalled leaf never reached the ultrapeer" >&2
cat "$dir"/logs/*.out >&2 || true
exit 1
