"""The gallery's pages. Every text that goes into one is escaped here."""

from html import escape
from itertools import groupby

from .data import User
from .records import Photograph

# Photographs further down a page are loaded when they come into view.
LOADED_AT_ONCE = 12


def photograph_path(photograph: Photograph) -> str:
    return f"/gallery/photographs/{photograph.stored_as}"


def index(users: tuple[User, ...], photographs: list[Photograph], waiting: dict[str, int]) -> bytes:
    """All users' events. `waiting` is the number of unprocessed files by user id."""
    names = {user.id: user.display_name for user in users}
    by_user: dict[str, list[Photograph]] = {user.id: [] for user in users}
    for photograph in photographs:
        by_user.setdefault(photograph.user_id, []).append(photograph)
    sections = [
        _user(user_id, names.get(user_id), own, waiting.get(user_id, 0)) for user_id, own in by_user.items()
    ]
    return _page("Gallery", f"<h1>Gallery</h1>{''.join(sections)}")


def event(by: str, photographs: list[Photograph]) -> bytes:
    """One event's photographs: at least one, in the order of their categories. `by` is their owner's name."""
    name = photographs[0].event_name
    categories = [
        (category, [_figure(photograph, lazy=position >= LOADED_AT_ONCE) for position, photograph in group])
        for category, group in groupby(enumerate(photographs), key=lambda each: each[1].category)
    ]
    links = "".join(
        f'<li><a href="#category-{number}"><bdi>{_text(category)}</bdi> <span>{len(figures)}</span></a></li>'
        for number, (category, figures) in enumerate(categories)
    )
    sections = "".join(
        f'<section id="category-{number}"><h2><bdi>{_text(category)}</bdi></h2>'
        f'<div class="photographs">{"".join(figures)}</div></section>'
        for number, (category, figures) in enumerate(categories)
    )
    return _page(
        name,
        f'<nav class="trail"><a href="/gallery">Gallery</a></nav><h1>{_text(name)}</h1>'
        f'<p class="summary">{_count(len(photographs), "photograph")} by <bdi>{_text(by)}</bdi></p>'
        f'<nav><ul class="categories">{links}</ul></nav>{sections}',
    )


def _user(user_id: str, display_name: str | None, photographs: list[Photograph], waiting: int) -> str:
    name = display_name or (photographs[0].user if photographs else user_id)
    cards = "".join(_card(list(group)) for _, group in groupby(photographs, key=lambda each: each.event))
    body = f'<ul class="events">{cards}</ul>' if cards else '<p class="empty">No photographs yet.</p>'
    note = f'<p class="waiting">{_count(waiting, "uploaded file")} not processed yet.</p>' if waiting else ""
    return f"<section><h2>{_text(name)}</h2>{note}{body}</section>"


def _card(photographs: list[Photograph]) -> str:
    first = photographs[0]
    categories = len({photograph.category for photograph in photographs})
    return (
        f'<li><a href="/gallery/events/{_text(first.user_id)}/{_text(first.event)}">'
        f'{_image(first, "")}<strong><bdi>{_text(first.event_name)}</bdi></strong>'
        f'<span>{_count(len(photographs), "photograph")}, '
        f'{_count(categories, "category", "categories")}</span>'
        "</a></li>"
    )


def _figure(photograph: Photograph, lazy: bool) -> str:
    prices = f"{photograph.pricing_name} prices" if photograph.pricing_name else "no prices"
    image = _image(photograph, photograph.name, lazy)
    return (
        f'<figure><a href="{_text(photograph_path(photograph))}">{image}</a>'
        f"<figcaption><bdi>{_text(photograph.name)}</bdi><span>{photograph.width} × {photograph.height}, "
        f"{_size(photograph.bytes)}, {_text(prices)}</span></figcaption></figure>"
    )


def _image(photograph: Photograph, description: str, lazy: bool = False) -> str:
    loading = ' loading="lazy"' if lazy else ""
    return (
        f'<img src="{_text(photograph_path(photograph))}" alt="{_text(description)}" '
        f'width="{photograph.width}" height="{photograph.height}"{loading}>'
    )


def _size(length: int) -> str:
    return (
        f"{length / 1_000_000:.1f}\u00a0MB"
        if length >= 1_000_000
        else f"{max(1, round(length / 1000))}\u00a0kB"
    )


def _count(number: int, one: str, many: str = "") -> str:
    return f"{number} {one if number == 1 else many or one + 's'}"


def _text(text: str) -> str:
    return escape(text, quote=True)


def _page(title: str, body: str) -> bytes:
    return (
        '<!DOCTYPE html><html lang="en"><head><meta charset="utf-8">'
        '<meta name="viewport" content="width=device-width, initial-scale=1">'
        f"<title>{_text(title)} – Quillmark sandbox</title>"
        '<link rel="stylesheet" href="/gallery/style.css"></head><body>'
        '<header><a href="/gallery">Quillmark</a><span>sandbox</span></header>'
        f"<main>{body}</main></body></html>\n"
    ).encode("utf-8", "replace")
