"""Makes the wheel of the package, without a network: with all Kestova libraries inside, and what these need beside the
C and C++ libraries of the system.

    python3 makewheel.py LIBRARIES VERSION OUT

LIBRARIES is the folder of the installed libraries. The wheel goes to OUT. Debian's setuptools and wheel are needed.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Dict, List, Set

# On every system of this kind that Python runs on.
_SYSTEM = re.compile(r"(libc|libm|libdl|libpthread|librt|libstdc\+\+|libgcc_s|ld-linux[-a-z0-9]*)\.so\.[0-9]+")


def needed(library: Path) -> List[str]:
    """Returns the names of the libraries that a library needs by itself."""
    text = subprocess.run(["objdump", "-p", str(library)], check=True, capture_output=True, text=True).stdout
    return re.findall(r"NEEDED +(\S+)", text)


def found(library: Path) -> Dict[str, str]:
    """Returns where the loader finds what a library needs, by name."""
    text = subprocess.run(["ldd", str(library)], check=True, capture_output=True, text=True).stdout
    return dict(re.findall(r"(\S+) => (/\S+)", text))


def collect(libraries: Path, to: Path) -> None:
    """Copies libkestova_c and everything that it needs, but for what every system has."""
    waiting: List[Path] = [libraries / "libkestova_c.so.0"]
    known: Set[str] = set()
    while waiting:
        library = waiting.pop()
        if library.name in known:
            continue
        known.add(library.name)
        target = to / library.name
        shutil.copyfile(library.resolve(), target)
        subprocess.run(["strip", "--strip-unneeded", str(target)], check=True)
        places = found(library)
        for name in needed(library):
            if _SYSTEM.fullmatch(name):
                continue
            if name not in places:
                raise SystemExit(f"makewheel: {library} needs {name}, which is not there")
            waiting.append(Path(places[name]))


def main(libraries: Path, version: str, out: Path) -> None:
    here = Path(__file__).resolve().parent
    out.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as scratch:
        tree = Path(scratch)
        shutil.copytree(here / "kestova", tree / "kestova", ignore=shutil.ignore_patterns("__pycache__"))
        shutil.copyfile(here / "setup.py", tree / "setup.py")
        (tree / "kestova" / "lib").mkdir()
        collect(libraries, tree / "kestova" / "lib")
        subprocess.run(
            [sys.executable, "setup.py", "--quiet", "bdist_wheel", "--dist-dir", str(out.resolve())],
            check=True,
            cwd=tree,
            env={**os.environ, "KESTOVA_VERSION": version},
        )


if __name__ == "__main__":
    if len(sys.argv) != 4:
        raise SystemExit(__doc__)
    main(Path(sys.argv[1]), sys.argv[2], Path(sys.argv[3]))
