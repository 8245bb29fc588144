"""The XML documents that the service's four endpoints answer with."""

import re
from collections.abc import Iterable
from xml.sax.saxutils import escape, quoteattr

from .data import Category, Event, PricingTemplate, User

DECLARATION = '<?xml version="1.0" encoding="UTF-8"?>\n'
# Characters outside XML 1.0's production [2] can't stand in a document, not even escaped.
NOT_IN_XML = re.compile("[^\t\n\r\u0020-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]")


def login_accepted(user: User, token: str) -> bytes:
    return _document(
        "<Login>"
        + _element("Success", "1")
        + _element("UserId", user.id)
        + _element("Password", token)
        + _element("LoggedInName", user.display_name)
        + _element("AllowHighResUploads", "1" if user.high_resolution else "0")
        + "</Login>"
    )


def login_refused() -> bytes:
    return _document("<Login>" + _element("Success", "0") + "</Login>")


def event_list(user: User) -> bytes:
    return _document(
        "<Events>"
        + _named("Event", user.events)
        + _named("PricingTemplate", user.pricing_templates)
        + "</Events>"
    )


def category_list(event: Event) -> bytes:
    return _document("<Categories>" + _named("Category", event.categories) + "</Categories>")


def finished(sentence: str) -> bytes:
    return _document("<Information>" + _element("Result", sentence) + "</Information>")


def _named(tag: str, records: Iterable[Event | PricingTemplate | Category]) -> str:
    return "".join(
        f"<{tag} id={quoteattr(record.id)}>{_element('Name', record.name)}</{tag}>" for record in records
    )


def _element(tag: str, text: str) -> str:
    return f"<{tag}>{escape(NOT_IN_XML.sub(chr(0xFFFD), text))}</{tag}>"


def _document(body: str) -> bytes:
    return (DECLARATION + body + "\n").encode()
