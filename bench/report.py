"""The document that tells what was measured: tables and pictures."""

import json
import pathlib
from collections.abc import Callable
from dataclasses import asdict, dataclass

import exporting
import memory
import plots
from measure import Series
from parts import Parts
from quality import Quality
from targets import targets

KINDS = {kind.__name__: kind for kind in (Series, Parts, Quality)}
BEGIN, END = "<!-- measured: begin -->", "<!-- measured: end -->"
MEASURED = "measured.json"


@dataclass
class Section:
    """What one job has measured."""

    machine: str
    day: str
    runs: int  # that were asked for
    seconds: float  # that they took
    results: list


def save(file: pathlib.Path, sections: dict[str, Section]):
    """Keeps every run's numbers: a job that is measured again does not take the others' along."""
    found = {name: {**asdict(section), "results": [{"kind": type(result).__name__, **asdict(result)}
                                                   for result in section.results]} for name, section in sections.items()}
    file.parent.mkdir(exist_ok=True)
    file.write_text(json.dumps(found, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")


def load(file: pathlib.Path) -> dict[str, Section]:
    if not file.exists():
        return {}
    found = {}
    for name, fields in json.loads(file.read_text(encoding="utf-8")).items():
        results = [KINDS[result.pop("kind")](**result) for result in fields.pop("results")]
        found[name] = Section(**fields, results=results)
    return found


def write(document: pathlib.Path, pictures: pathlib.Path, sections: dict[str, Section]):
    """Replaces what stands between the document's two marks; all else in it is written by people."""
    lines = [f"The numbers of every single run are in [{MEASURED}]({pictures.name}/{MEASURED}).\n",
             "## Targets\n", _targets(sections)]
    for heading, section in sections.items():
        lines.append(f"## {heading}\n\nMeasured on {section.day} on {section.machine}.\n")
        for result in section.results:
            lines.append(f"### {result.title}\n")
            if svg := picture(result):
                file = pictures / (_file_name(f"{heading} {result.title}") + ".svg")
                file.write_text(svg, encoding="utf-8")
                lines.append(f"![{result.title}]({pictures.name}/{file.name})\n")
            lines.append(table(result) + "\n")
    head, rest = document.read_text(encoding="utf-8").split(BEGIN)
    tail = rest.split(END)[1]
    document.write_text(head + BEGIN + "\n" + "\n".join(lines) + END + tail, encoding="utf-8")


def table(result) -> str:
    if isinstance(result, Parts):
        return _parts_table(result)
    if isinstance(result, Quality):
        return _quality_table(result)
    return _growth_table(result) if result.title == exporting.GROWTH else _series_table(result)


def picture(result) -> str | None:
    if isinstance(result, Quality):
        return None
    if isinstance(result, Parts):
        return plots.bars(result.title, result.rate_unit, result.rate, len(result.rate))
    if result.title == exporting.GROWTH:
        return plots.curves(result.title, "images", {
            "wall time, s": {int(count): taken.median("wall") for count, taken in result.taken.items()},
            "peak memory, MiB": {int(count): taken.median("peak") for count, taken in result.taken.items()}})
    if result.of == "peak":
        peaks = {name: taken.median("peak") for name, taken in result.taken.items()}
        return plots.bars(result.title, "peak memory, MiB", peaks, len(peaks))
    return plots.bars(result.title, f"wall time, ms per {result.unit}",
                      {name: result.milliseconds(name) for name in result.taken}, 1)


def _targets(sections: dict[str, Section]) -> str:
    rows = [[target.what, f"≤ {target.most:g} {target.unit}".strip(), f"{target.measured:.2f} {target.unit}".strip(),
             "yes" if target.is_reached else "**no**"]
            for target in targets({name: section.results for name, section in sections.items()})]
    return _markdown(["", "Target", "Measured", "Reached"], "lrrl", rows) + "\n"


def _series_table(series: Series) -> str:
    first = next(iter(series.taken))
    columns: dict[str, Callable[[str], str]] = {
        "Wall time, ms": lambda tool: f"{series.milliseconds(tool):.1f}",
        "CPU time, ms": lambda tool: f"{series.milliseconds(tool, 'cpu'):.1f}",
    }
    if series.of == "peak":
        columns = {"Peak memory, MiB": lambda tool: f"{series.taken[tool].median('peak'):.1f}",
                   "Above idle, MiB": lambda tool: f"{memory.added(series)[tool]:.1f}" if tool != memory.IDLE else ""}
    else:
        columns["Peak memory, MiB"] = lambda tool: f"{series.taken[tool].median('peak'):.0f}"
        if len(series.taken) > 1:
            columns["Ours / it"] = lambda tool: f"{series.ratio(tool):.2f}" if tool != first else ""
        if series.taken[first].commands:
            columns[f"Commands per {series.unit}"] = \
                lambda tool: f"{series.taken[tool].median('commands') / series.count:.2f}"
    rows = [[tool, *(cell(tool) for cell in columns.values())] for tool in series.taken]
    caption = _runs(series.runs) + (f"; times for one {series.unit}." if series.count > 1 else ".")
    return _markdown(["", *columns], "l" + "r" * len(columns), rows) + _paragraphs([caption, *series.notes])


def _growth_table(series: Series) -> str:
    rows = [[name, f"{taken.median('wall'):.1f}", f"{1000 * taken.median('wall') / int(name):.1f}",
             f"{1000 * taken.median('cpu') / int(name):.1f}", f"{taken.median('peak'):.0f}"]
            for name, taken in series.taken.items()]
    heads = ["Images", "Wall time, s", "Wall time, ms per image", "CPU time, ms per image", "Peak memory, MiB"]
    return _markdown(heads, "r" * len(heads), rows) + _paragraphs([f"{_runs(series.runs)}.", *series.notes])


def _parts_table(parts: Parts) -> str:
    rows = [[name, *map(plots.number, (1000 * parts.wall[name], 1000 * parts.cpu[name], parts.rate[name]))]
            for name in parts.wall]
    heads = ["Part", "Wall time, ms", "CPU time, ms", parts.rate_unit]
    return _markdown(heads, "lrrr", rows) + _paragraphs([f"{_runs(parts.runs)}."])


def _quality_table(quality: Quality) -> str:
    rows = [[name, f"{output.luma:.4f}", f"{output.color:.4f}", plots.number(output.size / 1000), output.sampling,
             "{} × {}".format(*output.pixels)] for name, output in quality.outputs.items()]
    heads = ["Tool", "Similarity of the brightness", "of red, green and blue", "File, KB", "Chroma", "Pixels"]
    return _markdown(heads, "lrrrll", rows) + _paragraphs(quality.notes)


def _markdown(heads: list[str], alignments: str, rows: list[list[str]]) -> str:
    rule = ["---:" if alignment == "r" else "---" for alignment in alignments]
    return "\n".join("| " + " | ".join(cells) + " |" for cells in (heads, rule, *rows))


def _paragraphs(notes: list[str]) -> str:
    return "".join(f"\n\n{note}" for note in notes)


def _runs(count: int) -> str:
    return "One run" if count == 1 else f"Medians of {count} runs"


def _file_name(title: str) -> str:
    return "-".join("".join(letter if letter.isalnum() else " " for letter in title.lower()).split())
