#!/usr/bin/env bash
# recorder_and_replayer.sh KESTOVA RECORDER REPLAYER: the recorder example records a simulated radar on the loopback
# interface, the replayer example plays the file; both must count the same datagrams, and some of every stream.
set -euo pipefail
kestova=$1
recorder=$2
replayer=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Groups and ports of this process's own: other tests run beside this one.
net="239.18.$(($$ / 256 % 256)).$(($$ % 256))"
port=$((20000 + $$ % 1000 * 10))
streams=(imageStream imageState arpaStream arpaState aisDev gpsDev depthDev headingDev)
{
    printf '{ "radars": [ { "serial": "A1:2", "id": 1, "streams": {'
    for i in "${!streams[@]}"; do
        printf '%s "%s": "%s:%d"' "$([ "$i" = 0 ] || echo ,)" "${streams[i]}" "$net" $((port + i))
    done
    printf ' } } ] }\n'
} >"$folder/radars.json"

"$recorder" "$folder/radars.json" A1:2 1 "$folder/recordings" 4 127.0.0.1 \
    >"$folder/recorded" 2>"$folder/recorder.log" &
recording=$!
trap 'kill "$recording" 2>/dev/null || true; rm -rf "$folder"' EXIT
for _ in $(seq 100); do
    grep -q '^recording to ' "$folder/recorder.log" && break
    sleep 0.05
done
"$kestova" simulate --radars "$folder/radars.json" --radar A1:2 --id 1 --local-ip 127.0.0.1 --duration 2 --seed 7
wait "$recording"
"$replayer" "$folder/recordings" 10 >"$folder/replayed"
echo "--- recorded"
cat "$folder/recorded"
echo "--- replayed"
cat "$folder/replayed"

# Each radar group's "N datagrams M bytes", sorted, against each replayed stream's; service groups are everybody's.
counts() { grep -o '[0-9]* datagrams [0-9]* bytes' | sort; }
diff -u --label recorded --label replayed <(grep "^$net:" "$folder/recorded" | counts) \
    <(grep '^stream ' "$folder/replayed" | grep -v '^stream 25[45] ' | counts)
[ "$(grep "^$net:" "$folder/recorded" | grep -vc ' 0 datagrams')" = "${#streams[@]}" ]
