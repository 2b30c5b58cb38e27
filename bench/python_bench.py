"""What Python costs: the spokes of a recording as sweeps beside numpy.fromfile of the same files, and its records with
their payloads beside dpkt on a capture of the same.

    KESTOVA_LIBRARY=build/release/bindings/c/libkestova_c.so.0 KESTOVA_TOOL=build/release/tools/kestova \\
        PYTHONPATH=bindings/python /usr/bin/python3 bench/python_bench.py [FOLDER]

A million spokes of 1,024 cells, 4,096 a turn, 1.06 GB. Medians of five runs, in turn; the files go to FOLDER, by default
the system's temporary folder, and are in the page cache. python3-numpy and python3-dpkt are needed.
"""

import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import dpkt
import kestova
import numpy as np

SPOKES, TURN, CELLS, RUNS = 1_000_000, 4096, 1024, 5
LAYOUT = {
    "azimuth": {"at": 0, "width": 2, "per_turn": TURN},
    "range": 11112,
    "cells": {"at": 2, "count": "rest", "bits": 8},
}


def record(root: Path) -> None:
    cells = np.random.default_rng(1).integers(0, 256, CELLS + TURN, np.uint8).tobytes()
    with kestova.Writer(root, spoke=LAYOUT) as writer:
        for number in range(SPOKES):
            azimuth = number % TURN
            message = azimuth.to_bytes(2, "little") + cells[azimuth : azimuth + CELLS]
            writer.add(1_700_000_000_000 + number // 2, "imageStream", "239.17.0.1:6001", message)


def fromfile(root: Path) -> None:
    for file in root.rglob("*.data"):
        np.fromfile(file, np.uint8)


def sweeps(root: Path) -> None:
    spokes = sum(len(sweep.data) for sweep in kestova.open(root).sweeps(partial=True))
    assert spokes == SPOKES, spokes


def records(root: Path) -> None:
    count = size = 0
    for one in kestova.open(root).records():
        count += 1
        size += len(one.payload)
    assert (count, size) == (SPOKES, SPOKES * (CELLS + 2)), (count, size)


def capture(path: Path) -> None:
    count = size = 0
    with open(path, "rb") as file:
        for _, frame in dpkt.pcap.Reader(file):
            count += 1
            size += len(dpkt.ethernet.Ethernet(frame).data.data.data)
    assert (count, size) == (SPOKES, SPOKES * (CELLS + 2)), (count, size)


def measure(*works):
    times = [[] for _ in works]
    for _ in range(RUNS):
        for work, taken in zip(works, times):
            start = time.perf_counter()
            work()
            taken.append(time.perf_counter() - start)
    return [(statistics.median(taken), min(taken), max(taken)) for taken in times]


def main(folder: str) -> None:
    with tempfile.TemporaryDirectory(dir=folder or None, prefix="kestova_bench_") as scratch:
        root, pcap = Path(scratch, "recordings"), Path(scratch, "recording.pcap")
        record(root)
        subprocess.run([os.environ["KESTOVA_TOOL"], "export", str(root), "--pcap", str(pcap)], check=True,
                       stdout=subprocess.DEVNULL)
        read, turned = measure(lambda: fromfile(root), lambda: sweeps(root))
        print("numpy.fromfile     %.3f s (%.3f to %.3f)" % read)
        print("sweeps             %.3f s (%.3f to %.3f), %.2f of its speed" % (*turned, read[0] / turned[0]))
        ours, theirs = measure(lambda: records(root), lambda: capture(pcap))
        print("records            %.3f s (%.3f to %.3f)" % ours)
        print("dpkt on a capture  %.3f s (%.3f to %.3f), ratio %.1f" % (*theirs, theirs[0] / ours[0]))


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else "")
