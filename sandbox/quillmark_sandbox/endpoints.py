"""The service's four endpoints: from a request's query to its answer."""

from dataclasses import dataclass
from http import HTTPStatus
from urllib.parse import unquote_to_bytes

from . import answers
from .data import NO_PRICING, User
from .finishing import sentence
from .gallery import Gallery
from .logins import Logins


class Refusal(Exception):
    """A request that gets no document."""

    def __init__(self, status: HTTPStatus, reason: str) -> None:
        super().__init__(reason)
        self.status = status


@dataclass(frozen=True)
class Query:
    """A query's values. Those that were sent verbatim and those that were percent-encoded read the same."""

    values: dict[str, str]

    @classmethod
    def parse(cls, text: str) -> "Query":
        values = {}
        for pair in text.split("&"):
            key, _, value = pair.partition("=")
            try:
                # "+" stands for itself: clients write values verbatim, and a password may hold one.
                values[key] = unquote_to_bytes(value).decode()
            except UnicodeDecodeError as error:
                raise Refusal(HTTPStatus.BAD_REQUEST, "The query is not UTF-8.") from error
        return cls(values)

    def __getitem__(self, key: str) -> str:
        return self.values.get(key, "")


class Endpoints:
    """Answers the four requests. Safe to use from any thread."""

    def __init__(self, logins: Logins, gallery: Gallery) -> None:
        self._logins = logins
        self._gallery = gallery
        self._by_path = {
            "/instantupload/login.php": self._login,
            "/instantupload/eventlist.php": self._event_list,
            "/instantupload/categorylist.php": self._category_list,
            "/instantupload/processimages.php": self._process_images,
        }

    def answer(self, path: str, query: str) -> bytes:
        """The answer's document. Refusal for any other path, and for what the user may not do."""
        endpoint = self._by_path.get(path)
        if not endpoint:
            raise Refusal(HTTPStatus.NOT_FOUND, "There is nothing here.")
        return endpoint(Query.parse(query))

    def _login(self, query: Query) -> bytes:
        user = self._logins.user_with_password(query["user"], query["pwd"])
        return (
            answers.login_accepted(user, self._logins.issue_token(user)) if user else answers.login_refused()
        )

    def _event_list(self, query: Query) -> bytes:
        return answers.event_list(self._user(query))

    def _category_list(self, query: Query) -> bytes:
        event = self._user(query).event(query["eid"])
        if not event:
            raise Refusal(HTTPStatus.FORBIDDEN, "This is not one of the user's events.")
        return answers.category_list(event)

    def _process_images(self, query: Query) -> bytes:
        user = self._user(query)
        event = user.event(query["id"])
        pricing = user.pricing_template(query["pptid"])
        if not event:
            raise Refusal(HTTPStatus.FORBIDDEN, "This is not one of the user's events.")
        # Nothing is processed at prices that the user did not choose: the uploads stay for a correct request.
        if not pricing and query["pptid"] != NO_PRICING:
            raise Refusal(HTTPStatus.FORBIDDEN, "This is not one of the user's pricing templates.")
        return answers.finished(sentence(event, pricing, self._gallery.process(user, event, pricing)))

    def _user(self, query: Query) -> User:
        user = self._logins.user_with_token(query["uid"], query["pwd"])
        if not user:
            raise Refusal(HTTPStatus.FORBIDDEN, "Log in first.")
        return user
