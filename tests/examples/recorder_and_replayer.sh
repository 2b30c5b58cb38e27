#!/usr/bin/env bash
# recorder_and_replayer.sh KESTOVA RECORDER REPLAYER: the recorder example records a simulated radar on the loopback
# interface; the replayer example plays the file onto the same groups and then keeps the picture turning; a second
# recorder must hear every datagram again, and more of the image stream alone.
set -euo pipefail
kestova=$1
recorder=$2
replayer=$3
folder=$(mktemp -d)
recording=""
cleanUp() {
    local code=$?
    [ -z "$recording" ] || kill "$recording" 2>/dev/null || true
    [ "$code" = 0 ] || tail -n 30 "$folder"/*.counts "$folder"/*.log || true
    rm -rf "$folder"
}
trap cleanUp EXIT
cd "$folder" # the replayer makes its RadarDataStorage here

# Groups and ports of this process's own: other tests run beside this one.
net="239.18.$(($$ / 256 % 256)).$(($$ % 256))"
port=$((20000 + $$ % 1000 * 10))
cat >radars.json <<END
{ "radars": [ { "serial": "A1:2", "id": 1, "streams": {
  "imageStream": "$net:$port", "imageState": "$net:$((port + 1))", "gpsDev": "$net:$((port + 2))" } } ] }
END

record() { # record NAME SECONDS: in the background, from here on
    "$recorder" radars.json A1:2 1 "$1" "$2" 127.0.0.1 >"$1.counts" 2>"$1.log" &
    recording=$!
    for _ in $(seq 100); do
        grep -q '^recording to ' "$1.log" && break
        sleep 0.05
    done
}

record first 4
"$kestova" simulate --radars radars.json --radar A1:2 --id 1 --local-ip 127.0.0.1 --rate 40 --duration 2 --seed 7
wait "$recording"
record second 7
"$replayer" first 127.0.0.1 3
wait "$recording"
recording=""

# Each group of the radar as "PORT DATAGRAMS"; service groups are everybody's.
counts() { sed -n "s/^$net:\([0-9]*\) \([0-9]*\) datagrams.*/\1 \2/p" "$1.counts" | sort; }
[ "$(counts first | grep -vc ' 0$')" = 3 ]
diff -u --label recorded --label "heard again" <(counts first | grep -v "^$port ") <(counts second | grep -v "^$port ")
spokes() { counts "$1" | sed -n "s/^$port //p"; }
[ "$(spokes second)" -gt "$(spokes first)" ]
