"""The gallery: processed photographs, their files in a folder and their records in SQLite."""

import hashlib
import os
import re
import secrets
import sqlite3
import threading
from collections import Counter
from collections.abc import Iterator
from contextlib import closing, contextmanager
from dataclasses import asdict, dataclass
from datetime import datetime, timezone
from pathlib import Path
from typing import Optional

from .data import NO_PRICING, Event, PricingTemplate, ServiceData, User
from .errors import StartError
from .jpeg import NotAnImage, Size, read_size
from .uploads import Uploads

GALLERY_FOLDER = "gallery"
DATABASE_FILE = "gallery.sqlite"
BUSY_TIMEOUT_S = 30
# How Python reads the bytes of a file name that is not UTF-8.
SURROGATES = re.compile("[\ud800-\udfff]")
SCHEMA = """
CREATE TABLE IF NOT EXISTS photographs (
    id INTEGER PRIMARY KEY,
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
    UNIQUE (user_id, event, category, name)
) STRICT
"""
COLUMNS = ("user_id", "user", "event", "event_name", "category", "name", "width", "height", "bytes", "sha256", "pptid",
           "pricing_name", "processed_at", "stored_as")
RECORD = (f"INSERT INTO photographs ({', '.join(COLUMNS)}) VALUES ({', '.join(':' + column for column in COLUMNS)}) "
          "ON CONFLICT (user_id, event, category, name) DO UPDATE SET "
          + ", ".join(f"{column} = excluded.{column}" for column in COLUMNS))


@dataclass(frozen=True)
class Photograph:
    """A processed photograph."""

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


@dataclass(frozen=True)
class WaitingFile:
    """An uploaded file that no finishing request has processed; without a size where it is no photograph."""

    user_id: str
    user: str
    event: str
    category: str
    name: str
    bytes: int
    sha256: str
    size: Optional[Size]


@dataclass(frozen=True)
class Outcome:
    """What a finishing request did."""

    processed: dict[str, int]  # the number of photographs by category
    replaced: int
    left: list[tuple[str, str]]  # the path inside the event's folder, and why the file stays there
    in_gallery: int  # the event's photographs afterwards


@dataclass(frozen=True)
class _Candidate:
    path: Path
    taken: Path
    seen: os.stat_result
    record: Photograph


class Gallery:
    """Moves uploads into the gallery and tells what is in it. Safe to use from any thread."""

    def __init__(self, state_folder: Path, data: ServiceData, uploads: Uploads) -> None:
        self._data = data
        self._uploads = uploads
        self._folder = state_folder / GALLERY_FOLDER
        self._folder.mkdir(exist_ok=True)
        self._database = state_folder / DATABASE_FILE
        # One finishing request at a time: a second one for the same event finds what the first has left.
        self._processing = threading.Lock()
        try:
            with self._connection() as connection:
                connection.execute("PRAGMA journal_mode = WAL")
                connection.execute(SCHEMA)
                self._forget_unrecorded_files({row[0] for row in connection.execute("SELECT stored_as FROM photographs")})
        except sqlite3.Error as error:
            raise StartError(f"{self._database}: {error}") from error

    def close(self) -> None:
        """Waits for a finishing request that is under way."""
        self._processing.acquire()

    def process(self, user: User, event: Event, pricing: Optional[PricingTemplate]) -> Outcome:
        """Moves the event's uploads into the gallery. Until the records are committed every upload stays in place."""
        with self._processing:
            candidates: list[_Candidate] = []
            try:
                left = self._collect(candidates, user, event, pricing)
                earlier, in_gallery = self._record(user, event, candidates)
            except BaseException:
                for candidate in candidates:
                    candidate.taken.unlink(missing_ok=True)
                raise
            for candidate in candidates:
                self._uploads.remove_if_same(candidate.path, candidate.seen)
            for name in earlier:
                (self._folder / name).unlink(missing_ok=True)
        processed = Counter(candidate.record.category for candidate in candidates)
        return Outcome(dict(processed), len(earlier), left, in_gallery)

    def photographs(self) -> list[Photograph]:
        with self._connection() as connection:
            rows = connection.execute(f"SELECT {', '.join(COLUMNS)} FROM photographs ORDER BY user, event, category, name")
            return [Photograph(*row) for row in rows]

    def photographs_of(self, user_id: str, event_id: str) -> list[Photograph]:
        return [photograph for photograph in self.photographs()
                if (photograph.user_id, photograph.event) == (user_id, event_id)]

    def photograph_file(self, stored_as: str) -> Optional[Path]:
        """The file of a photograph in the gallery."""
        with self._connection() as connection:
            known = connection.execute("SELECT 1 FROM photographs WHERE stored_as = ?", (stored_as,)).fetchone()
        return self._folder / stored_as if known else None

    def waiting_count(self, user: User) -> int:
        """How many uploaded files were not processed."""
        return sum(1 for folder in _folders(self._uploads.home(user)) for _ in self._uploaded(user, folder.name))

    def waiting(self) -> list[WaitingFile]:
        """What was uploaded and not processed."""
        return [waiting for user in self._data.users for waiting in self._waiting_of(user)]

    def _waiting_of(self, user: User) -> Iterator[WaitingFile]:
        for event_folder in _folders(self._uploads.home(user)):
            for category, path in self._uploaded(user, event_folder.name):
                try:
                    length, digest = _digest(path)
                    size = _size_or_none(path)
                except FileNotFoundError:
                    continue
                yield WaitingFile(user.id, user.login, event_folder.name, category, path.name, length, digest, size)

    def _uploaded(self, user: User, event_id: str) -> Iterator[tuple[str, Path]]:
        """The files of an event with their categories; "" is the event's own folder, in which no photograph belongs."""
        folder = self._uploads.home(user) / event_id
        for path in _files(folder):
            yield "", path
        for category in _folders(folder):
            for path in _files(category):
                yield category.name, path

    def _collect(self, candidates: list[_Candidate], user: User, event: Event,
                 pricing: Optional[PricingTemplate]) -> list[tuple[str, str]]:
        """Adds the event's photographs to the candidates; returns the other files and why they are none."""
        left: list[tuple[str, str]] = []
        for category, path in self._uploaded(user, event.id):
            try:
                candidates.append(self._candidate(user, event, pricing, category, path))
            except FileNotFoundError:
                continue  # deleted by its owner meanwhile
            except NotAnImage as error:
                left.append((f"{category}/{path.name}" if category else path.name, str(error)))
        return left

    def _candidate(self, user: User, event: Event, pricing: Optional[PricingTemplate], category: str,
                   path: Path) -> _Candidate:
        """Takes a second name for the upload and looks at that: the file under it can't change any more."""
        if not category:
            raise NotAnImage("not in a category")
        if SURROGATES.search(f"{category}{path.name}"):
            raise NotAnImage("its name is not UTF-8")
        taken = self._folder / f"{secrets.token_hex(16)}.jpg"
        seen = self._uploads.copy_out(path, taken)
        try:
            size = read_size(taken)
            length, digest = _digest(taken)
        except BaseException:
            taken.unlink()
            raise
        record = Photograph(
            user_id=user.id, user=user.login, event=event.id, event_name=event.name, category=category, name=path.name,
            width=size.width, height=size.height, bytes=length, sha256=digest,
            pptid=pricing.id if pricing else NO_PRICING, pricing_name=pricing.name if pricing else "",
            processed_at=datetime.now(timezone.utc).isoformat(timespec="seconds"), stored_as=taken.name)
        return _Candidate(path, taken, seen, record)

    def _record(self, user: User, event: Event, candidates: list[_Candidate]) -> tuple[list[str], int]:
        """Records all or none; returns the files of the photographs that were replaced, and the event's count."""
        earlier: list[str] = []
        with self._connection() as connection:
            for candidate in candidates:
                record = candidate.record
                key = (record.user_id, record.event, record.category, record.name)
                earlier += [row[0] for row in connection.execute(
                    "SELECT stored_as FROM photographs WHERE (user_id, event, category, name) = (?, ?, ?, ?)", key)]
                connection.execute(RECORD, asdict(record))
            count = connection.execute("SELECT count(*) FROM photographs WHERE (user_id, event) = (?, ?)",
                                       (user.id, event.id)).fetchone()[0]
        return earlier, count

    def _forget_unrecorded_files(self, recorded: set[str]) -> None:
        """After a crash before a commit: files that their upload's own folder still holds are not needed here."""
        for path in self._folder.iterdir():
            if path.name not in recorded and path.stat().st_nlink > 1:
                path.unlink()

    @contextmanager
    def _connection(self) -> Iterator[sqlite3.Connection]:
        """A connection whose changes are committed together, or not at all when an exception ends the block."""
        with closing(sqlite3.connect(self._database, timeout=BUSY_TIMEOUT_S)) as connection:
            connection.execute("PRAGMA synchronous = FULL")
            with connection:
                yield connection


def _folders(folder: Path) -> list[Path]:
    return [Path(entry.path) for entry in _entries(folder) if entry.is_dir(follow_symlinks=False)]


def _files(folder: Path) -> list[Path]:
    return [Path(entry.path) for entry in _entries(folder) if entry.is_file(follow_symlinks=False)]


def _entries(folder: Path) -> list[os.DirEntry[str]]:
    try:
        with os.scandir(folder) as entries:
            return sorted(entries, key=lambda entry: entry.name)
    except (FileNotFoundError, NotADirectoryError):
        return []


def _digest(path: Path) -> tuple[int, str]:
    with open(path, "rb") as file:
        digest = hashlib.file_digest(file, "sha256").hexdigest()
        return file.tell(), digest


def _size_or_none(path: Path) -> Optional[Size]:
    try:
        return read_size(path)
    except NotAnImage:
        return None
