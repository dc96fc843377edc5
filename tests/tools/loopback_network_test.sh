#!/usr/bin/env bash
# A tiny loopback network (one ultrapeer, four leaves, a 5 MiB big file) against real corvid-node
# processes. "search": a search finds the big file at all four leaves, and stop ends exactly the
# nodes start began. "get": corvid-node get fetches the big file from the four leaves and by a
# magnet link with sources found on the network, and refuses a broken link.
#   loopback_network_test.sh search|get ROOT CORVID-NODE
set -euo pipefail

mode=$1
root=$2
node=$3
work=$(mktemp -d "${TMPDIR:-/tmp}/corvid-loopnet.XXXXXX")
net="$work/net"
bystander=""

cleanup() {
    "$root/scripts/loopback-network" stop "$net" >/dev/null 2>&1 || true
    [ -z "$bystander" ] || kill "$bystander" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

fail() {
    echo "FAIL: $*" >&2
    for log in "$net"/*.log; do
        [ -e "$log" ] && { echo "== $log"; tail -n 20 "$log"; } >&2
    done
    exit 1
}

# Gone: no such process, or only its exit status left for a parent to collect.
gone() {
    local state
    state=$(awk '{ sub(/.*\) /, ""); print $1 }' "/proc/$1/stat" 2>/dev/null) || return 0
    [ "$state" = Z ]
}

sha1_base32() {
    openssl dgst -sha1 -binary "$1" | base32
}

"$root/scripts/loopback-network" start "$net" --ultrapeers 1 --leaves 4 --big-mb 5 \
    --node "$node" || fail "the network did not start"
# shellcheck source=/dev/null
. "$net/network.env"
[ "$BIG_FILE_SIZE" = 5242880 ] || fail "big file of $BIG_FILE_SIZE bytes"
[ "$(sha1_base32 "$BIG_FILE_PATH")" = "$BIG_FILE_SHA1" ] || fail "BIG_FILE_SHA1 is not its hash"
# Every node on a loopback address of its own, so that four leaves are four hosts to a search.
hosts=()
for address in ${ULTRAPEERS//,/ } ${LEAVES//,/ }; do
    [[ $address == 127.*:* ]] || fail "a node listens on $address"
    hosts+=("${address%:*}")
done
[ "$(printf '%s\n' "${hosts[@]}" | sort -u | wc -l)" = 5 ] || fail "nodes share hosts: ${hosts[*]}"

case $mode in
search)
    # A process of our own beside the network, which stop must leave alone.
    sleep 300 &
    bystander=$!
    hits=$("$node" search --connect "${ULTRAPEERS%%,*}" --timeout 20 --enough 4 corvid demo big) ||
        fail "search failed"
    sources=$(awk -F'\t' -v sha1="$BIG_FILE_SHA1" -v name="$BIG_FILE_NAME" \
        '$1 == "hit" && $7 == sha1 && $6 == name && $5 == 5242880 { print $2 ":" $3 }' \
        <<<"$hits" | sort -u)
    [ "$(wc -l <<<"$sources")" = 4 ] || fail "big file found at: $sources"
    [ "$(cut -d: -f1 <<<"$sources" | sort -u | wc -l)" = 4 ] || fail "four sources, fewer hosts: $sources"
    for source in $sources; do
        [[ ",$LEAVES," == *",$source,"* ]] || fail "$source is not one of the leaves"
    done

    "$root/scripts/loopback-network" stop "$net" || fail "stop failed"
    for pid in $PIDS; do
        gone "$pid" || fail "node $pid still runs after stop"
    done
    gone "$bystander" && fail "stop ended a process it did not start"
    "$root/scripts/loopback-network" stop "$net" || fail "a second stop failed"
    ;;
get)
    sources=()
    for leaf in ${LEAVES//,/ }; do
        sources+=(--source "$leaf")
    done
    out="$work/out"
    "$node" get "$BIG_FILE_SHA1" "${sources[@]}" --out "$out" --timeout 120 ||
        fail "get by SHA1 failed"
    [ "$(sha1_base32 "$out/$BIG_FILE_SHA1")" = "$BIG_FILE_SHA1" ] || fail "wrong bytes by SHA1"

    # The name in the link cannot lead out of the output folder.
    "$node" get "magnet:?xt=urn:sha1:$BIG_FILE_SHA1&dn=..%2F..%2Fescaped.bin" \
        --search-network "${ULTRAPEERS%%,*}" --out "$out" --timeout 120 ||
        fail "get by magnet link with sources from the network failed"
    [ ! -e "$work/escaped.bin" ] && [ ! -e "$(dirname "$work")/escaped.bin" ] ||
        fail "a file left the output folder"
    cmp -s "$out/.._.._escaped.bin" "$BIG_FILE_PATH" || fail "wrong bytes by magnet link"
    [ "$(find "$out" -type f | wc -l)" = 2 ] || fail "leftovers in the output folder"

    status=0
    error=$("$node" get "magnet:?xt=urn:sha1:TOOSHORT&dn=x" --out "$out" 2>&1) || status=$?
    [ $status = 2 ] && [[ $error == *"SHA1 is 32 base32 characters"* ]] ||
        fail "a broken link gave status $status: $error"
    ;;
*)
    fail "unknown mode $mode"
    ;;
esac
echo "PASS $mode"
