"""What comes out: how like the original it is, and how large, at the same quality of the encoder."""

import pathlib
import shutil
import subprocess
from dataclasses import dataclass, field

import numpy
from PIL import Image, JpegImagePlugin
from skimage.metrics import structural_similarity

import preparing
import samples
from measure import environment

COMPARED = 2048  # pixels a side of the middle that is compared: a whole photograph would take minutes
SAMPLING = {0: "4:4:4", 1: "4:2:2", 2: "4:2:0"}
GAUSSIAN = {"gaussian_weights": True, "sigma": 1.5, "use_sample_covariance": False, "data_range": 255}


@dataclass
class Output:
    size: int  # bytes
    luma: float  # structural similarity of the brightness
    color: float  # its mean over red, green and blue, which shows what a coarser chroma costs
    sampling: str
    pixels: tuple[int, int]


@dataclass
class Quality:
    """The outputs of several tools for the same job; the first is ours."""

    title: str
    outputs: dict[str, Output]
    notes: list[str] = field(default_factory=list)

    def __post_init__(self):
        self.outputs = {name: output if isinstance(output, Output) else Output(**output)
                        for name, output in self.outputs.items()}


def quality(folder: pathlib.Path, _runs: int) -> list[Quality]:
    original = Image.open(samples.photographs(folder, 1)[0]).convert("RGB")
    found = []
    for title, (files, box) in preparing.cases(folder, 1).items():
        outputs, tables = {}, {}
        for tool in preparing.tools(files, box):
            if tool.name == preparing.VIPS_ONE_PROCESS:
                continue  # The same output as from a process for each image.
            with _picture(tool, folder) as picture:
                outputs[tool.name.split(",")[0]] = _judged(picture, original)
                tables[tool.name] = picture.quantization
        found.append(Quality(title, outputs, _notes(tables)))
    return found


def _picture(tool: preparing.Tool, folder: pathlib.Path) -> Image.Image:
    place = folder / "quality"
    shutil.rmtree(place, ignore_errors=True)
    place.mkdir()
    subprocess.run([str(word) for word in tool.command(place)], env=environment(), stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL, check=True)
    return Image.open(preparing.made(place)[0])


def _judged(picture: Image.Image, original: Image.Image) -> Output:
    """Against Lanczos-3 of a library that none of the tools uses, at the output's own size."""
    reference = original if picture.size == original.size else original.resize(picture.size, Image.Resampling.LANCZOS)
    ours, theirs = _middle(picture.convert("RGB")), _middle(reference)
    luma = structural_similarity(_array(ours.convert("L")), _array(theirs.convert("L")), **GAUSSIAN)
    color = structural_similarity(_array(ours), _array(theirs), channel_axis=2, **GAUSSIAN)
    return Output(pathlib.Path(picture.filename).stat().st_size, float(luma), float(color),
                  SAMPLING[JpegImagePlugin.get_sampling(picture)], picture.size)


def _middle(picture: Image.Image) -> Image.Image:
    width, height = (min(COMPARED, side) for side in picture.size)
    left, top = (picture.width - width) // 2, (picture.height - height) // 2
    return picture.crop((left, top, left + width, top + height))


def _array(picture: Image.Image) -> numpy.ndarray:
    return numpy.asarray(picture, dtype=numpy.float32)


def _notes(tables: dict[str, dict]) -> list[str]:
    first = next(iter(tables.values()))
    others = [name for name, table in tables.items() if table != first]
    return [f"Other quantisation tables than Quillmark's: {', '.join(others)}."] if others else \
        ["All write the same quantisation tables."]
