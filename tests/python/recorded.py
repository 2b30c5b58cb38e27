"""A recording for the tests, made by the package itself: ten turns of 64 spokes, of which the first begins at a quarter
and the last one ends at a half, 10 ms from spoke to spoke, and sentences in the middle of each turn."""

import kestova

SPOKES, CELLS, FIRST, LAST = 64, 100, 16, 9 * 64 + 32
MISSING = 3 * SPOKES + 5
START = 1_700_000_000_000
RADAR, SENSORS = "239.17.0.1:6001", "239.17.0.9:6009"
LAYOUT = {
    "match": {"0": "ab"},
    "azimuth": {"at": 1, "width": 1, "per_turn": SPOKES},
    "range": 1000,
    "sequence": {"at": 2, "width": 2},
    "cells": {"at": 4, "count": "rest", "bits": 8},
    "reference": "bow",
}


def time_of(spoke):
    return START + 10 * (spoke - FIRST)


def cells_of(spoke):
    count = CELLS - 10 * (spoke % 2)
    return bytes((spoke * 3 + cell) % 200 + 1 for cell in range(count))


def message_of(spoke):
    return bytes([0xAB, spoke % SPOKES]) + spoke.to_bytes(2, "little") + cells_of(spoke)


def sentence(text):
    total = 0
    for character in text[1:]:
        total ^= ord(character)
    return f"{text}*{total:02X}\r\n".encode()


SENTENCES = [
    sentence("$GPGGA,123519,5400.000,N,01000.000,E,1,08,0.9,5.0,M,46.9,M,,"),
    sentence("$HEHDT,90.0,T"),
    sentence("$SDDPT,12.5,0.5"),
    sentence("$RATTM,07,1.5,45.0,T,10.0,180.0,T,0.1,5.0,N,,T,,123519,A"),
    sentence("!AIVDM,1,1,,A,15M67FC000G?ufbE`FepT@3n00Sa,0"),
]


def record(root, spoke=LAYOUT):
    """Returns the folder of the recording."""
    with kestova.Writer(root, spoke=spoke) as writer:
        for number in range(FIRST, LAST):
            if number % SPOKES == 32:
                for line in SENTENCES:
                    writer.add(time_of(number), "gpsDev", SENSORS, line)
            if number != MISSING:
                writer.add(time_of(number), "imageStream", RADAR, message_of(number))
    return writer.path
