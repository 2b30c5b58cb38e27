#!/usr/bin/env bash
# readme_terminal.sh KESTOVA README [--renew]: README's block for the terminal, run as it is pasted, prints what README
# shows below it; digits and digests may differ. --renew writes what it prints into README. Status 77 where no network
# namespace can be made: other traffic on the groups would show.
set -euo pipefail
if [ "${1:-}" != --run ]; then
    for way in "unshare -n" "unshare -r -n"; do
        if $way ip link set lo up 2>/dev/null; then
            exec $way sh -c 'ip link set lo up && exec "$0" --run "$@"' "$0" "$@"
        fi
    done
    exit 77
fi
PATH=$(dirname "$(realpath "$2")"):$PATH
readme=$(realpath "$3")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

# The lines between two fences below the heading: 1 is the block, 3 what it prints.
heading='/^## Record and replay in the terminal/ { on = 1 } on && /^```/ { ++fence'
awk "$heading; next } on && fence == 1" "$readme" >block
awk "$heading; next } on && fence == 3" "$readme" >shown
[ -s block ] && [ -s shown ]
bash ./block </dev/null >printed 2>errors || { cat errors && exit 1; }

if [ "${4:-}" = --renew ]; then
    awk "$heading; print; while (fence == 3 && (getline line < \"printed\") > 0) print line; next }
        !(on && fence == 3)" "$readme" >renewed
    cat renewed >"$readme"
    exit
fi
alike() { sed -E 's/\b[0-9a-f]{16,}\b/DIGEST/g; s/[-+]?[0-9]+/N/g; s/ +/ /g' "$1"; }
diff -u --label "README shows" --label "the block prints" <(alike shown) <(alike printed)
