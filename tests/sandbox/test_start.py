import configparser
import os
import signal
import socket
import stat
import unittest
from pathlib import Path

from support import Sandbox, SandboxTest, jpeg

LOOPBACK_IN_PROC = "0100007F"
LISTENING_IN_PROC = "0A"


class SandboxOfItsOwn(unittest.TestCase):
    def sandbox(self, *options: str) -> Sandbox:
        sandbox = Sandbox(*options)
        self.addCleanup(sandbox.remove)
        return sandbox


class ReadyTest(SandboxTest):
    def test_the_ready_line_tells_ports_gallery_and_configuration(self) -> None:
        sandbox = self.sandbox
        self.assertRegex(
            sandbox.ready_line,
            r"^ready https=\d+ ftp=\d+ gallery=http://127\.0\.0\.1:\d+/ config=/.*/service\.ini$",
        )
        self.assertEqual(sandbox.values["config"], str(sandbox.state / "service.ini"))

    def test_the_configuration_leads_to_this_sandbox(self) -> None:
        sandbox = self.sandbox
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

    def test_every_listener_is_on_loopback(self) -> None:
        sandbox = self.sandbox
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
        sandbox = self.sandbox
        for name, mode in ((".", 0o700), ("ca-key.pem", 0o600), ("service.ini", 0o600)):
            with self.subTest(name):
                self.assertEqual(stat.S_IMODE((sandbox.state / name).stat().st_mode), mode)


class GivenPortsTest(SandboxOfItsOwn):
    def test_given_ports_are_taken(self) -> None:
        sandbox, (https, ftp, gallery) = self.sandbox_at_free_ports()
        self.assertEqual((sandbox.https_port, sandbox.ftp_port, sandbox.gallery_port), (https, ftp, gallery))

    def sandbox_at_free_ports(self, attempts: int = 5) -> tuple[Sandbox, list[int]]:
        """Others may take a port between its probe and the start, hence the attempts."""
        probes = [socket.create_server(("127.0.0.1", 0)) for _ in range(3)]
        ports = [probe.getsockname()[1] for probe in probes]
        for probe in probes:
            probe.close()
        options = [f"--{name}-port={port}" for name, port in zip(("https", "ftp", "gallery"), ports)]
        try:
            return self.sandbox(*options), ports
        except AssertionError as error:
            if attempts == 1 or "Address already in use" not in str(error):
                raise
            return self.sandbox_at_free_ports(attempts - 1)


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


if __name__ == "__main__":
    unittest.main()
