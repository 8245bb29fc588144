"""The gallery: uploads become photographs, with their files in a folder and their records beside it."""

import hashlib
import os
import re
import secrets
import threading
from collections import Counter
from collections.abc import Iterator
from dataclasses import dataclass
from datetime import datetime, timezone
from pathlib import Path
from typing import Optional

from .data import NO_PRICING, Event, PricingTemplate, ServiceData, User
from .jpeg import NotAnImage, Size, read_size
from .records import Photograph, Records
from .uploads import Uploads

GALLERY_FOLDER = "gallery"
# How Python reads those bytes of a file name that are not UTF-8.
NOT_UTF8 = re.compile("[\ud800-\udfff]")


@dataclass(frozen=True)
class WaitingFile:
    """An uploaded file that no finishing request has processed; without a size if it is no photograph."""

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
    """An upload that has a second name in the gallery's folder."""

    upload: Path
    seen: os.stat_result
    photograph: Photograph


class Gallery:
    """Moves uploads into the gallery and tells what is in it. Safe to use from any thread."""

    def __init__(self, state_folder: Path, data: ServiceData, uploads: Uploads) -> None:
        self._data = data
        self._uploads = uploads
        self._records = Records(state_folder)
        self._folder = state_folder / GALLERY_FOLDER
        self._folder.mkdir(exist_ok=True)
        self._forget_unrecorded_files()
        # One finishing request at a time: a second one for the same event finds what the first has left.
        self._processing = threading.Lock()

    def close(self) -> None:
        """Waits for a finishing request that is under way, and lets none begin."""
        self._processing.acquire()

    def process(self, user: User, event: Event, pricing: Optional[PricingTemplate]) -> Outcome:
        """Moves the event's uploads into the gallery. All stay in place until their records are committed."""
        with self._processing:
            candidates: list[_Candidate] = []
            try:
                left = self._collect(candidates, user, event, pricing)
                replaced = self._records.put([candidate.photograph for candidate in candidates])
            except BaseException:
                for candidate in candidates:
                    (self._folder / candidate.photograph.stored_as).unlink(missing_ok=True)
                raise
            for candidate in candidates:
                self._uploads.remove_if_same(candidate.upload, candidate.seen)
            for stored_as in replaced:
                (self._folder / stored_as).unlink(missing_ok=True)
            in_gallery = len(self._records.of_event(user.id, event.id))
        processed = Counter(candidate.photograph.category for candidate in candidates)
        return Outcome(dict(processed), len(replaced), left, in_gallery)

    def photographs(self) -> list[Photograph]:
        return self._records.all()

    def photographs_of(self, user_id: str, event_id: str) -> list[Photograph]:
        return self._records.of_event(user_id, event_id)

    def photograph_file(self, stored_as: str) -> Optional[Path]:
        return self._folder / stored_as if self._records.is_stored(stored_as) else None

    def waiting_count(self, user: User) -> int:
        """How many uploaded files were not processed."""
        return sum(1 for event in self._event_folders(user) for _ in self._uploaded(user, event))

    def waiting(self) -> list[WaitingFile]:
        """The uploaded files that were not processed. Reads every one of them."""
        return [file for user in self._data.users for file in self._waiting_of(user)]

    def _waiting_of(self, user: User) -> Iterator[WaitingFile]:
        for event in self._event_folders(user):
            for category, path in self._uploaded(user, event):
                try:
                    length, digest = _digest(path)
                    size = _size_or_none(path)
                except FileNotFoundError:
                    continue  # deleted or processed meanwhile
                yield WaitingFile(user.id, user.login, event, category, path.name, length, digest, size)

    def _event_folders(self, user: User) -> list[str]:
        return [folder.name for folder in _folders(self._uploads.home(user))]

    def _uploaded(self, user: User, event_id: str) -> Iterator[tuple[str, Path]]:
        """An event's files and their categories; "" is the event's own folder, where none belongs."""
        folder = self._uploads.home(user) / event_id
        for path in _files(folder):
            yield "", path
        for category in _folders(folder):
            for path in _files(category):
                yield category.name, path

    def _collect(
        self,
        candidates: list[_Candidate],
        user: User,
        event: Event,
        pricing: Optional[PricingTemplate],
    ) -> list[tuple[str, str]]:
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

    def _candidate(
        self, user: User, event: Event, pricing: Optional[PricingTemplate], category: str, path: Path
    ) -> _Candidate:
        """Takes a second name for the upload and looks at that: the file under it can't change any more."""
        if not category:
            raise NotAnImage("not in a category")
        if NOT_UTF8.search(f"{category}{path.name}"):
            raise NotAnImage("its name is not UTF-8")
        taken = self._folder / f"{secrets.token_hex(16)}.jpg"
        seen = self._uploads.copy_out(path, taken)
        try:
            size = read_size(taken)
            length, digest = _digest(taken)
        except BaseException:
            taken.unlink()
            raise
        photograph = Photograph(
            user_id=user.id,
            user=user.login,
            event=event.id,
            event_name=event.name,
            category=category,
            name=path.name,
            width=size.width,
            height=size.height,
            bytes=length,
            sha256=digest,
            pptid=pricing.id if pricing else NO_PRICING,
            pricing_name=pricing.name if pricing else "",
            processed_at=datetime.now(timezone.utc).isoformat(timespec="seconds"),
            stored_as=taken.name,
        )
        return _Candidate(path, seen, photograph)

    def _forget_unrecorded_files(self) -> None:
        """After a crash before a commit: a file that its upload's folder still holds is not needed here."""
        recorded = {photograph.stored_as for photograph in self._records.all()}
        for path in self._folder.iterdir():
            if path.name not in recorded and path.stat().st_nlink > 1:
                path.unlink()


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
