#!/usr/bin/env bash
# Records a simulated radar, replays it onto the network at the recorded pace, records that again, and compares the two.
# Runs in a network namespace of its own; needs root. Usage: bench/replay_twice.sh [SECONDS [BUILD]]
set -euo pipefail
seconds=${1:-60}
build=$(realpath "${2:-build/release}")
radars=$(realpath examples/radars.json)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

unshare -n bash -s "$build/tools/kestova" "$radars" "$seconds" <<'END'
set -euo pipefail
ip link set lo up
kestova=$1
radar=(--radars "$2" --radar A1:2 --id 1 --local-ip 127.0.0.1)
record() { # record FOLDER COMMAND...: records what the command sends
    local folder=$1
    shift
    "$kestova" record "${radar[@]}" --root "$folder" >"$folder.out" 2>"$folder.log" &
    local recorder=$!
    until grep -q '^recording to ' "$folder.log"; do sleep 0.1; done
    "$@" >"$folder.sent" 2>&1
    kill -INT "$recorder"
    wait "$recorder"
}
record first "$kestova" simulate "${radar[@]}" --duration "$3" --seed 1
record second "$kestova" replay first --net --local-ip 127.0.0.1
END
"$build/bench/replay_twice_bench" first second
