"""Runs commands in turn and tells what each took."""

import os
import pathlib
import resource
import shlex
import shutil
import statistics
import subprocess
import sys
import time
from collections.abc import Callable
from dataclasses import dataclass, field

HOME = pathlib.Path(__file__).resolve().parent.parent
BUILD = HOME / "build-release"


@dataclass
class Tool:
    """One way to do the job: its name, and what makes its command for the folder of one run."""

    name: str
    command: Callable[[pathlib.Path], list]


@dataclass
class Taken:
    """What the runs of one tool took, a run an entry."""

    wall: list[float] = field(default_factory=list)  # seconds
    cpu: list[float] = field(default_factory=list)  # seconds, children included
    peak: list[float] = field(default_factory=list)  # MiB resident in the largest of its processes
    commands: list[int] = field(default_factory=list)  # sent to a server, where they are counted

    def median(self, what: str) -> float:
        return statistics.median(getattr(self, what))


@dataclass
class Series:
    """The same job done by several tools; the first is ours."""

    title: str
    taken: dict[str, Taken]
    unit: str = "run"  # what a time is for: a run as a whole, or one of `count` images or files in it
    count: int = 1
    of: str = "wall"  # what it is about: wall time, or peak memory
    notes: list[str] = field(default_factory=list)

    def __post_init__(self):
        self.taken = {name: taken if isinstance(taken, Taken) else Taken(**taken) for name, taken in self.taken.items()}

    def milliseconds(self, tool: str, what: str = "wall") -> float:
        """The median for one unit."""
        return 1000 * self.taken[tool].median(what) / self.count

    def ratio(self, tool: str) -> float:
        """Our wall time by the tool's: below 1 we are faster."""
        ours = next(iter(self.taken.values()))
        return ours.median("wall") / self.taken[tool].median("wall")

    @property
    def runs(self) -> int:
        return len(next(iter(self.taken.values())).wall)


def run_in_turn(title: str, tools: list[Tool], runs: int, folder: pathlib.Path, unit: str = "run", count: int = 1,
                of: str = "wall", prepare: Callable[[pathlib.Path], None] = lambda _: None,
                check: Callable[[pathlib.Path], None] = lambda _: None,
                counter: Callable[[], int] | None = None) -> Series:
    """Every tool once, then every tool again, so that what disturbs the machine disturbs all of them.

    `prepare` fills the folder of a run and `check` raises where the run has not done its job; neither is measured.
    `counter` tells how many commands a server has been sent so far.
    """
    start = time.monotonic()
    taken = {tool.name: Taken() for tool in tools}
    for _ in range(runs):
        for tool in tools:
            place = folder / "run"
            shutil.rmtree(place, ignore_errors=True)
            place.mkdir()
            prepare(place)
            commands_before = counter() if counter else 0
            _run(tool.command(place), folder / "peak", taken[tool.name])
            if counter:
                taken[tool.name].commands.append(counter() - commands_before)
            check(place)
            shutil.rmtree(place)
    print(f"{title}: {runs} runs in {time.monotonic() - start:.0f} s", file=sys.stderr, flush=True)
    return Series(title, taken, unit, count, of)


def _run(command: list, peak: pathlib.Path, taken: Taken):
    # What the system counts as a child's peak includes its parent's memory, and this process may hold pictures: the
    # parent is time(1), which holds next to nothing.
    words = ["/usr/bin/time", "-q", "-f", "%M", "-o", peak, *command]
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    ended = subprocess.run([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                           stderr=subprocess.PIPE, env=environment(), check=False)
    wall = time.monotonic() - start
    if ended.returncode != 0:
        raise RuntimeError(f"{command[0]} ended with {ended.returncode}: {ended.stderr.decode(errors='replace')[-500:]}")
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    taken.wall.append(wall)
    taken.cpu.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
    taken.peak.append(int(peak.read_text()) / 1024)


def environment() -> dict[str, str]:
    return {**os.environ, "QT_QPA_PLATFORM": "offscreen", "LANG": "C.UTF-8"}


def shell(*lines: str) -> list:
    """A command that runs the lines in turn."""
    return ["sh", "-e", "-c", "\n".join(lines)]


def quoted(*words) -> str:
    return " ".join(shlex.quote(str(word)) for word in words)
