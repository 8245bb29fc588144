"""Runs commands in turn and tells what each took."""

import os
import pathlib
import resource
import shutil
import statistics
import subprocess
import threading
import time
from collections.abc import Callable
from dataclasses import dataclass, field

SAMPLING_INTERVAL = 0.01  # seconds, between looks at a command's memory


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
    peak: list[float] = field(default_factory=list)  # MiB resident in all its processes together

    def median(self, what: str) -> float:
        return statistics.median(getattr(self, what))


@dataclass
class Series:
    """The same job done by several tools; the first is ours."""

    title: str
    taken: dict[str, Taken]
    unit: int = 1  # what times are divided by: images or files a run
    notes: dict[str, str] = field(default_factory=dict)

    def ratio(self, tool: str) -> float:
        ours = next(iter(self.taken.values()))
        return ours.median("wall") / self.taken[tool].median("wall")


def run_in_turn(title: str, tools: list[Tool], runs: int, folder: pathlib.Path, unit: int = 1,
                prepare: Callable[[pathlib.Path], None] = lambda _: None) -> Series:
    """Every tool once, then every tool again, so that what disturbs the machine disturbs all of them."""
    taken = {tool.name: Taken() for tool in tools}
    for _ in range(runs):
        for tool in tools:
            place = folder / "run"
            shutil.rmtree(place, ignore_errors=True)
            place.mkdir()
            prepare(place)
            _run(tool.command(place), taken[tool.name])
            shutil.rmtree(place)
    return Series(title, taken, unit)


def _run(command: list, taken: Taken):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.monotonic()
    process = subprocess.Popen([str(word) for word in command], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                               stdin=subprocess.DEVNULL)
    peak = _PeakOfGroup(process.pid)
    _, errors = process.communicate()
    wall = time.monotonic() - start
    taken.peak.append(peak.stop())
    if process.returncode != 0:
        raise RuntimeError(f"{command[0]} ended with {process.returncode}: {errors.decode(errors='replace')[-500:]}")
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    taken.wall.append(wall)
    taken.cpu.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)


class _PeakOfGroup:
    """Watches a process and those that it starts: the most memory they held at one time."""

    def __init__(self, pid: int):
        self._pid = pid
        self._peak = 0
        self._ended = threading.Event()
        self._thread = threading.Thread(target=self._watch)
        self._thread.start()

    def stop(self) -> float:
        self._ended.set()
        self._thread.join()
        return self._peak / 2**20

    def _watch(self):
        while not self._ended.wait(SAMPLING_INTERVAL):
            self._peak = max(self._peak, self._resident(self._pid))

    def _resident(self, pid: int) -> int:
        try:
            pages = int(pathlib.Path(f"/proc/{pid}/statm").read_text().split()[1])
            children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
        except (OSError, IndexError):
            return 0  # It has ended.
        return pages * os.sysconf("SC_PAGE_SIZE") + sum(self._resident(int(child)) for child in children)
