"""Users, events, categories and pricing templates: the data file, read once and checked whole."""

import json
import re
from dataclasses import dataclass
from pathlib import Path
from typing import Any, Optional

from .errors import StartError

# Ids become folder names and travel unescaped in queries.
ID_FORM = re.compile(r"[A-Za-z0-9_-]{1,64}")
# "0" in a finishing request means that no pricing template was chosen.
NO_PRICING = "0"
LONGEST_NAME = 200
# Names travel in FTP commands and XML documents: no control characters, line separators, surrogates and
# non-characters.
NOT_IN_NAMES = re.compile("[\x00-\x1f\x7f-\x9f\u2028\u2029\ud800-\udfff\ufffe\uffff]")


@dataclass(frozen=True)
class Category:
    id: str
    name: str


@dataclass(frozen=True)
class PricingTemplate:
    id: str
    name: str


@dataclass(frozen=True)
class Event:
    id: str
    name: str
    categories: tuple[Category, ...]


@dataclass(frozen=True)
class User:
    id: str
    login: str
    password: str
    display_name: str
    high_resolution: bool
    events: tuple[Event, ...]
    pricing_templates: tuple[PricingTemplate, ...]

    def event(self, event_id: str) -> Optional[Event]:
        return next((event for event in self.events if event.id == event_id), None)

    def pricing_template(self, template_id: str) -> Optional[PricingTemplate]:
        return next((template for template in self.pricing_templates if template.id == template_id), None)


@dataclass(frozen=True)
class ServiceData:
    users: tuple[User, ...]

    def user_by_id(self, user_id: str) -> Optional[User]:
        return next((user for user in self.users if user.id == user_id), None)

    def user_by_login(self, login: str) -> Optional[User]:
        return next((user for user in self.users if user.login == login), None)


class FormError(Exception):
    """A value that the data file's form doesn't allow, and where it stands."""


def load(path: Path) -> ServiceData:
    """Reads the data file; StartError names the file, the place and what is wrong there."""
    try:
        document = json.loads(path.read_bytes(), object_pairs_hook=_object_without_repeats)
        return _service(document)
    except OSError as error:
        raise StartError(f"data file {path}: {error.strerror}") from error
    except RecursionError as error:
        raise StartError(f"data file {path}: nested too deeply") from error
    except (ValueError, FormError) as error:
        raise StartError(f"data file {path}: {error}") from error


def _object_without_repeats(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    result = dict(pairs)
    if len(result) != len(pairs):
        raise FormError(f"a key stands twice among {', '.join(repr(key) for key, _ in pairs)}")
    return result


def _service(document: Any) -> ServiceData:
    fields = _fields(document, "the file", {"users": list})
    users = tuple(_user(entry, f"users[{index}]") for index, entry in enumerate(fields["users"]))
    if not users:
        raise FormError("users: at least one is needed")
    _require_distinct([user.id for user in users], "users", "id")
    _require_distinct([user.login for user in users], "users", "login")
    return ServiceData(users)


def _user(value: Any, place: str) -> User:
    fields = _fields(
        value,
        place,
        {
            "id": str,
            "login": str,
            "password": str,
            "displayName": str,
            "highResolution": bool,
            "events": list,
            "pricingTemplates": list,
        },
    )
    if fields["login"].lower() == "anonymous":
        raise FormError(f'{place}.login: "anonymous" is nobody\'s name')
    events = tuple(_event(entry, f"{place}.events[{index}]") for index, entry in enumerate(fields["events"]))
    templates = tuple(
        _pricing_template(entry, f"{place}.pricingTemplates[{index}]")
        for index, entry in enumerate(fields["pricingTemplates"])
    )
    _require_distinct([event.id for event in events], f"{place}.events", "id")
    _require_distinct([template.id for template in templates], f"{place}.pricingTemplates", "id")
    return User(
        id=_id(fields["id"], place),
        login=_name(fields["login"], f"{place}.login"),
        password=_name(fields["password"], f"{place}.password"),
        display_name=_name(fields["displayName"], f"{place}.displayName"),
        high_resolution=fields["highResolution"],
        events=events,
        pricing_templates=templates,
    )


def _event(value: Any, place: str) -> Event:
    fields = _fields(value, place, {"id": str, "name": str, "categories": list})
    categories = tuple(
        _category(entry, f"{place}.categories[{index}]") for index, entry in enumerate(fields["categories"])
    )
    _require_distinct([category.id for category in categories], f"{place}.categories", "id")
    return Event(_id(fields["id"], place), _name(fields["name"], f"{place}.name"), categories)


def _category(value: Any, place: str) -> Category:
    fields = _fields(value, place, {"id": str, "name": str})
    name = _name(fields["name"], f"{place}.name")
    # A category is a folder of the same name on the FTP side.
    if "/" in name or name in (".", ".."):
        raise FormError(f"{place}.name: {name!r} can't be the name of a folder")
    return Category(_id(fields["id"], place), name)


def _pricing_template(value: Any, place: str) -> PricingTemplate:
    fields = _fields(value, place, {"id": str, "name": str})
    if fields["id"] == NO_PRICING:
        raise FormError(f'{place}.id: "{NO_PRICING}" stands for no pricing template')
    return PricingTemplate(_id(fields["id"], place), _name(fields["name"], f"{place}.name"))


def _fields(value: Any, place: str, form: dict[str, type]) -> dict[str, Any]:
    if not isinstance(value, dict):
        raise FormError(f"{place}: an object is needed")
    for key, kind in form.items():
        if key not in value:
            raise FormError(f"{place}: {key!r} is missing")
        if not isinstance(value[key], kind):
            wanted = {str: "a text", bool: "true or false", list: "a list"}[kind]
            raise FormError(f"{place}.{key}: {wanted} is needed")
    for key in value:
        if key not in form:
            raise FormError(f"{place}: {key!r} is not a known key")
    return value


def _id(value: str, place: str) -> str:
    if not ID_FORM.fullmatch(value):
        raise FormError(f"{place}.id: {value!r} is not 1 to 64 of the characters A-Z a-z 0-9 _ -")
    return value


def _name(value: str, place: str) -> str:
    if not value.strip():
        raise FormError(f"{place}: an empty text is not allowed")
    if len(value.encode("utf-8", "surrogatepass")) > LONGEST_NAME:
        raise FormError(f"{place}: longer than {LONGEST_NAME} bytes")
    if NOT_IN_NAMES.search(value):
        raise FormError(f"{place}: control characters are not allowed")
    return value


def _require_distinct(values: list[str], place: str, key: str) -> None:
    for value in values:
        if values.count(value) > 1:
            raise FormError(f"{place}: the {key} {value!r} stands twice")
