"""What was measured, as tables and pictures."""

import pathlib
from html import escape

from measure import Series

BAR_HEIGHT, GAP, LABEL_WIDTH, PLOT_WIDTH, VALUE_WIDTH = 22, 8, 230, 420, 90
OURS, OTHERS = "#2f6f8f", "#b9c4cc"


def table(series: Series) -> str:
    lines = ["| Tool | Wall time, ms | CPU time, ms | Peak memory, MiB | Ours / it |", "|---|---:|---:|---:|---:|"]
    for index, (name, taken) in enumerate(series.taken.items()):
        ratio = "" if index == 0 else f"{series.ratio(name):.2f}"
        lines.append(
            f"| {name} | {1000 * taken.median('wall') / series.unit:.1f} | {1000 * taken.median('cpu') / series.unit:.1f} "
            f"| {taken.median('peak'):.0f} | {ratio} |")
    lines += [f"\n{text}" for text in series.notes.values()]
    return "\n".join(lines)


def bars(series: Series) -> str:
    """An SVG of the medians of wall time, ours first."""
    values = {name: 1000 * taken.median("wall") / series.unit for name, taken in series.taken.items()}
    longest = max(values.values())
    height = (BAR_HEIGHT + GAP) * len(values) + GAP
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{LABEL_WIDTH + PLOT_WIDTH + VALUE_WIDTH}" height="{height}" '
        f'font-family="sans-serif" font-size="13"><title>{escape(series.title)}, ms</title>'
        f'<rect width="100%" height="100%" fill="white"/>'
    ]
    for row, (name, value) in enumerate(values.items()):
        top = GAP + row * (BAR_HEIGHT + GAP)
        width = max(1.0, PLOT_WIDTH * value / longest)
        base = top + BAR_HEIGHT - 6
        parts.append(
            f'<text x="{LABEL_WIDTH - 8}" y="{base}" text-anchor="end">{escape(name)}</text>'
            f'<rect x="{LABEL_WIDTH}" y="{top}" width="{width:.1f}" height="{BAR_HEIGHT}" fill="{OTHERS if row else OURS}"/>'
            f'<text x="{LABEL_WIDTH + width + 6:.1f}" y="{base}">{value:,.1f}</text>')
    return "\n".join(parts) + "\n</svg>\n"


def write(document: pathlib.Path, pictures: pathlib.Path, sections: dict[str, list[Series]], machine: str):
    """Replaces what stands between the document's two marks; all else in it is written by people."""
    begin, end = "<!-- measured: begin -->", "<!-- measured: end -->"
    lines = [f"Measured on {machine}. Medians; times are for one image or file.\n"]
    pictures.mkdir(exist_ok=True)
    for heading, group in sections.items():
        lines.append(f"## {heading}\n")
        for series in group:
            picture = pictures / (_file_name(f"{heading} {series.title}") + ".svg")
            picture.write_text(bars(series), encoding="utf-8")
            lines.append(f"### {series.title}\n\n![{series.title}]({pictures.name}/{picture.name})\n\n{table(series)}\n")
    text = document.read_text(encoding="utf-8")
    head, rest = text.split(begin)
    tail = rest.split(end)[1]
    document.write_text(head + begin + "\n" + "\n".join(lines) + end + tail, encoding="utf-8")


def _file_name(title: str) -> str:
    return "-".join("".join(letter if letter.isalnum() else " " for letter in title.lower()).split())
