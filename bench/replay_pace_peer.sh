#!/usr/bin/env bash
# The yardstick of replay_pace_bench: tcpreplay plays 20 s of datagrams, one every 0.5 ms, from a capture.
# Runs in a network namespace of its own, so nothing reaches another machine. Needs root, tcpreplay and text2pcap
# (packages tcpreplay and wireshark-common). Usage: bench/replay_pace_peer.sh [RUNS]
set -euo pipefail
runs=${1:-5}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# 40,000 datagrams of 542 bytes to 239.17.0.1:6001; text2pcap takes the time stamp before each hex dump.
awk 'BEGIN {
  for (i = 0; i < 40000; ++i) {
    t = i * 500
    printf "%02d:%02d:%02d.%06d\n", 0, 0, int(t / 1000000), t % 1000000
    for (o = 0; o < 542; o += 16) {
      printf "%06x", o
      n = (542 - o < 16) ? 542 - o : 16
      for (k = 0; k < n; ++k) printf " 73"
      print ""
    }
  }
}' > "$work/dump.txt"
text2pcap -q -F pcap -t '%H:%M:%S.%f' -4 127.0.0.1,239.17.0.1 -u 6000,6001 "$work/dump.txt" "$work/peer.pcap"

for ((run = 0; run < runs; ++run)); do
  # shellcheck disable=SC2016
  unshare -n sh -c 'ip link set lo up
    exec /usr/bin/env time -f "%e s wall, %U s user, %S s system" tcpreplay -q -i lo "$1" 2>&1' sh "$work/peer.pcap" |
    grep -E 'Actual|wall' || true
done
echo 'recorded span: 19.9995 s'
