"""The users' FTP folders: a file gets its name once it is complete, and is taken away only unchanged."""

import os
import shutil
import tempfile
import threading
from contextlib import suppress
from pathlib import Path
from typing import IO

from .data import User

USERS_FOLDER = "ftp"
INCOMING_FOLDER = "incoming"


class Uploads:
    """The users' folders, and the private one where uploads collect. Safe to use from any thread."""

    def __init__(self, state_folder: Path, users: tuple[User, ...]) -> None:
        self._users = state_folder / USERS_FOLDER
        self._incoming = state_folder / INCOMING_FOLDER
        # Held wherever a name gets another file, so that `remove_if_same` can't take a newer one.
        self._names = threading.Lock()
        self._incoming.mkdir(exist_ok=True)
        for leftover in self._incoming.iterdir():
            leftover.unlink()
        for user in users:
            self.home(user).mkdir(parents=True, exist_ok=True)

    def home(self, user: User) -> Path:
        return self._users / user.id

    def receive(self, target: str) -> "IncomingFile":
        """Starts an upload to a path in an existing folder; OSError tells why it can't be stored there."""
        if not os.path.isdir(os.path.dirname(target)):
            raise FileNotFoundError(2, os.strerror(2), target)
        with suppress(FileNotFoundError):
            if not os.path.isfile(target) and os.lstat(target):
                raise IsADirectoryError(21, os.strerror(21), target)
        descriptor, path = tempfile.mkstemp(dir=self._incoming)
        return IncomingFile(self, target, os.fdopen(descriptor, "wb"), Path(path))

    def rename(self, source: str, target: str) -> None:
        with self._names:
            os.rename(source, target)

    def put_in_place(self, source: Path, target: str) -> None:
        with self._names:
            os.replace(source, target)

    def copy_out(self, source: Path, target: Path) -> os.stat_result:
        """Gives a stored file a second name (a copy, where there are no links); tells which file it was."""
        try:
            os.link(source, target, follow_symlinks=False)
            return target.stat()
        except FileNotFoundError:
            raise
        except OSError:
            with open(source, "rb") as original, open(target, "xb") as copy:
                shutil.copyfileobj(original, copy)
                os.fsync(copy.fileno())
                return os.fstat(original.fileno())

    def remove_if_same(self, path: Path, seen: os.stat_result) -> None:
        """Removes a stored file, unless another one has taken its name since it was seen."""
        with self._names, suppress(FileNotFoundError):
            if os.path.samestat(path.lstat(), seen):
                path.unlink()


class IncomingFile:
    """An upload on its way: a private file that `keep` gives its name, and that is gone without it."""

    def __init__(self, uploads: Uploads, target: str, file: IO[bytes], path: Path) -> None:
        self.name = target
        self._uploads = uploads
        self._file = file
        self._path = path

    @property
    def closed(self) -> bool:
        return self._file.closed

    def write(self, data: bytes) -> None:
        self._file.write(data)

    def keep(self) -> None:
        """Ends the upload as complete. OSError if it could not be stored; the file is gone then."""
        try:
            self._file.close()
            self._uploads.put_in_place(self._path, self.name)
        finally:
            self._path.unlink(missing_ok=True)

    def close(self) -> None:
        """Gives the upload up."""
        with suppress(OSError):
            self._file.close()
        self._path.unlink(missing_ok=True)

    def __del__(self) -> None:
        # A client that changes its mind before the first byte makes the library forget the file.
        self.close()
