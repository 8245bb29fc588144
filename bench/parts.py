"""The parts alone, as Google Benchmark measures them."""

import json
import pathlib
import subprocess
from dataclasses import dataclass

from measure import BUILD, environment

PROGRAMS = {
    "image_benchmark": ("Decoding, scaling and encoding 24 megapixels", "images/s"),
    "parser_benchmark": ("Reading the service's answers", "MB/s"),
    "stream_benchmark": ("Sending a file to a server that keeps nothing", "MB/s"),
    "list_benchmark": ("Bringing the lists into the panel, 12 categories an event", "events/s"),
}
LEAST_SECONDS = 0.2  # that a repetition takes
SECONDS_OF = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}


@dataclass
class Parts:
    """What one program's benchmarks took: the medians in seconds, and how much that is in a second."""

    title: str
    runs: int
    wall: dict[str, float]
    cpu: dict[str, float]
    rate: dict[str, float]  # in `rate_unit`
    rate_unit: str


def parts(_folder: pathlib.Path, runs: int) -> list[Parts]:
    return [_measured(program, title, unit, runs) for program, (title, unit) in PROGRAMS.items()]


def _measured(program: str, title: str, unit: str, runs: int) -> Parts:
    command = [BUILD / "bench" / program, "--benchmark_format=json", f"--benchmark_repetitions={runs}",
               f"--benchmark_min_time={LEAST_SECONDS}"]
    out = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=environment(), check=True).stdout
    found = Parts(title, runs, {}, {}, {}, unit)
    for entry in json.loads(out)["benchmarks"]:
        if entry.get("error_occurred"):
            raise RuntimeError(f"{entry['name']}: {entry['error_message']}")
        # A single repetition has no median of its own.
        if entry["run_type"] == "aggregate" and entry["aggregate_name"] != "median" or \
                entry["run_type"] == "iteration" and runs > 1:
            continue
        name = entry["run_name"].removesuffix("/real_time").removesuffix("/process_time").replace("/", ", ")
        found.wall[name] = entry["real_time"] * SECONDS_OF[entry["time_unit"]]
        found.cpu[name] = entry["cpu_time"] * SECONDS_OF[entry["time_unit"]]
        found.rate[name] = _rate(entry, found.wall[name])
    return found


def _rate(entry: dict, seconds: float) -> float:
    if rate := entry.get("bytes_per_second"):
        return rate / 1e6
    return entry.get("items_per_second", 1 / seconds)
