"""The state folder: held by one sandbox at a time, and told to clients by a configuration file."""

import fcntl
import os
from pathlib import Path
from typing import IO

from .certificates import write_private
from .errors import StartError

LOCK_FILE = "lock"
CONFIGURATION_FILE = "service.ini"
IDLE_TIMEOUT_S = 60
# What stands in a settings file's value without quotes.
PLAIN_CHARACTERS = frozenset("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+:")


class StateFolder:
    """Makes the folder where it doesn't exist, and holds it until `release`."""

    def __init__(self, path: Path) -> None:
        self.path = path.absolute()
        self.path.mkdir(mode=0o700, parents=True, exist_ok=True)
        self._lock = self._hold()

    def _hold(self) -> IO[bytes]:
        lock = open(self.path / LOCK_FILE, "ab")
        os.chmod(lock.fileno(), 0o600)
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError as error:
            lock.close()
            raise StartError(f"{self.path} is in use by another sandbox") from error
        return lock

    def release(self) -> None:
        self._lock.close()

    def write_configuration(
        self, web_host: str, web_port: int, ftp_host: str, ftp_port: int, authority_file: Path, ftps: bool
    ) -> Path:
        """Writes how clients reach this sandbox under the service's own names; returns the file."""
        connect_to = f"{web_host}:443:127.0.0.1:{web_port}, {ftp_host}:21:127.0.0.1:{ftp_port}"
        lines = [
            "[service]",
            f"webHost={_quoted(web_host)}",
            f"ftpHost={_quoted(ftp_host)}",
            "[transport]",
            f"connectTo={_quoted(connect_to)}",
            f"caFile={_quoted(str(authority_file))}",
            f"ftpSecurity={'required' if ftps else 'plain'}",
            f"idleTimeout={IDLE_TIMEOUT_S}",
        ]
        file = self.path / CONFIGURATION_FILE
        write_private(file, "".join(f"{line}\n" for line in lines).encode("utf-8", "surrogateescape"))
        return file


def _quoted(value: str) -> str:
    if PLAIN_CHARACTERS.issuperset(value):
        return value
    escaped = value.replace("\\", "\\\\").replace('"', '\\"')
    return f'"{escaped}"'
