"""What the web servers serve: the endpoints and the gallery's pages by their paths."""

import json
import re
from http import HTTPStatus
from pathlib import Path

from . import pages
from .data import ServiceData
from .endpoints import Endpoints, Refusal
from .gallery import Gallery, WaitingFile
from .records import Photograph
from .web import Answer

XML = "text/xml; charset=UTF-8"
HTML = "text/html; charset=UTF-8"
CSS = "text/css; charset=UTF-8"
JSON = "application/json"
JPEG = "image/jpeg"
STYLE_FILE = Path(__file__).with_name("gallery.css")
EVENT_PATH = re.compile(r"/gallery/events/([A-Za-z0-9_-]+)/([A-Za-z0-9_-]+)")
PHOTOGRAPH_PATH = re.compile(r"/gallery/photographs/([0-9a-f]+\.jpg)")
# A photograph that replaces another has another address.
FOR_EVER = {"Cache-Control": "private, max-age=31536000, immutable"}


class Site:
    """Routes of the two servers. `host_names` are those under which a browser may ask for the gallery."""

    def __init__(
        self, data: ServiceData, endpoints: Endpoints, gallery: Gallery, host_names: set[str]
    ) -> None:
        self._data = data
        self._endpoints = endpoints
        self._gallery = gallery
        self._host_names = host_names

    def service_and_gallery(self, host: str, path: str, query: str) -> Answer:
        if path == "/gallery.json" or path == "/gallery" or path.startswith("/gallery/"):
            return self.gallery(host, path, query)
        try:
            return Answer(HTTPStatus.OK, XML, self._endpoints.answer(path, query))
        except Refusal as refusal:
            return Answer.text(refusal.status, str(refusal))

    def gallery(self, host: str, path: str, query: str) -> Answer:
        if host not in self._host_names:
            # Another site whose name was pointed at this machine must not read the gallery through a browser.
            return Answer.text(HTTPStatus.MISDIRECTED_REQUEST, "The gallery is not known under this name.")
        if path in ("/", "/gallery"):
            return Answer(HTTPStatus.OK, HTML, self._index())
        if path == "/gallery.json":
            return Answer(HTTPStatus.OK, JSON, self._records())
        if path == "/gallery/style.css":
            return Answer(HTTPStatus.OK, CSS, file=STYLE_FILE)
        if match := EVENT_PATH.fullmatch(path):
            return self._event(*match.groups())
        if match := PHOTOGRAPH_PATH.fullmatch(path):
            file = self._gallery.photograph_file(match[1])
            if file:
                return Answer(HTTPStatus.OK, JPEG, file=file, headers=FOR_EVER)
        return Answer.text(HTTPStatus.NOT_FOUND, "There is nothing here.")

    def _index(self) -> bytes:
        waiting = {user.id: self._gallery.waiting_count(user) for user in self._data.users}
        return pages.index(self._data.users, self._gallery.photographs(), waiting)

    def _event(self, user_id: str, event_id: str) -> Answer:
        photographs = self._gallery.photographs_of(user_id, event_id)
        if not photographs:
            return Answer.text(HTTPStatus.NOT_FOUND, "This event has no photographs.")
        owner = self._data.user_by_id(user_id)
        by = owner.display_name if owner else photographs[0].user
        return Answer(HTTPStatus.OK, HTML, pages.event(by, photographs))

    def _records(self) -> bytes:
        document = {
            "photographs": [_processed(photograph) for photograph in self._gallery.photographs()],
            "waiting": [self._waiting(file) for file in self._gallery.waiting()],
        }
        return json.dumps(document, indent=1).encode()

    def _waiting(self, file: WaitingFile) -> dict[str, object]:
        user = self._data.user_by_id(file.user_id)
        event = user.event(file.event) if user else None
        return {
            "user": file.user,
            "event": file.event,
            "eventName": event.name if event else None,
            "category": file.category,
            "name": file.name,
            "width": file.size.width if file.size else None,
            "height": file.size.height if file.size else None,
            "bytes": file.bytes,
            "sha256": file.sha256,
        }


def _processed(photograph: Photograph) -> dict[str, object]:
    return {
        "user": photograph.user,
        "event": photograph.event,
        "eventName": photograph.event_name,
        "category": photograph.category,
        "name": photograph.name,
        "width": photograph.width,
        "height": photograph.height,
        "bytes": photograph.bytes,
        "sha256": photograph.sha256,
        "pptid": photograph.pptid,
        "processedAt": photograph.processed_at,
        "path": pages.photograph_path(photograph),
    }
