import json
import socket
import subprocess
import tempfile
import unittest
from pathlib import Path

from support import DEADLINE_S, SERVE, Sandbox, data


class RefusalTest(unittest.TestCase):
    def sandbox(self) -> Sandbox:
        sandbox = Sandbox()
        self.addCleanup(sandbox.remove)
        return sandbox

    def assertRefuses(self, status: int, reason: str, *options: object) -> None:
        """That a start with the options ends with one line on standard error alone."""
        command = [str(each) for each in (SERVE, *options)]
        ended = subprocess.run(command, capture_output=True, text=True, timeout=DEADLINE_S)
        self.assertEqual((ended.returncode, ended.stdout), (status, ""))
        self.assertRegex(ended.stderr, rf"\Asandbox/serve: .*{reason}.*\n\Z")

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.state = Path(folder.name) / "state"

    def test_a_state_folder_in_use(self) -> None:
        self.assertRefuses(1, "in use by another sandbox", "--state", self.sandbox().state)

    def test_a_taken_port(self) -> None:
        with socket.create_server(("127.0.0.1", 0)) as taken:
            port = taken.getsockname()[1]
            for option in ("--https-port", "--ftp-port", "--gallery-port"):
                with self.subTest(option):
                    self.assertRefuses(
                        1, f"{option} {port}: Address already in use", "--state", self.state, option, port
                    )

    def test_a_wrong_data_file(self) -> None:
        file = self.state.with_name("data.json")
        self.assertRefuses(1, "data.json: No such file", "--state", self.state, "--data", file)
        document = data()
        document["users"][0]["id"] = "../x"
        file.write_text(json.dumps(document))
        self.assertRefuses(
            1, r"data.json: users\[0\].id: '../x' is not", "--state", self.state, "--data", file
        )
        self.assertFalse(self.state.exists())

    def test_a_state_folder_that_can_not_be_one(self) -> None:
        self.state.write_text("a file")
        self.assertRefuses(1, "state: File exists", "--state", self.state)
        self.assertRefuses(1, "Not a directory", "--state", self.state / "below")

    def test_an_authority_that_can_not_sign(self) -> None:
        first, second = self.sandbox(), self.sandbox()
        first.stop()
        key = first.state / "ca-key.pem"
        for content in (b"", b"no key", (second.state / "ca-key.pem").read_bytes()):
            with self.subTest(content[:20]):
                key.write_bytes(content)
                self.assertRefuses(1, "remove both to make a new authority", "--state", first.state)

    def test_a_gallery_that_is_no_database(self) -> None:
        self.state.mkdir()
        (self.state / "gallery.sqlite").write_bytes(b"no database" * 1000)
        self.assertRefuses(1, "gallery.sqlite: file is not a database", "--state", self.state)

    def test_wrong_options(self) -> None:
        self.assertRefuses(2, "--state")
        for port in ("-1", "65536", "²"):
            with self.subTest(port):
                self.assertRefuses(2, "is not a port number", "--state", self.state, f"--ftp-port={port}")
        self.assertRefuses(2, "unrecognized", "--state", self.state, "--colour")


if __name__ == "__main__":
    unittest.main()
