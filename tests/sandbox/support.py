"""A sandbox of a test's own, and clients for it."""

import ftplib
import http.client
import io
import itertools
import json
import os
import random
import resource
import select
import shutil
import signal
import socket
import ssl
import subprocess
import tempfile
import time
import unittest
import xml.etree.ElementTree as ElementTree
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any, Callable, Optional

from PIL import Image

SERVE = Path(__file__).resolve().parents[2] / "sandbox" / "serve"
WEB_HOST = "www.quillmark.example"
DEADLINE_S = 60
EVENTS = 30


def data() -> dict[str, Any]:
    """Ann, with an event for each test that wants one of its own, and Ben, whose names are hard to write."""
    categories = [{"id": "1", "name": "Ceremony"}, {"id": "2", "name": "Party"}]
    events = [
        {"id": f"e{number}", "name": f"Wedding {number}", "categories": categories}
        for number in range(EVENTS)
    ]
    return {
        "users": [
            {
                "id": "1001",
                "login": "ann",
                "password": "ann's password",
                "displayName": "Ann Smith",
                "highResolution": True,
                "events": events,
                "pricingTemplates": [{"id": "5", "name": "Standard"}],
            },
            {
                "id": "1002",
                "login": "ben+zoë@example",
                "password": "50%+=ü",
                "displayName": "Ben & <Zoë>",
                "highResolution": False,
                "events": [
                    {
                        "id": "b1",
                        "name": "<b>\"Łódź\" & 'Kraków'</b>",
                        "categories": [{"id": "1", "name": "<写真>"}],
                    },
                    {"id": "b2", "name": "Nothing yet", "categories": []},
                ],
                "pricingTemplates": [{"id": "6", "name": "<i>Prints</i> & more"}],
            },
        ]
    }


def jpeg(width: int = 60, height: int = 40, seed: int = 0, **options: Any) -> bytes:
    """A JPEG file of noise, different for each seed."""
    noise = Image.frombytes("RGB", (width, height), random.Random(seed).randbytes(width * height * 3))
    file = io.BytesIO()
    noise.save(file, "JPEG", **options)
    return file.getvalue()


def wait_until(condition: Callable[[], bool]) -> None:
    deadline = time.monotonic() + DEADLINE_S
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("it did not come about in time")
        time.sleep(0.01)


class Sandbox:
    """A running sandbox in a folder of its own."""

    def __init__(self, *options: str) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="quillmark-sandbox-"))
        self.state = self.folder / "state"
        self.data_file = self.folder / "data.json"
        self.data_file.write_text(json.dumps(data()))
        self._options = options
        try:
            self.start()
        except BaseException:
            shutil.rmtree(self.folder)
            raise

    def start(self) -> None:
        command = [SERVE, "--state", self.state, "--data", self.data_file, *self._options]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.ready_line = self._ready_line()
        ready, *values = self.ready_line.split(maxsplit=4)
        assert ready == "ready", self.ready_line
        self.values = dict(value.split("=", 1) for value in values)
        self.https_port, self.ftp_port = int(self.values["https"]), int(self.values["ftp"])
        self.gallery_port = int(self.values["gallery"].rstrip("/").rpartition(":")[2])
        self.authority = self.state / "ca.pem"

    def _ready_line(self) -> str:
        readable, _, _ = select.select([self.process.stdout], [], [], DEADLINE_S)
        line = self.process.stdout.readline().decode() if readable else ""
        if not line:
            self.process.kill()
            raise AssertionError(f"the sandbox did not start: {self.process.communicate()[1].decode()}")
        return line.rstrip("\n")

    def stop(self, with_signal: int = signal.SIGTERM) -> int:
        """Ends the sandbox; returns its status. It must have had nothing to complain about."""
        if self.process.poll() is None:
            self.process.send_signal(with_signal)
        _, complaints = self.process.communicate(timeout=DEADLINE_S)
        if complaints:
            raise AssertionError(complaints.decode())
        return self.process.returncode

    @contextmanager
    def disk_full_after(self, length: int) -> Iterator[None]:
        """No file that the sandbox writes can become longer meanwhile."""
        limits = resource.prlimit(self.process.pid, resource.RLIMIT_FSIZE)
        resource.prlimit(self.process.pid, resource.RLIMIT_FSIZE, (length, limits[1]))
        try:
            yield
        finally:
            resource.prlimit(self.process.pid, resource.RLIMIT_FSIZE, limits)

    def processor_seconds(self) -> float:
        """The time for which the sandbox has kept a processor busy: proc(5), fields 14 and 15 of stat."""
        fields = Path(f"/proc/{self.process.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def remove(self) -> None:
        try:
            self.stop()
        finally:
            shutil.rmtree(self.folder)

    def tls(self) -> ssl.SSLContext:
        return ssl.create_default_context(cafile=str(self.authority))

    def secure_socket(self, host: str = WEB_HOST) -> ssl.SSLSocket:
        plain = socket.create_connection(("127.0.0.1", self.https_port), timeout=DEADLINE_S)
        return self.tls().wrap_socket(plain, server_hostname=host)

    def https(self, host: str = WEB_HOST) -> http.client.HTTPConnection:
        """A verified connection to the service under one of its names."""
        connection = http.client.HTTPConnection(host)
        connection.sock = self.secure_socket(host)
        return connection

    def http(self) -> http.client.HTTPConnection:
        return http.client.HTTPConnection("127.0.0.1", self.gallery_port, timeout=DEADLINE_S)

    def get(self, path: str) -> tuple[int, bytes]:
        """The status and the body of an answer over HTTPS."""
        return ask(self.https(), path)[::2]

    def gallery(self, path: str) -> tuple[int, dict[str, str], bytes]:
        return ask(self.http(), path)

    def login(self, user: str = "ann", password: str = "ann%27s%20password") -> tuple[str, str]:
        """The user id and a fresh token, from percent-encoded credentials."""
        status, body = self.get(f"/instantupload/login.php?user={user}&pwd={password}")
        answer = ElementTree.fromstring(body)
        assert (status, answer.findtext("Success")) == (200, "1"), (status, body)
        return answer.findtext("UserId", ""), answer.findtext("Password", "")

    def finish(
        self, event: str, pricing: str = "0", login: Optional[tuple[str, str]] = None
    ) -> tuple[int, str]:
        """The status of a finishing request, and its sentence if there is one."""
        user, token = login or self.login()
        query = f"uid={user}&pwd={token}&id={event}&pptid={pricing}"
        status, body = self.get(f"/instantupload/processimages.php?{query}")
        return status, ElementTree.fromstring(body).findtext("Result", "") if status == 200 else ""

    def records(self) -> dict[str, list[dict[str, Any]]]:
        return json.loads(self.gallery("/gallery.json")[2])

    def ftp(self, user: str = "ann", password: str = "ann's password") -> ftplib.FTP:
        client = ftplib.FTP(timeout=DEADLINE_S, encoding="utf-8")
        client.connect("127.0.0.1", self.ftp_port)
        try:
            client.login(user, password)
        except ftplib.Error:
            client.close()
            raise
        return client

    def upload(self, event: str, category: str, files: dict[str, bytes]) -> None:
        with self.ftp() as client:
            for folder in (event, f"{event}/{category}"):
                try:
                    client.mkd(folder)
                except ftplib.error_perm as error:
                    assert str(error).startswith("550"), error
            for name, content in files.items():
                client.storbinary(f"STOR {event}/{category}/{name}", io.BytesIO(content))

    def home(self, user_id: str = "1001") -> Path:
        return self.state / "ftp" / user_id


def ask(
    connection: http.client.HTTPConnection, path: str, **request: Any
) -> tuple[int, dict[str, str], bytes]:
    """Sends a GET and closes the connection; returns status, headers and body."""
    try:
        connection.request("GET", path, **request)
        answer = connection.getresponse()
        return answer.status, dict(answer.getheaders()), answer.read()
    finally:
        connection.close()


class SandboxTest(unittest.TestCase):
    """Tests that share a sandbox; each takes an event of its own."""

    options: tuple[str, ...] = ()
    sandbox: Sandbox
    _events: "itertools.count[int]"

    @classmethod
    def setUpClass(cls) -> None:
        cls.sandbox = Sandbox(*cls.options)
        cls.addClassCleanup(cls.sandbox.remove)
        cls._events = itertools.count()

    def new_event(self) -> str:
        number = next(self._events)
        assert number < EVENTS
        return f"e{number}"
