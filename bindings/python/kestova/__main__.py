"""python -m kestova info PATH [--json]: what is in a recording."""

import argparse
import json
import sys
from typing import List, Optional

import kestova


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python -m kestova", description="Recordings of marine radar traffic")
    parser.add_argument("--version", action="version", version=kestova.__version__)
    commands = parser.add_subparsers(dest="command", required=True)
    info = commands.add_parser("info", help="what is in a recording")
    info.add_argument("path")
    info.add_argument("--json", action="store_true", help="as kestova info --json")
    options = parser.parse_args(arguments)
    try:
        with kestova.open(options.path) as recording:
            if options.json:
                print(json.dumps(recording.info))
                return 0
            print(recording)
            for name, row in recording.streams.items():
                print(f"  {name:<16} {row['address']:<21} {row['records']:>10} records {row['bytes']:>13} bytes")
            for loss in recording.losses:
                print("  lost:", ", ".join(f"{key} {value}" for key, value in loss.items()))
    except kestova.Error as error:
        print(f"kestova: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
