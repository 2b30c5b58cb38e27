#!/usr/bin/env bash
# Plants wrong includes in a copy of the sources, one at a time: scripts/arrows must refuse each with one line.
#
#   planted.sh SOURCES
set -euo pipefail
sources=$1
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
(cd "$sources" && cp -r common UdpSocket KestovaUtils KestovaStorage KestovaRecordings sessions bindings server tools "$copy")

refused() { # refused FILE INCLUDED EXPECTED: FILE with this include is refused in a line that holds EXPECTED
    local out
    cp "$copy/$1" "$copy/kept"
    printf '#include "%s"\n' "$2" >>"$copy/$1"
    if out=$("$sources/scripts/arrows" "$copy" 2>&1); then
        echo "$1 may include $2, it seems" >&2
        exit 1
    fi
    mv "$copy/kept" "$copy/$1"
    if [ "$(wc -l <<<"$out")" != 1 ] || [[ $out != *"$3"* ]]; then
        printf 'expected one line with "%s", got:\n%s\n' "$3" "$out" >&2
        exit 1
    fi
}

rooms=KestovaStorage/internal
refused $rooms/buffers/byteregion.h $rooms/disk/paths.h 'buffers -> disk'
refused $rooms/codec/codetree.h KestovaStorage/datastorageio.h 'no public handle'
refused KestovaStorage/datastorageio.h $rooms/disk/paths.h 'a public header includes no room'
refused UdpSocket/udpsocket.h KestovaUtils/timeparser.h 'UdpSocket -> KestovaUtils'
refused sessions/radarchoice.h tools/shell/keys.h 'sessions -> tools'
refused sessions/radarchoice.h server/target.h 'sessions -> server'
refused tools/shell/keys.cpp $rooms/disk/paths.h 'closed to other layers'
refused sessions/radarchoice.h KestovaStorage/datastorageioprivate.h 'closed to other layers'
refused tools/shell/keys.cpp tools/commands/commands.h 'tools/shell -> tools/commands'
mkdir "$copy/sessions/unlisted"
printf '#include "sessions/radarchoice.h"\n' >"$copy/sessions/unlisted/new.h"
refused sessions/unlisted/new.h common/status.h 'in no part'
rm -r "$copy/sessions/unlisted"
touch "$copy/$rooms/loose.h"
if "$sources/scripts/arrows" "$copy" >/dev/null; then
    echo "a file may lie in no room, it seems" >&2
    exit 1
fi
