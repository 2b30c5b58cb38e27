#!/usr/bin/env bash
# Completes words at a terminal of bash's own, as users do.
#
#   completion.sh KESTOVA.BASH SCRATCH
set -euo pipefail
script=$1
rm -rf "$2"
mkdir -p "$2/sea trial/inner" "$2/recordings"
cd "$2"
touch "sea trial/my radar.pcap" "sea trial/it's.pcap"

# complete TEXT: what the words of the command line are once a tab has ended TEXT
complete() {
    rm -f words
    printf '%s\n' "source '$script'" "kestova() { printf '<%s>' \"\$@\" >words; }" "$1"$'\t' 'exit' |
        INPUTRC=/dev/null TERM=dumb script -qec 'bash --norc --noprofile -i' /dev/null >terminal 2>&1
    cat words 2>/dev/null || true
}
expect() { # expect TEXT WORDS
    local found
    found=$(complete "$1")
    [ "$found" = "$2" ] || { echo "'$1' completes to $found, not $2"; cat terminal; exit 1; }
}

expect 'kestova inf' '<info>'
expect 'kestova pcap sea' '<pcap><sea trial/>'
expect 'kestova pcap sea\ trial/my' '<pcap><sea trial/my radar.pcap>'
expect 'kestova pcap "sea trial/my' '<pcap><sea trial/my radar.pcap>'
expect "kestova pcap sea\\ trial/it" "<pcap><sea trial/it's.pcap>"
expect 'kestova record --root sea\ trial/' '<record><--root><sea trial/inner/>'
expect 'kestova pcap x --radars "sea trial/my' '<pcap><x><--radars><sea trial/my radar.pcap>'
expect 'kestova replay x --streams gpsDev,dep' '<replay><x><--streams><gpsDev,depthDev>'
expect 'kestova export x --sou' '<export><x><--source>'
