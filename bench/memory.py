"""How much memory preparing one photograph takes beside what the process takes while it is idle."""

import pathlib

import samples
from measure import BUILD, Series, Tool, run_in_turn
from preparing import QUALITY

TITLE = "One 24-megapixel baseline JPEG"
IDLE = "idle, with the plug-in made"
PREPARED = {"a box of 1280": "1280x1280", "a box of 2048": "2048x2048", "its own size": "own"}


def memory(folder: pathlib.Path, runs: int) -> list[Series]:
    photograph = samples.photographs(folder, 1)[0]

    def tool(name, box, *files):
        return Tool(name, lambda place: [BUILD / "bench/prepare_images", box, QUALITY, place, *files])

    tools = [tool(IDLE, "own"), *(tool(f"prepared into {name}", box, photograph) for name, box in PREPARED.items())]
    return [run_in_turn(TITLE, tools, runs, folder, of="peak")]


def added(series: Series) -> dict[str, float]:
    """What the peak is above the idle process's, in MiB."""
    idle = series.taken[IDLE].median("peak")
    return {name: taken.median("peak") - idle for name, taken in series.taken.items() if name != IDLE}
