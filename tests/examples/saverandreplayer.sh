#!/usr/bin/env bash
# saverandreplayer.sh PROGRAM: runs it in an empty folder and compares what it prints.
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
diff -u --label expected --label printed - <("$1") <<'END'
state 0
state 1
state 0
state 2
258: anchor up
258: course 270
258: speed 12
state 0
END
