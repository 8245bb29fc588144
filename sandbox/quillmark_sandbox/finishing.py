"""The sentence that answers a finishing request."""

from typing import Optional

from .data import Event, PricingTemplate
from .gallery import Outcome

CATEGORIES_NAMED = 12
LEFT_FILES_NAMED = 5


def sentence(event: Event, pricing: Optional[PricingTemplate], outcome: Outcome) -> str:
    """Tells what was processed, what it replaced, and what was left in place and why."""
    sentences = [_processed(event, pricing, outcome)]
    if outcome.replaced:
        replaced = _count(
            outcome.replaced, "of them replaces an earlier photograph", "of them replace earlier photographs"
        )
        sentences.append(f"{replaced}.")
    if outcome.left:
        sentences.append(_left(outcome.left))
    return " ".join(sentences)


def _processed(event: Event, pricing: Optional[PricingTemplate], outcome: Outcome) -> str:
    total = sum(outcome.processed.values())
    if not total:
        photographs = _count(outcome.in_gallery, "photograph", "photographs")
        return f"No new images of {event.name} were found; its gallery holds {photographs}."
    images = _count(total, f"image of {event.name} was", f"images of {event.name} were")
    prices = f"with {pricing.name} prices" if pricing else "without prices"
    return f"{images} processed {prices}: {_by_category(outcome.processed)}."


def _by_category(processed: dict[str, int]) -> str:
    named = [f"{count} in {category}" for category, count in list(processed.items())[:CATEGORIES_NAMED]]
    others = list(processed.values())[CATEGORIES_NAMED:]
    if others:
        named.append(f"{sum(others)} in {_count(len(others), 'further category', 'further categories')}")
    return ", ".join(named)


def _left(left: list[tuple[str, str]]) -> str:
    named = ", ".join(f"{path} ({reason})" for path, reason in left[:LEFT_FILES_NAMED])
    more = f" and {len(left) - LEFT_FILES_NAMED} more" if len(left) > LEFT_FILES_NAMED else ""
    return f"{_count(len(left), 'file was', 'files were')} left in place: {named}{more}."


def _count(number: int, one: str, many: str) -> str:
    return f"{number or 'no'} {one if number == 1 else many}"
