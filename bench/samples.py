"""The photographs and files that the jobs work on."""

import os
import pathlib
import subprocess

from PIL import Image

# A photograph of a bird on the bark of a tree: fine detail beside an even background.
SOURCE = pathlib.Path("/usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg")
PHOTOGRAPH = (6000, 4000)
PIECE = 1 << 20  # bytes written at once


def photographs(folder: pathlib.Path, count: int) -> list[pathlib.Path]:
    """JPEGs of 24 megapixels with a sensor's grain, each another file with the same content."""
    first = folder / "photograph-0.jpg"
    if not first.exists():
        picture = Image.open(SOURCE).convert("RGB").resize(PHOTOGRAPH, Image.Resampling.LANCZOS)
        grain = Image.effect_noise(PHOTOGRAPH, 24).convert("RGB")
        Image.blend(picture, grain, 0.12).save(first, quality=92)
    return links(first, folder, "photograph", count)


def small_photographs(folder: pathlib.Path, count: int) -> list[pathlib.Path]:
    """JPEGs of 2.5 megapixels."""
    place = folder / "small-photographs"
    place.mkdir(exist_ok=True)
    first = place / "small-0.jpg"
    if not first.exists():
        Image.open(photographs(folder, 1)[0]).resize((1920, 1280)).save(first, quality=90)
    return links(first, place, "small", count)


def deep_photograph(folder: pathlib.Path) -> pathlib.Path:
    """A TIFF of 24 megapixels with 16 bits a component."""
    tiff = folder / "photograph.tif"
    if not tiff.exists():
        subprocess.run(["vips", "colourspace", photographs(folder, 1)[0], tiff, "rgb16"], check=True)
    return tiff


def links(first: pathlib.Path, folder: pathlib.Path, stem: str, count: int) -> list[pathlib.Path]:
    """`first` under as many names, its own among them."""
    files = [folder / f"{stem}-{index}{first.suffix}" for index in range(count)]
    for file in files:
        if not file.exists():
            os.link(first, file)
    return files


def random_files(folder: pathlib.Path, count: int, size: int) -> list[pathlib.Path]:
    """Files that nothing can compress, nor read faster for having holes."""
    folder.mkdir(exist_ok=True)
    files = [folder / f"IMG_{index:04}.jpg" for index in range(count)]
    for file in files:
        if not file.exists():
            with file.open("wb") as made:
                for start in range(0, size, PIECE):
                    made.write(os.urandom(min(PIECE, size - start)))
    return files
