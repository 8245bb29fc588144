"""What the measured times and sizes should reach."""

from collections.abc import Iterator
from dataclasses import dataclass

import memory
import preparing
import starting
import uploading
from measure import Series

MOST_OF_VIPS_EACH, MOST_OF_VIPS, MOST_OF_IMAGEMAGICK = 0.90, 1.05, 0.25  # of their time
MOST_OF_CURL, MOST_OF_LFTP = 1.1, 0.6
MOST_ADDED_MEMORY = 50  # MiB
MOST_START = 60  # ms


@dataclass
class Target:
    what: str
    most: float
    measured: float
    unit: str = ""

    @property
    def is_reached(self) -> bool:
        return self.measured <= self.most


def targets(sections: dict[str, list]) -> list[Target]:
    """Those that the sections hold measurements for."""
    by_title = {series.title: series for group in sections.values() for series in group if isinstance(series, Series)}
    return [*_preparing(by_title), *_uploading(by_title), *_memory(by_title), *_start(by_title)]


def _ratio(series: Series, tool: str, most: float) -> Target:
    return Target(f"{series.title}: time beside {tool}", most, series.ratio(tool))


def _preparing(by_title: dict[str, Series]) -> Iterator[Target]:
    for title in (*preparing.JPEG_CASES, preparing.HUNDRED):
        if series := by_title.get(title):
            yield _ratio(series, preparing.VIPS_EACH, MOST_OF_VIPS_EACH)
            yield _ratio(series, preparing.VIPS_ONE_PROCESS, MOST_OF_VIPS)
            yield _ratio(series, preparing.IMAGEMAGICK, MOST_OF_IMAGEMAGICK)


def _uploading(by_title: dict[str, Series]) -> Iterator[Target]:
    for way, tool, most in ((uploading.LOOPBACK, uploading.CURL, MOST_OF_CURL),
                            (uploading.DELAYED, uploading.LFTP, MOST_OF_LFTP)):
        for job in (uploading.SMALL, uploading.LARGE):
            if series := by_title.get(uploading.title(job, way)):
                yield _ratio(series, tool, most)


def _memory(by_title: dict[str, Series]) -> Iterator[Target]:
    if series := by_title.get(memory.TITLE):
        for name, mebibytes in memory.added(series).items():
            yield Target(f"{memory.TITLE}, {name}: memory beside the idle process's", MOST_ADDED_MEMORY, mebibytes, "MiB")


def _start(by_title: dict[str, Series]) -> Iterator[Target]:
    if series := by_title.get(starting.TITLE):
        yield Target(f"`{starting.VERSION}`", MOST_START, series.milliseconds(starting.VERSION), "ms")
