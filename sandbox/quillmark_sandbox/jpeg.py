"""Reads what a gallery must know of a JPEG file: its size, and whether it is whole (ITU-T T.81, Annex B)."""

import mmap
import re
from pathlib import Path
from typing import NamedTuple

SOI, EOI, SOS = 0xD8, 0xD9, 0xDA
# Start of frame, all processes: 0xC4, 0xC8 and 0xCC in their midst are DHT, JPG and DAC.
START_OF_FRAME = frozenset(range(0xC0, 0xD0)) - {0xC4, 0xC8, 0xCC}
WITHOUT_LENGTH = frozenset({0x01, *range(0xD0, 0xD8)})
# In a scan, 0xFF00 is a data byte, 0xFFD0 to 0xFFD7 are restarts and 0xFFFF is fill; the rest are markers.
MARKER_AFTER_SCAN = re.compile(rb"\xff[^\x00\xd0-\xd7\xff]")


Content = bytes | mmap.mmap


class Size(NamedTuple):
    width: int
    height: int


class NotAnImage(Exception):
    """Why a file can't be shown, in a few words."""


def read_size(path: Path) -> Size:
    """A complete JPEG file's pixel size; NotAnImage for any other. The file must not change meanwhile."""
    with open(path, "rb") as file:
        try:
            with mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as data:
                return size_of(data)
        except ValueError as error:
            raise NotAnImage("empty") from error


def size_of(data: Content) -> Size:
    """As `read_size`, of a file's content that is not empty."""
    if data[:2] != bytes((0xFF, SOI)):
        raise NotAnImage("not a JPEG image")
    size = None
    scanned = False
    position = 2
    while True:
        marker, position = _marker(data, position)
        if marker == EOI and size and scanned:
            return size
        if marker in (SOI, EOI):
            raise NotAnImage("a broken JPEG image")
        if marker in WITHOUT_LENGTH:
            continue
        segment, position = _segment(data, position)
        if marker in START_OF_FRAME:
            size = _frame_size(segment)
        elif marker == SOS:
            scanned = True
            found = MARKER_AFTER_SCAN.search(data, position)
            if not found:
                raise NotAnImage("a cut-off JPEG image")
            position = found.start()


def _marker(data: Content, position: int) -> tuple[int, int]:
    if data[position : position + 1] not in (b"\xff", b""):
        raise NotAnImage("a broken JPEG image")
    while data[position : position + 1] == b"\xff":
        position += 1
    if position >= len(data):
        raise NotAnImage("a cut-off JPEG image")
    return data[position], position + 1


def _segment(data: Content, position: int) -> tuple[bytes, int]:
    length = int.from_bytes(data[position : position + 2], "big")
    end = position + length
    if end > len(data) or position + 2 > len(data):
        raise NotAnImage("a cut-off JPEG image")
    if length < 2:
        raise NotAnImage("a broken JPEG image")
    return data[position + 2 : end], end


def _frame_size(segment: bytes) -> Size:
    size = Size(int.from_bytes(segment[3:5], "big"), int.from_bytes(segment[1:3], "big"))
    if len(segment) < 6 or 0 in size:
        raise NotAnImage("a broken JPEG image")
    return size
