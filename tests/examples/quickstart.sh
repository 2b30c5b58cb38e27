#!/usr/bin/env bash
# quickstart.sh PROGRAM: runs it in an empty folder and compares what it prints.
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
diff -u --label expected --label printed <(printf '1715934600000 ms: hello\n1715934600250 ms: radar\n') <("$1")
files=(recordings/Data_000000_*/0000_*_quickstart.data)
[ "${#files[@]}" = 1 ] && [ -f "${files[0]}" ]
