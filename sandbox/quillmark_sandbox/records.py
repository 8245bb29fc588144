"""The gallery's records, kept in SQLite."""

import sqlite3
from collections.abc import Iterator
from contextlib import closing, contextmanager
from dataclasses import asdict, dataclass, fields
from pathlib import Path

from .errors import StartError

DATABASE_FILE = "gallery.sqlite"
BUSY_TIMEOUT_S = 30


@dataclass(frozen=True)
class Photograph:
    """A processed photograph. One per user, event, category and name."""

    user_id: str
    user: str
    event: str
    event_name: str
    category: str
    name: str
    width: int
    height: int
    bytes: int
    sha256: str
    pptid: str
    pricing_name: str
    processed_at: str
    stored_as: str


COLUMNS = tuple(field.name for field in fields(Photograph))
KEY = "(user_id, event, category, name)"
SCHEMA = f"""
CREATE TABLE IF NOT EXISTS photographs (
    user_id TEXT NOT NULL,
    user TEXT NOT NULL,
    event TEXT NOT NULL,
    event_name TEXT NOT NULL,
    category TEXT NOT NULL,
    name TEXT NOT NULL,
    width INTEGER NOT NULL,
    height INTEGER NOT NULL,
    bytes INTEGER NOT NULL,
    sha256 TEXT NOT NULL,
    pptid TEXT NOT NULL,
    pricing_name TEXT NOT NULL,
    processed_at TEXT NOT NULL,
    stored_as TEXT NOT NULL UNIQUE,
    PRIMARY KEY {KEY}
) STRICT
"""
SELECT = f"SELECT {', '.join(COLUMNS)} FROM photographs"
ORDER = "ORDER BY user, event, category, name"
REPLACE = (
    f"REPLACE INTO photographs ({', '.join(COLUMNS)}) VALUES ({', '.join(f':{name}' for name in COLUMNS)})"
)
STORED_AS = f"SELECT stored_as FROM photographs WHERE {KEY} = (:user_id, :event, :category, :name)"


class Records:
    """The photographs of the gallery. Safe to use from any thread."""

    def __init__(self, folder: Path) -> None:
        self._database = folder / DATABASE_FILE
        try:
            with self._connection() as connection:
                # Pages are shown while a finishing request writes.
                connection.execute("PRAGMA journal_mode = WAL")
                connection.execute(SCHEMA)
                connection.execute(f"{SELECT} LIMIT 0")
        except sqlite3.Error as error:
            raise StartError(f"{self._database}: {error}") from error

    def all(self) -> list[Photograph]:
        with self._connection() as connection:
            return [Photograph(*row) for row in connection.execute(f"{SELECT} {ORDER}")]

    def of_event(self, user_id: str, event: str) -> list[Photograph]:
        with self._connection() as connection:
            rows = connection.execute(f"{SELECT} WHERE (user_id, event) = (?, ?) {ORDER}", (user_id, event))
            return [Photograph(*row) for row in rows]

    def is_stored(self, stored_as: str) -> bool:
        with self._connection() as connection:
            found = connection.execute("SELECT 1 FROM photographs WHERE stored_as = ?", (stored_as,))
            return found.fetchone() is not None

    def put(self, photographs: list[Photograph]) -> list[str]:
        """Records all or none, on disk when this returns; returns the files of those that were replaced."""
        replaced: list[str] = []
        with self._connection() as connection:
            for photograph in photographs:
                record = asdict(photograph)
                replaced += [row[0] for row in connection.execute(STORED_AS, record)]
                connection.execute(REPLACE, record)
        return replaced

    @contextmanager
    def _connection(self) -> Iterator[sqlite3.Connection]:
        """A connection whose changes are committed together, or not at all if an exception ends the block."""
        with closing(sqlite3.connect(self._database, timeout=BUSY_TIMEOUT_S)) as connection:
            connection.execute("PRAGMA synchronous = FULL")
            with connection:
                yield connection
