"""What the tests of faults share: photographs, a service with a relay before its FTP side, a keyring, and the command."""

import hashlib
import json
import os
import pathlib
import resource
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.request

SOURCE = pathlib.Path(os.environ["QUILLMARK_SOURCE_DIR"])
sys.path.insert(0, str(SOURCE / "tests" / "end_to_end"))

from export_test import PASSWORD, service_data  # noqa: E402
from harness import BUILD, DEADLINE, EXPORT, Sandbox, folder, photograph  # noqa: E402

SHIM = BUILD / "tests" / "reliability" / "libfault_shim.so"
LOCK_KEYRING = [
    "dbus-send", "--session", "--print-reply", "--dest=org.freedesktop.secrets", "/org/freedesktop/secrets",
    "org.freedesktop.Secret.Service.Lock", "array:objpath:/org/freedesktop/secrets/aliases/default",
]


class Relay:
    """Stands before an FTP server's control port. `on_command(verb, count)` is called before the `count`-th command of
    that name goes on to the server; what it does has happened when the server hears of the command. `on_reply` is
    called with the same and a function that delivers what the server has replied."""

    def __init__(self, port: int):
        self.on_command = None
        self.on_reply = None
        self._last = ("", 0)
        self.counts: dict[str, int] = {}
        self._server_port = port
        self._open: list[socket.socket] = []
        self._listen(0)
        self.port = self._listener.getsockname()[1]

    def _listen(self, port: int):
        self._listener = socket.create_server(("127.0.0.1", port))
        threading.Thread(target=self._accept, daemon=True).start()

    def mend(self):
        """Brings the network back after a cut."""
        self._open.clear()
        self._listen(self.port)

    def cut(self):
        """Takes the network away: nothing goes on, and nobody answers any more."""
        for one in [self._listener, *self._open]:
            try:
                one.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
            one.close()

    def _accept(self):
        while True:
            try:
                client, _ = self._listener.accept()
                server = socket.create_connection(("127.0.0.1", self._server_port))
            except OSError:
                return
            self._open += [client, server]
            threading.Thread(target=self._commands, args=(client, server), daemon=True).start()
            threading.Thread(target=self._replies, args=(server, client), daemon=True).start()

    def _commands(self, client: socket.socket, server: socket.socket):
        try:
            with client.makefile("rb") as lines:
                for line in lines:
                    verb = line.split()[0].decode("ascii", "replace").upper() if line.strip() else ""
                    self.counts[verb] = self.counts.get(verb, 0) + 1
                    self._last = (verb, self.counts[verb])
                    if self.on_command:
                        self.on_command(*self._last)
                    server.sendall(line)
            server.shutdown(socket.SHUT_WR)
        except (OSError, ValueError):
            pass

    def _replies(self, server: socket.socket, client: socket.socket):
        try:
            while piece := server.recv(4096):
                if self.on_reply:
                    self.on_reply(*self._last, lambda: client.sendall(piece))
                else:
                    client.sendall(piece)
            client.shutdown(socket.SHUT_WR)
        except OSError:
            pass


class Keyring:
    """A session bus with an unlocked keyring of its own."""

    def __init__(self):
        self._process = subprocess.Popen(
            [SOURCE / "tests" / "support" / "with-keyring", "unlocked", "sh", "-c",
             'echo "$DBUS_SESSION_BUS_ADDRESS"; cat >/dev/null'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.environment = {"DBUS_SESSION_BUS_ADDRESS": self._process.stdout.readline().strip()}

    def lock(self):
        subprocess.run(LOCK_KEYRING, check=True, stdout=subprocess.DEVNULL, env={**os.environ, **self.environment})

    def end(self):
        self._process.stdin.close()
        self._process.wait(DEADLINE)
        self._process.stdout.close()


class Outcome:
    """What a run of quillmark-export has said, and its status."""

    def __init__(self, status: int, lines: list[dict], stderr: str):
        self.status, self.lines, self.stderr = status, lines, stderr

    def events(self, kind: str) -> list[dict]:
        return [line for line in self.lines if line["event"] == kind]

    @property
    def outcome(self) -> str:
        return self.lines[-1]["outcome"]

    @property
    def critical(self) -> list[str]:
        return [line["message"] for line in self.events("alert") if line["style"] == "critical"]

    @property
    def asked_for(self) -> list[str]:
        return [line["call"] for line in self.events("host")]

    def __str__(self):
        return f"status {self.status}\n{self.stderr}\n" + "\n".join(map(str, self.lines))


class Scene(unittest.TestCase):
    """One photographer's machine, with photographs, and the service behind a relay."""

    PHOTOGRAPHS = 4
    SIZE = (400, 300)
    IDLE_TIMEOUT = 20
    KEYRING = True

    @classmethod
    def setUpClass(cls):
        cls.keyring = Keyring() if cls.KEYRING else None

    @classmethod
    def tearDownClass(cls):
        if cls.keyring:
            cls.keyring.end()

    def setUp(self):
        self.here = self.working = self.enterContext(folder())
        self.home = self.here / "home"
        self.temporary = self.here / "tmp"
        self.originals = self.here / "Smith"
        for made in (self.home, self.temporary, self.originals):
            made.mkdir()
        self.images = [photograph(self.originals / f"{number}.jpg", *self.SIZE) for number in range(self.PHOTOGRAPHS)]
        self._fingerprints = self._fingerprint()
        self.sandbox = self.enterContext(Sandbox(self.here / "state", data=service_data()))
        self.relay = Relay(self.sandbox.ftp_port)
        self.addCleanup(self.relay.cut)
        self.config = self.here / "service.ini"
        self.configure(self.relay.port)
        self.password_file = self.here / "password"
        self.password_file.write_text(PASSWORD + "\n")
        self.process = None
        self.trigger = self.here / "now"

    def configure(self, ftp_port: int, idle_timeout: int | None = None):
        text = self.sandbox.config.read_text().replace(f"127.0.0.1:{self.sandbox.ftp_port}", f"127.0.0.1:{ftp_port}")
        kept = [line for line in text.splitlines() if not line.startswith("idleTimeout")]
        self.config.write_text("\n".join([*kept, f"idleTimeout={idle_timeout or self.IDLE_TIMEOUT}", ""]))

    # --- Running ---

    def export(self, *options, **how) -> Outcome:
        return self.run_command("--user", "ann", "--password-file", self.password_file, "--remember", "--event", "77",
                                "--category", "Ceremony", *options, *self.images, **how)

    def resume(self, **how) -> Outcome:
        return self.run_command("--user", "ann", "--password-file", self.password_file, "--remember", "--resume", **how)

    def run_command(self, *arguments, faults: dict | None = None, on_line=None, timeout: float = DEADLINE,
                    descriptors: int | None = None) -> Outcome:
        """`faults`: what the shim is told. `on_line` sees each line of the output as it comes. `descriptors`: as many the
        process may have open."""
        limit = (lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (descriptors, descriptors))) if descriptors else None
        lines = []
        with tempfile.TemporaryFile("w+") as stderr:
            self.process = subprocess.Popen(
                [EXPORT, "--json", *map(str, arguments)], env=self.environment(faults or {}), stdin=subprocess.DEVNULL,
                stdout=subprocess.PIPE, stderr=stderr, text=True, preexec_fn=limit,
                cwd=self.working)
            deadline = threading.Timer(timeout, self.process.kill)
            deadline.start()
            try:
                for line in self.process.stdout:
                    lines.append(json.loads(line))
                    if on_line:
                        on_line(lines[-1])
                status = self.process.wait()
            finally:
                deadline.cancel()
                self.process.stdout.close()
            stderr.seek(0)
            return Outcome(status, lines, stderr.read())

    def environment(self, faults: dict) -> dict:
        environment = {
            **os.environ, **(self.keyring.environment if self.keyring else {}),
            **{key: str(value) for key, value in faults.items()},
            "QUILLMARK_SERVICE_CONFIG": str(self.config), "HOME": str(self.home), "TMPDIR": str(self.temporary),
            "XDG_CONFIG_HOME": str(self.home / "config"), "XDG_DATA_HOME": str(self.home / "data"),
            "XDG_CACHE_HOME": str(self.home / "cache"), "XDG_STATE_HOME": str(self.home / "state"), "LANG": "C.UTF-8",
        }
        if faults:
            environment["LD_PRELOAD"] = str(SHIM)
        return environment

    # --- What must hold ---

    def prepared(self) -> list[str]:
        """The prepared files that lie in the temporary folder."""
        return sorted(path.name for path in self.temporary.rglob("*.jpg"))

    def arrived(self) -> list[str]:
        """What the service's FTP side has confirmed, processed or not."""
        gallery = self._gallery()
        return sorted(entry["name"] for entry in [*gallery["photographs"], *gallery["waiting"]])

    def processed(self) -> list[str]:
        return sorted(entry["name"] for entry in self._gallery()["photographs"])

    def _gallery(self) -> dict:
        with urllib.request.urlopen(self.sandbox.gallery.rstrip("/") + "/gallery.json", timeout=10) as answer:
            return json.load(answer)

    @property
    def names(self) -> list[str]:
        return sorted(image.name for image in self.images)

    def expect_originals_untouched(self):
        self.assertEqual(self._fingerprint(), self._fingerprints)

    def expect_failed(self, run: Outcome, *critical: str):
        """It has failed, says so by these alerts, and has not had the service process half an export."""
        self.assertEqual((run.status, run.outcome), (1, "failed"), run)
        self.assertEqual(run.critical, list(critical), run)
        self.assertNotIn("shouldFinishExport", run.asked_for, run)
        self.assertEqual(self.processed(), [], run)
        self.expect_originals_untouched()

    def expect_nothing_deleted_unconfirmed(self, run: Outcome):
        """What was prepared lies in the temporary folder still, or the server has confirmed it."""
        written = {line["name"] for line in run.events("image") if line["outcome"] == "prepared"}
        self.assertEqual(written - set(self.arrived()) - set(self.prepared()), set(), run)

    def expect_whole(self, run: Outcome):
        """Every photograph has been processed, once."""
        self.assertEqual((run.status, run.outcome), (0, "finished"), run)
        self.assertEqual(self.processed(), self.names, run)
        self.expect_originals_untouched()

    def expect_resumable(self):
        """Once the fault is gone, the next run brings what is left: nothing was lost, and nothing comes twice."""
        self.relay.on_command = self.relay.on_reply = None
        self.expect_whole(self.resume())

    def _fingerprint(self) -> dict[str, str]:
        return {path.name: hashlib.sha256(path.read_bytes()).hexdigest() for path in sorted(self.originals.iterdir())}

    def wait_until(self, condition):
        deadline = time.monotonic() + DEADLINE
        while not condition():
            self.assertLess(time.monotonic(), deadline, "waited in vain")
            time.sleep(0.01)
