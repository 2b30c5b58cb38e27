#!/usr/bin/env bash
# Compares what a shared library exports with the list that applications may rely on.
#
#   exports.sh LIBRARY LIST           status 1 and a diff where they differ
#   exports.sh --renew LIBRARY LIST   writes the list anew (cmake --build BUILD --target renew-exports does all)
#
# A line is the kind of symbol as nm prints it and the demangled name. Left out: weak functions (W, u), which every
# caller compiles for itself from the headers, and type records of the standard library, of functions and of lambdas,
# which come and go with compiler and optimisation. A line that is gone, or changed, breaks applications: raise the library's SOVERSION. A line
# that is new and not meant for applications: something lacks its place among the hidden symbols.
set -euo pipefail
renew=0
if [ "${1:-}" = --renew ]; then
    renew=1
    shift
fi
library=$1
list=$2

exported() {
    nm -D --defined-only --demangle "$library" | cut -c18- | LC_ALL=C sort -u |
        grep -v -e '^[Wu] ' -e '^V .* for \(std\|__gnu_cxx\)::' -e '^V .*('
}

symbols=$(exported)
if [ "$renew" = 1 ]; then
    printf '%s\n' "$symbols" >"$list"
    exit 0
fi
if ! diff -u --label "listed in ${list##*/}" --label "exported by ${library##*/}" "$list" - <<<"$symbols"; then
    echo "The exported symbols differ. Meant so? cmake --build BUILD --target renew-exports, and say it in CHANGELOG.md." >&2
    exit 1
fi
echo "$(wc -l <"$list") symbols, as listed"
