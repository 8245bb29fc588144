"""Pictures of what was measured, as SVG."""

import math
from html import escape

TEXT, MUTED, GRID = "#24292f", "#57606a", "#d8dee4"
OURS, OTHERS = "#1f6f8b", "#b4bfc8"
WIDTH, MARGIN = 760, 16
TITLE_HEIGHT, AXIS_HEIGHT = 34, 46
LABEL_WIDTH, VALUE_WIDTH = 250, 70
BAR_HEIGHT, GAP = 20, 8
PANEL_HEIGHT, PANEL_GAP, SCALE_WIDTH = 240, 40, 56
MOST_TICKS = 6


def bars(title: str, axis: str, values: dict[str, float], emphasised: int) -> str:
    """A bar for each value; the first `emphasised` of them in our colour."""
    left, plot_width = MARGIN + LABEL_WIDTH, WIDTH - 2 * MARGIN - LABEL_WIDTH - VALUE_WIDTH
    bottom = TITLE_HEIGHT + len(values) * (BAR_HEIGHT + GAP) + GAP
    ticks = _ticks(max(values.values()))
    scale = plot_width / max(ticks[-1], max(values.values()))
    parts = []
    for tick in ticks:
        x = left + tick * scale
        parts += [_line(x, TITLE_HEIGHT, x, bottom, GRID), _text(x, bottom + 17, number(tick), "middle", MUTED)]
    parts.append(_text(left + plot_width / 2, bottom + 36, axis, "middle", MUTED))
    for row, (name, value) in enumerate(values.items()):
        top = TITLE_HEIGHT + GAP + row * (BAR_HEIGHT + GAP)
        base = top + BAR_HEIGHT - 5
        width = max(1.0, value * scale)
        fill = OURS if row < emphasised else OTHERS
        parts += [
            _text(left - 8, base, name, "end"),
            f'<rect x="{left}" y="{top}" width="{width:.1f}" height="{BAR_HEIGHT}" rx="2" fill="{fill}"/>',
            _text(left + width + 6, base, number(value)),
        ]
    return _picture(title, bottom + AXIS_HEIGHT, parts)


def curves(title: str, axis: str, panels: dict[str, dict[float, float]]) -> str:
    """Panels beside each other, each with its own scale: points by what stands on the horizontal axis, joined."""
    panel_width = (WIDTH - 2 * MARGIN - (len(panels) - 1) * PANEL_GAP) / len(panels)
    parts = []
    for index, (name, points) in enumerate(panels.items()):
        left = MARGIN + index * (panel_width + PANEL_GAP)
        parts += _panel(left, panel_width, axis, name, points)
    return _picture(title, TITLE_HEIGHT + PANEL_HEIGHT + AXIS_HEIGHT, parts)


def _panel(left: float, width: float, axis: str, name: str, points: dict[float, float]) -> list[str]:
    right, origin = left + width - MARGIN, left + SCALE_WIDTH
    top, bottom = TITLE_HEIGHT + 24, TITLE_HEIGHT + PANEL_HEIGHT
    across, up = _ticks(max(points)), _ticks(max(points.values()))
    x_scale = (right - origin) / max(across[-1], max(points))
    y_scale = (bottom - top) / max(up[-1], max(points.values()))
    parts = [_text(left, TITLE_HEIGHT + 10, name, fill=MUTED)]
    for tick in up:
        y = bottom - tick * y_scale
        parts += [_line(origin, y, right, y, GRID), _text(origin - 6, y + 4, number(tick), "end", MUTED)]
    for tick in across:
        x = origin + tick * x_scale
        parts += [_line(x, bottom, x, bottom + 4, GRID), _text(x, bottom + 19, number(tick), "middle", MUTED)]
    parts.append(_text((origin + right) / 2, bottom + 38, axis, "middle", MUTED))
    places = [(origin + x * x_scale, bottom - y * y_scale) for x, y in sorted(points.items())]
    line = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
    parts.append(f'<polyline points="{line}" fill="none" stroke="{OURS}" stroke-width="2"/>')
    parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="4" fill="{OURS}"/>' for x, y in places]
    return parts


def _picture(title: str, height: float, parts: list[str]) -> str:
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height:.0f}" width="{WIDTH}" height="{height:.0f}" '
        f'font-family="sans-serif" font-size="13"><title>{escape(title)}</title>',
        '<rect width="100%" height="100%" fill="white"/>',
        f'<text x="{MARGIN}" y="21" font-size="15" font-weight="bold" fill="{TEXT}">{escape(title)}</text>',
        *parts, "</svg>", ""])


def _text(x: float, y: float, text: str, anchor: str = "start", fill: str = TEXT) -> str:
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{fill}">{escape(text)}</text>'


def _line(x1: float, y1: float, x2: float, y2: float, stroke: str) -> str:
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{stroke}"/>'


def _ticks(most: float) -> list[float]:
    """Round numbers from 0 up to `most`."""
    power = 10.0 ** math.floor(math.log10(most / MOST_TICKS))
    step = next(step for step in (power, 2 * power, 5 * power, 10 * power) if most / step <= MOST_TICKS)
    return [step * index for index in range(int(most / step) + 1)]


def number(value: float) -> str:
    """Three digits that count, in groups."""
    if value == 0:
        return "0"
    decimals = max(0, 2 - math.floor(math.log10(abs(value))))
    text = f"{value:,.{decimals}f}".replace(",", "\u202f")
    return text.rstrip("0").rstrip(".") if "." in text else text
