#!/usr/bin/env bash
# Installs the wheel into new environments, one with NumPy and one without, and reads a recording there.
#
#   wheel.sh PYTHON CMAKE BUILD SOURCE
set -euo pipefail
python=$1 cmake=$2 build=$3 tests=$4/tests/python
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset PYTHONPATH KESTOVA_LIBRARY LD_LIBRARY_PATH

"$cmake" --build "$build" --target wheel >"$scratch/log" 2>&1 || {
    cat "$scratch/log"
    exit 1
}
wheel=$(ls "$build"/wheel/kestova-*-py3-none-linux_*.whl)
cat >"$scratch/five.py" <<'EOF'
import os, sys
sys.path.insert(0, sys.argv[1])
import recorded, kestova
assert kestova.__file__.startswith(sys.prefix), kestova.__file__
recorded.record("recordings")
rec = kestova.open("recordings")
print(len(rec), kestova.verify("recordings")["total"]["sound"])
if sys.argv[2] == "arrays":
    for sweep in rec.sweeps(start="00:00:01", step=2):
        print(sweep.data.shape, sweep.cartesian(100).max() > 0)
else:
    try:
        rec.sweeps()[0].data
    except ImportError as error:
        print(error)
maps = open("/proc/self/maps").read()
for outside in ("cairo", "pcap", "libdbus"):
    assert outside not in maps, outside
inside = {line.split()[-1] for line in maps.splitlines() if "Kestova" in line or "kestova" in line}
assert inside and all(path.startswith(sys.prefix) for path in inside), inside
EOF
for kind in arrays plain; do
    mkdir "$scratch/$kind"
    options=(--without-pip)
    [ "$kind" = plain ] || options+=(--system-site-packages)
    "$python" -m venv "${options[@]}" "$scratch/$kind/venv"
    "$python" -m pip --python "$scratch/$kind/venv/bin/python" install --quiet --no-index "$wheel"
    (cd "$scratch/$kind" && PYTHONDONTWRITEBYTECODE=1 venv/bin/python "$scratch/five.py" "$tests" "$kind") >"$scratch/$kind/out"
done
diff - "$scratch/arrays/out" <<'EOF'
636 1
(64, 100) True
(64, 100) True
(64, 100) True
(64, 100) True
EOF
diff - "$scratch/plain/out" <<'EOF'
636 1
arrays need NumPy: apt install python3-numpy, or pip install numpy
EOF
echo "installed and read: $(basename "$wheel"), $(stat -c %s "$wheel") bytes"
