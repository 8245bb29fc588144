"""The pieces of an end-to-end test: a sandbox service, other FTP servers, photographs, and the command line."""

import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import urllib.request
from contextlib import contextmanager

from PIL import Image

SOURCE = pathlib.Path(os.environ["QUILLMARK_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["QUILLMARK_BUILD_DIR"])
EXPORT = BUILD / "host" / "cli" / "quillmark-export"
DEADLINE = 60


@contextmanager
def folder():
    """A folder that goes with its block."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="quillmark-test-"))
    try:
        yield path
    finally:
        shutil.rmtree(path, ignore_errors=True)


class Sandbox:
    """A running sandbox service with the sample data, or with the data given."""

    def __init__(self, state: pathlib.Path, *options: str, data: dict | None = None):
        command = [SOURCE / "sandbox" / "serve", "--state", state, *options]
        if data is not None:
            file = state.parent / "data.json"
            file.write_text(json.dumps(data), encoding="utf-8")
            command += ["--data", file]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        line = self.process.stdout.readline()
        if not line.startswith("ready "):
            raise AssertionError(f"the sandbox did not start: {line!r}")
        values = dict(word.split("=", 1) for word in line.split()[1:])
        self.https_port = int(values["https"])
        self.ftp_port = int(values["ftp"])
        self.gallery = values["gallery"]
        self.config = pathlib.Path(values["config"])

    def photographs(self) -> list[dict]:
        """What the gallery holds, as gallery.json gives it."""
        with urllib.request.urlopen(self.gallery.rstrip("/") + "/gallery.json", timeout=10) as answer:
            return json.load(answer)["photographs"]

    def stop(self) -> int:
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(DEADLINE)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()
        self.process.stdout.close()


class Export:
    """The outcome of a run of quillmark-export with --json: its lines, standard error and status."""

    def __init__(self, config: pathlib.Path, *arguments, password: str = "", timeout: float = DEADLINE, interrupt=None):
        with folder() as home:
            environment = {
                **os.environ,
                "QUILLMARK_SERVICE_CONFIG": str(config),
                "HOME": str(home),
                "XDG_CONFIG_HOME": str(home / "config"),
                "XDG_DATA_HOME": str(home / "data"),
                "XDG_CACHE_HOME": str(home / "cache"),
                "TMPDIR": str(home),
                "LANG": "C.UTF-8",
            }
            process = subprocess.Popen(
                [EXPORT, "--ephemeral", "--json", *map(str, arguments)],
                stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=environment,
            )
            watch = threading.Thread(target=self._watch_memory, args=(process.pid,))
            watch.start()
            if interrupt:
                process.stdin.write(password + "\n")
                process.stdin.flush()
                interrupt(process)
                out, err = process.communicate(timeout=timeout)
            else:
                out, err = process.communicate(password + "\n", timeout=timeout)
            watch.join()
            self.leftovers = sorted(str(path.relative_to(home)) for path in home.rglob("*") if path.is_file())
        self.lines = [json.loads(line) for line in out.splitlines()]
        self.stderr = err
        self.status = process.returncode

    def _watch_memory(self, pid: int):
        """Keeps the process's own peak in `peak`, in KiB: what the system counts of children holds their parent's too."""
        self.peak = 0
        try:
            while found := re.search(r"VmHWM:\s+(\d+)", pathlib.Path(f"/proc/{pid}/status").read_text()):
                self.peak = int(found[1])
                time.sleep(0.02)
        except OSError:
            pass  # It has ended.

    def events(self, kind: str) -> list[dict]:
        return [line for line in self.lines if line["event"] == kind]

    @property
    def end(self) -> dict:
        return self.lines[-1]

    def __str__(self):
        return f"status {self.status}\n{self.stderr}\n" + "\n".join(map(str, self.lines))


def photograph(path: pathlib.Path, width: int, height: int, **options) -> pathlib.Path:
    """Writes a smooth picture of that size, in the format that the name tells."""
    ramp = Image.linear_gradient("L").resize((width, height))
    Image.merge("RGB", (ramp, ramp.transpose(Image.Transpose.ROTATE_180), ramp)).save(path, **options)
    return path


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


@contextmanager
def vsftpd(root: pathlib.Path, port: int):
    """vsftpd on loopback, run as this user: its anonymous user may make folders and upload below `root`."""
    empty = root.parent / "empty"
    empty.mkdir(exist_ok=True)
    config = root.parent / "vsftpd.conf"
    settings = {
        "listen": "YES", "listen_address": "127.0.0.1", "listen_port": port, "background": "NO",
        "run_as_launching_user": "YES", "anonymous_enable": "YES", "local_enable": "NO", "write_enable": "YES",
        "anon_upload_enable": "YES", "anon_mkdir_write_enable": "YES", "anon_root": root, "anon_umask": "022",
        "allow_writeable_chroot": "YES", "seccomp_sandbox": "NO", "isolate": "NO", "isolate_network": "NO",
        "secure_chroot_dir": empty, "xferlog_enable": "NO",
    }
    config.write_text("".join(f"{key}={value}\n" for key, value in settings.items()))
    process = subprocess.Popen(["/usr/sbin/vsftpd", config])
    try:
        deadline = time.monotonic() + DEADLINE
        while True:
            try:
                socket.create_connection(("127.0.0.1", port), timeout=1).close()
                break
            except OSError:
                if process.poll() is not None or time.monotonic() > deadline:
                    raise AssertionError("vsftpd did not start") from None
                time.sleep(0.05)
        yield
    finally:
        process.terminate()
        process.wait(DEADLINE)
