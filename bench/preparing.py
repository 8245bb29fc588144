"""Preparing photographs: into a box, and in their own size."""

import pathlib

from PIL import Image

import samples
from measure import BUILD, Series, Tool, quoted, run_in_turn, shell

QUALITY = 10  # of 12
ENCODER_QUALITY = round(100 * QUALITY / 12)
FEW, MANY = 5, 100
MOST_RUNS_OF_MANY = 2  # each takes minutes

BOX_1280 = "24-megapixel JPEG into a box of 1280"
BOX_2048 = "24-megapixel JPEG into a box of 2048"
OWN_SIZE = "24-megapixel JPEG in its own size"
DEEP_TIFF = "24-megapixel 16-bit TIFF into a box of 2048"
HUNDRED = "100 JPEGs of 24 megapixels into a box of 2048"
JPEG_CASES = (BOX_1280, BOX_2048, OWN_SIZE)

OURS = "Quillmark"
VIPS_EACH = "vipsthumbnail, once an image"
VIPS_ONE_PROCESS = "vipsthumbnail, one process"
IMAGEMAGICK = "ImageMagick"
GRAPHICSMAGICK = "GraphicsMagick"
QIMAGE = "QImage, one process"


def cases(folder: pathlib.Path, count: int) -> dict[str, tuple[list[pathlib.Path], str | None]]:
    """By title: the files, and the box, without one for their own size."""
    files = samples.photographs(folder, count)
    return {
        BOX_1280: (files, "1280x1280"),
        BOX_2048: (files, "2048x2048"),
        OWN_SIZE: (files, None),
        DEEP_TIFF: ([samples.deep_photograph(folder)], "2048x2048"),
    }


def preparing(folder: pathlib.Path, runs: int) -> list[Series]:
    found = [_measured(title, files, box, folder, runs) for title, (files, box) in cases(folder, FEW).items()]
    many = samples.photographs(folder, MANY)
    return [*found, _measured(HUNDRED, many, "2048x2048", folder, min(runs, MOST_RUNS_OF_MANY))]


def tools(files: list[pathlib.Path], box: str | None) -> list[Tool]:
    """All that write each file as a JPEG of the same quality into a run's folder, under a name with its stem."""
    size = box or "{}x{}".format(*samples.PHOTOGRAPH)

    def vips(place):
        # The photographs are sRGB: without a change of profile, which would only cost it time.
        return ["vipsthumbnail", "--size", size, "-o", f"{place}/%s.jpg[Q={ENCODER_QUALITY},strip]"]

    def magick(program):
        resize = ["-resize", box] if box else []
        return lambda place: shell(*(
            quoted(*program, file, *resize, "-strip", "-quality", ENCODER_QUALITY, f"{place}/{file.stem}.jpg")
            for file in files))

    return [
        Tool(OURS, lambda place: [BUILD / "bench/prepare_images", box or "own", QUALITY, place, *files]),
        Tool(VIPS_EACH, lambda place: shell(*(quoted(*vips(place), file) for file in files))),
        Tool(VIPS_ONE_PROCESS, lambda place: [*vips(place), *files]),
        Tool(IMAGEMAGICK, magick(["convert"])),
        Tool(GRAPHICSMAGICK, magick(["gm", "convert"])),
        Tool(QIMAGE, lambda place: [BUILD / "bench/qt_images", box or "own", ENCODER_QUALITY, place, *files]),
    ]


def made(place: pathlib.Path) -> list[pathlib.Path]:
    """The JPEGs in a run's folder, or in a folder that the tool has made there."""
    return sorted(place.rglob("*.jpg"))


def _measured(title: str, files: list[pathlib.Path], box: str | None, folder: pathlib.Path, runs: int) -> Series:
    def check(place):
        pictures = made(place)
        if len(pictures) != len(files):
            raise RuntimeError(f"{title}: {len(pictures)} pictures of {len(files)}")
        longest = int(box.split("x")[0]) if box else max(samples.PHOTOGRAPH)
        with Image.open(pictures[0]) as picture:
            if max(picture.size) != longest:
                raise RuntimeError(f"{title}: {picture.size} is no picture in that box")

    return run_in_turn(title, tools(files, box), runs, folder, "image", len(files), check=check)
