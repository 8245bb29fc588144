import configparser
import json
import os
import signal
import socket
import stat
import subprocess
import tempfile
import unittest
from pathlib import Path

from support import DEADLINE_S, SERVE, Sandbox, data, jpeg

LOOPBACK_IN_PROC = "0100007F"
LISTENING_IN_PROC = "0A"


class SandboxOfItsOwn(unittest.TestCase):
    def sandbox(self, *options: str) -> Sandbox:
        sandbox = Sandbox(*options)
        self.addCleanup(sandbox.remove)
        return sandbox


class ReadyTest(SandboxOfItsOwn):
    def test_the_ready_line_tells_ports_gallery_and_configuration(self) -> None:
        sandbox = self.sandbox()
        self.assertRegex(
            sandbox.ready_line,
            r"^ready https=\d+ ftp=\d+ gallery=http://127\.0\.0\.1:\d+/ config=/.*/service\.ini$",
        )
        self.assertEqual(sandbox.values["config"], str(sandbox.state / "service.ini"))

    def test_the_configuration_leads_to_this_sandbox(self) -> None:
        sandbox = self.sandbox()
        configuration = configparser.ConfigParser(interpolation=None)
        configuration.optionxform = str  # type: ignore[assignment,method-assign]
        configuration.read(sandbox.values["config"])
        self.assertEqual(
            {section: dict(configuration[section]) for section in configuration.sections()},
            {
                "service": {"webHost": "www.quillmark.example", "ftpHost": "ftp.quillmark.example"},
                "transport": {
                    "connectTo": f'"www.quillmark.example:443:127.0.0.1:{sandbox.https_port}, '
                    f'ftp.quillmark.example:21:127.0.0.1:{sandbox.ftp_port}"',
                    "caFile": str(sandbox.authority),
                    "ftpSecurity": "plain",
                    "idleTimeout": "60",
                },
            },
        )

    def test_given_ports_are_taken(self) -> None:
        probes = [socket.create_server(("127.0.0.1", 0)) for _ in range(3)]
        https, ftp, gallery = [probe.getsockname()[1] for probe in probes]
        for probe in probes:
            probe.close()
        sandbox = self.sandbox(f"--https-port={https}", f"--ftp-port={ftp}", f"--gallery-port={gallery}")
        self.assertEqual((sandbox.https_port, sandbox.ftp_port, sandbox.gallery_port), (https, ftp, gallery))

    def test_every_listener_is_on_loopback(self) -> None:
        sandbox = self.sandbox()
        with sandbox.ftp() as client:
            client.makepasv()
            descriptors = Path(f"/proc/{sandbox.process.pid}/fd").iterdir()
            own = {os.readlink(descriptor) for descriptor in descriptors}
            tables = [Path(f"/proc/net/{name}").read_text().splitlines()[1:] for name in ("tcp", "tcp6")]
        rows = [line.split() for table in tables for line in table]
        listening = [row[1] for row in rows if row[3] == LISTENING_IN_PROC and f"socket:[{row[9]}]" in own]
        self.assertEqual(len(listening), 4)
        self.assertEqual({address.partition(":")[0] for address in listening}, {LOOPBACK_IN_PROC})

    def test_the_state_folder_is_private(self) -> None:
        sandbox = self.sandbox()
        for name, mode in ((".", 0o700), ("ca-key.pem", 0o600), ("service.ini", 0o600)):
            with self.subTest(name):
                self.assertEqual(stat.S_IMODE((sandbox.state / name).stat().st_mode), mode)


class RestartTest(SandboxOfItsOwn):
    def test_authority_uploads_and_gallery_stay(self) -> None:
        sandbox = self.sandbox()
        sandbox.upload("e0", "Party", {"a.jpg": jpeg()})
        sandbox.finish("e0")
        sandbox.upload("e0", "Party", {"b.jpg": jpeg()})
        authority, records = sandbox.authority.read_bytes(), sandbox.records()
        self.assertEqual(sandbox.stop(), 0)
        sandbox.start()
        self.assertEqual(sandbox.authority.read_bytes(), authority)
        self.assertEqual(sandbox.records(), records)
        self.assertEqual([len(records["photographs"]), len(records["waiting"])], [1, 1])

    def test_a_kill_in_the_middle_of_an_upload_leaves_no_part_of_it(self) -> None:
        sandbox = self.sandbox()
        with sandbox.ftp() as client:
            client.mkd("e0")
            client.voidcmd("TYPE I")
            with client.transfercmd("STOR e0/a.jpg") as connection:
                connection.sendall(b"x" * 100_000)
                sandbox.process.kill()
                sandbox.process.communicate()
        sandbox.start()
        self.assertEqual([names for _, _, names in os.walk(sandbox.home()) if names], [])
        self.assertEqual(os.listdir(sandbox.state / "incoming"), [])


class EndTest(SandboxOfItsOwn):
    def test_a_signal_ends_it_with_status_0_whatever_is_connected(self) -> None:
        for end in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(end):
                sandbox = self.sandbox()
                web, ftp, upload = sandbox.https(), sandbox.ftp(), sandbox.ftp()
                web.request("GET", "/gallery")
                web.getresponse().read()
                upload.voidcmd("TYPE I")
                data_connection = upload.transfercmd("STOR a.jpg")
                data_connection.sendall(b"x" * 100_000)
                self.assertEqual(sandbox.stop(end), 0)
                self.assertEqual(os.listdir(sandbox.home()), [])
                for connection in (web, ftp, upload, data_connection):
                    connection.close()


class RefusalTest(SandboxOfItsOwn):
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
