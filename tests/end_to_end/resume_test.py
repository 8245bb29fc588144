"""quillmark-export --resume, after all that can break an export off. Runs in a session with an open keyring."""

import json
import os
import pathlib
import signal
import subprocess
import threading
import unittest

from export_test import PASSWORD, service_data
from forwarder import Forwarder
from harness import DEADLINE, EXPORT, Sandbox, folder, photograph

COUNT = 6
LOGIN = ["--user", "ann", "--password-file", "-", "--remember", "--json"]
CHOICES = ["--resize", "1280x1280", "--event", "77", "--category", "Ceremony", "--pricing", "Deluxe"]


class Home:
    """A user's home: what one run keeps there, the next one finds."""

    def __init__(self, path: pathlib.Path, config: pathlib.Path):
        (path / "tmp").mkdir(parents=True)
        self.environment = {
            **os.environ,
            "QUILLMARK_SERVICE_CONFIG": str(config),
            "HOME": str(path),
            "XDG_CONFIG_HOME": str(path / "config"),
            "XDG_DATA_HOME": str(path / "data"),
            "XDG_STATE_HOME": str(path / "state"),
            "XDG_CACHE_HOME": str(path / "cache"),
            "TMPDIR": str(path / "tmp"),
            "LANG": "C.UTF-8",
        }

    def run(self, *arguments, login=LOGIN, watch=None) -> "Run":
        """Runs the command to its end. `watch` is called with the process and each of its lines."""
        process = subprocess.Popen(
            [EXPORT, *login, *map(str, arguments)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=self.environment,
        )
        process.stdin.write(PASSWORD + "\n")
        process.stdin.close()
        stop = threading.Timer(DEADLINE, process.kill)
        stop.start()
        errors: list[str] = []
        reader = threading.Thread(target=lambda: errors.extend(process.stderr))
        reader.start()
        lines = []
        for text in process.stdout:
            lines.append(json.loads(text))
            if watch:
                watch(process, lines[-1])
        status = process.wait()
        reader.join()
        stop.cancel()
        process.stdout.close()
        process.stderr.close()
        return Run(status, lines, "".join(errors))


class Run:
    def __init__(self, status: int, lines: list[dict], stderr: str):
        self.status, self.lines, self.stderr = status, lines, stderr

    def __str__(self):
        return f"status {self.status}\n{self.stderr}\n" + "\n".join(map(str, self.lines))


def kill_when(condition):
    """A watch that kills the process at the first line that meets the condition."""
    def watch(process, line):
        if condition(line):
            process.kill()
    return watch


def step(number: int, part: float = 0):
    """Whether a line tells of that step of the progress, done to that part."""
    def meets(line):
        return (line["event"] == "progress" and line["message"].startswith(f"Step {number} of 3")
                and line["current"] >= part * line["total"])
    return meets


class Resumption(unittest.TestCase):
    def setUp(self):
        self.here = self.enterContext(folder())
        self.state = self.here / "state"
        self.sandbox = self.start_sandbox()
        self.addCleanup(lambda: self.sandbox.__exit__())
        self.web = self.enterContext(Forwarder(self.sandbox.https_port, self.hear_request,
                                                lambda _: self.at_answer()))
        self.ftp = self.enterContext(Forwarder(self.sandbox.ftp_port, self.hear_command))
        config = self.here / "service.ini"
        text = self.sandbox.config.read_text()
        config.write_text(text.replace(f":127.0.0.1:{self.sandbox.https_port}", f":127.0.0.1:{self.web.port}")
                          .replace(f":127.0.0.1:{self.sandbox.ftp_port}", f":127.0.0.1:{self.ftp.port}"))
        self.home = Home(self.here / "home", config)
        self.stored: list[str] = []
        self.at_store = lambda name: None
        self.uploads_are_done = False
        self.at_finishing_request = lambda: None
        self.at_answer = lambda: None

        shoot = self.here / "Smith"
        shoot.mkdir()
        self.names = [f"{index}.jpg" for index in range(COUNT)]
        self.files = [photograph(shoot / f"{index}.tif", 1500, 1000) for index in range(COUNT)]

    def start_sandbox(self) -> Sandbox:
        return Sandbox(self.state, data=service_data())

    def hear_command(self, data: bytes):
        for command in data.split(b"\r\n"):
            if command.startswith(b"STOR "):
                name = command.rsplit(b"/", 1)[-1].decode()
                self.stored.append(name)
                self.at_store(name)

    def hear_request(self, data: bytes):
        # TLS hides it; after the uploads there is only one kind of request.
        if self.uploads_are_done:
            self.at_finishing_request()

    def note_end_of_uploads(self, _, line):
        if step(3, 1)(line):
            self.uploads_are_done = True

    def arrived(self) -> list[str]:
        entries = self.sandbox.photographs()
        for entry in entries:
            self.assertEqual((entry["event"], entry["category"], entry["pptid"]), ("77", "Ceremony", "6"))
        return sorted(entry["name"] for entry in entries)

    def resume_and_check(self, most_stored_again: int = 1):
        """All photographs have arrived, each once; of those sent before, at most so many were sent again."""
        before = list(self.stored)
        run = self.home.run("--resume")
        self.assertEqual((run.status, run.lines[-1]["outcome"]), (0, "finished"), run)
        self.assertEqual(run.lines[0]["event"], "resume")
        self.assertEqual(self.arrived(), self.names)
        again = self.stored[len(before):]
        self.assertEqual(len(again), len(set(again)), "within one run nothing is sent twice")
        self.assertLessEqual(len(set(again) & set(before)), most_stored_again)
        self.assertEqual(len(again), run.lines[0]["remaining"])
        run = self.home.run("--resume")
        self.assertEqual([line["event"] for line in run.lines], ["resume", "end"], run)
        self.assertEqual(run.lines[0]["remaining"], 0)

    def export_killed(self, condition):
        run = self.home.run(*CHOICES, *self.files, watch=kill_when(condition))
        self.assertEqual(run.status, -signal.SIGKILL, run)

    def test_after_a_kill_while_images_are_prepared(self):
        self.export_killed(lambda line: line["event"] == "image" and line["index"] == 2)
        self.assertEqual(self.arrived(), [])
        self.resume_and_check(0)

    def test_after_a_kill_while_folders_are_made(self):
        self.export_killed(step(2))
        self.resume_and_check()

    def test_after_a_kill_while_images_are_uploaded(self):
        self.export_killed(step(3, 0.5))
        self.resume_and_check()

    def test_after_a_kill_between_upload_and_finishing_request(self):
        self.export_killed(step(3, 1))
        self.resume_and_check()

    def test_after_a_kill_at_the_finishing_request(self):
        killed = []

        def watch(process, line):
            self.note_end_of_uploads(process, line)
            self.at_finishing_request = process.kill
            killed.append(process)

        run = self.home.run(*CHOICES, *self.files, watch=watch)
        self.assertEqual(run.status, -signal.SIGKILL, run)
        self.at_finishing_request = lambda: None
        self.resume_and_check(0)

    def test_after_kills_again_and_again(self):
        self.export_killed(lambda line: line["event"] == "image")
        for index in range(1, COUNT):
            # A little farther each time.
            part = index / COUNT
            run = self.home.run("--resume", watch=kill_when(step(3, part)))
            self.assertEqual(run.status, -signal.SIGKILL, run)
        self.resume_and_check()

    def test_after_the_server_was_killed_during_the_upload(self):
        self.at_store = lambda name: self.sandbox.process.kill() if len(self.stored) == 3 else None
        run = self.home.run(*CHOICES, *self.files)
        self.assertEqual((run.status, run.lines[-1]["outcome"]), (1, "failed"), run)
        self.assertIn("images are left; --resume exports them", run.stderr)
        self.at_store = lambda name: None
        self.sandbox.__exit__()
        self.sandbox = self.start_sandbox()
        self.web.target_port, self.ftp.target_port = self.sandbox.https_port, self.sandbox.ftp_port
        self.resume_and_check()

    def test_after_the_network_was_cut_during_the_upload(self):
        def cut(name):
            if len(self.stored) == 4:
                self.ftp.cut()
                self.web.cut()

        self.at_store = cut
        run = self.home.run(*CHOICES, *self.files)
        self.assertEqual((run.status, run.lines[-1]["outcome"]), (1, "failed"), run)
        # While it is cut, no more is lost.
        run = self.home.run("--resume")
        self.assertEqual(run.lines[-1]["outcome"], "login-failed", run)
        self.at_store = lambda name: None
        self.ftp.mend()
        self.web.mend()
        self.resume_and_check()

    def test_after_the_network_was_cut_at_the_finishing_request(self):
        self.at_finishing_request = self.web.cut
        run = self.home.run(*CHOICES, *self.files, watch=self.note_end_of_uploads)
        self.assertEqual((run.status, run.lines[-1]["outcome"]), (1, "unconfirmed"), run)
        self.assertIn("--resume asks the service again", run.stderr)
        self.at_finishing_request = lambda: None
        self.web.mend()
        stored = len(self.stored)
        self.resume_and_check(0)
        self.assertEqual(len(self.stored), stored, "only the finishing request is sent")

    def test_after_an_answer_was_lost_that_the_service_gave_when_it_had_processed(self):
        self.at_answer = lambda: self.web.cut() if len(self.sandbox.photographs()) == COUNT else None
        run = self.home.run(*CHOICES, *self.files)
        self.assertEqual((run.status, run.lines[-1]["outcome"]), (1, "unconfirmed"), run)
        self.assertIn("the service did not confirm", run.stderr)
        processed = self.sandbox.photographs()
        self.assertEqual(self.arrived(), self.names)
        self.at_answer = lambda: None
        self.web.mend()
        stored = len(self.stored)
        self.resume_and_check(0)
        self.assertEqual(len(self.stored), stored, "only the finishing request is sent")
        self.assertEqual(self.sandbox.photographs(), processed)

    def test_of_the_remembered_account_asks_for_nothing(self):
        self.export_killed(step(3, 0.5))
        run = self.home.run("--resume", login=["--json"])
        self.assertEqual(run.lines[-1]["outcome"], "finished", run)
        self.assertEqual(self.arrived(), self.names)

    def test_of_a_file_that_was_sent_by_half_replaces_it(self):
        self.at_store = lambda name: self.ftp.cut() if name == "1.jpg" else None
        self.home.run(*CHOICES, *self.files)
        (self.state / "ftp/7/77/Ceremony/1.jpg").write_bytes(b"\xff\xd8\xff half of it")
        self.at_store = lambda name: None
        self.ftp.mend()
        self.resume_and_check()
        self.assertEqual({entry["width"] for entry in self.sandbox.photographs()}, {1280})


if __name__ == "__main__":
    unittest.main()
