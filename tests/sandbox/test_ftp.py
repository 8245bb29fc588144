import ftplib
import io
import os
import signal
import socket
import struct
import unittest

from support import SandboxTest, jpeg, wait_until

RESET_ON_CLOSE = struct.pack("ii", 1, 0)


class FTPTest(SandboxTest):
    def setUp(self) -> None:
        self.client = self.sandbox.ftp()
        self.addCleanup(self.client.close)
        self.event = self.new_event()
        self.folder = self.sandbox.home() / self.event
        self.client.mkd(self.event)

    def assertRefused(self, code: str, command: str) -> None:
        with self.assertRaisesRegex(ftplib.Error, f"^{code} "):
            self.client.sendcmd(command)

    def store(self, path: str, content: bytes) -> str:
        return self.client.storbinary(f"STOR {path}", io.BytesIO(content))

    def assertStoreRefused(self, code: str, path: str) -> None:
        with self.assertRaisesRegex(ftplib.Error, f"^{code} "):
            self.store(path, b"content")

    def files(self) -> list[str]:
        """Every file below the state folder that came from an upload."""
        roots = (self.folder, self.sandbox.state / "incoming")
        return [
            os.path.join(folder, name)
            for root in roots
            for folder, _, names in os.walk(root)
            for name in names
        ]


class FolderTest(FTPTest):
    def test_the_login_folder_is_the_users_own(self) -> None:
        self.assertEqual(self.client.pwd(), "/")
        self.assertIn(self.event, self.client.nlst())
        with self.sandbox.ftp("ben+zoë@example", "50%+=ü") as other:
            self.assertEqual(other.nlst(), [])

    def test_wrong_logins_are_refused_with_530(self) -> None:
        for user, password in (
            ("ann", "wrong"),
            ("ann", ""),
            ("nobody", "x"),
            ("anonymous", "me@"),
            ("1001", ""),
        ):
            with self.subTest(user=user, password=password):
                with self.assertRaisesRegex(ftplib.error_perm, "^530 "):
                    self.sandbox.ftp(user, password)

    def test_nothing_can_be_done_without_a_login(self) -> None:
        with ftplib.FTP() as client:
            client.connect("127.0.0.1", self.sandbox.ftp_port)
            for command in ("MKD x", "PWD", "PASV", "STOR x", "DELE x"):
                with self.assertRaisesRegex(ftplib.error_perm, "^530 "):
                    client.sendcmd(command)

    def test_an_existing_folder_is_refused_with_550(self) -> None:
        self.assertRefused("550", f"MKD {self.event}")
        self.client.mkd(f"{self.event}/Party")
        self.assertRefused("550", f"MKD {self.event}/Party")

    def test_a_folder_without_a_parent_is_refused_with_550(self) -> None:
        self.assertRefused("550", f"MKD {self.event}/missing/Party")

    def test_no_path_leads_out_of_the_login_folder(self) -> None:
        before = sorted(os.listdir(self.sandbox.state))
        for path in ("../../outside", "/../../outside", f"{self.event}/../../../outside", "..//..//outside"):
            with self.subTest(path):
                self.client.mkd(path)
                self.assertTrue((self.sandbox.home() / "outside").is_dir())
                self.client.rmd("outside")
        self.assertEqual(self.client.cwd(".."), '250 "/" is the current directory.')
        self.assertRefused("550", "CWD ../1002")
        self.assertRefused("550", "RETR ../../ca-key.pem")
        self.assertEqual(sorted(os.listdir(self.sandbox.state)), before)

    def test_names_that_no_file_can_have_are_refused(self) -> None:
        self.client.sock.sendall(b"MKD \xff\xfe\r\n")
        with self.assertRaisesRegex(ftplib.error_perm, "^501 "):
            self.client.getresp()
        for name in ("a\0b", "a\nb", "a\tb", "a\x7fb"):
            with self.subTest(repr(name)):
                self.client.sock.sendall(f"MKD {self.event}/{name}\r\n".encode())
                with self.assertRaisesRegex(ftplib.error_perm, "^501 "):
                    self.client.getresp()
        self.assertRefused("550", f"MKD {self.event}/{'x' * 300}")
        self.assertEqual(os.listdir(self.folder), [])

    def test_a_command_that_is_too_long_is_refused_and_the_session_goes_on(self) -> None:
        self.assertRefused("500", "MKD " + "x" * 100_000)
        self.assertEqual(self.client.pwd(), "/")


class UploadTest(FTPTest):
    def test_a_file_arrives_as_it_is(self) -> None:
        self.client.mkd(f"{self.event}/Party")
        content = jpeg(400, 300)
        self.assertRegex(self.store(f"{self.event}/Party/a.jpg", content), "^226 ")
        self.assertEqual((self.folder / "Party" / "a.jpg").read_bytes(), content)

    def test_names_are_utf8(self) -> None:
        self.client.mkd(f"{self.event}/Wejście & <Gäste> 'n\" 100%")
        self.store(f"{self.event}/Wejście & <Gäste> 'n\" 100%/写真 #1?.jpg", b"content")
        self.assertEqual(
            (self.folder / "Wejście & <Gäste> 'n\" 100%" / "写真 #1?.jpg").read_bytes(), b"content"
        )

    def test_one_session_stores_many_files(self) -> None:
        for number in range(20):
            self.store(f"{self.event}/{number}.jpg", b"content")
        self.assertEqual(len(self.files()), 20)

    def test_a_missing_folder_is_refused_with_550(self) -> None:
        self.assertStoreRefused("550", f"{self.event}/missing/a.jpg")

    def test_a_folders_name_and_a_name_too_long_are_refused_with_550(self) -> None:
        self.assertStoreRefused("550", self.event)
        self.assertStoreRefused("550", f"{self.event}/{'x' * 300}.jpg")
        self.assertEqual(self.files(), [])

    def test_a_store_without_a_data_connection_is_refused_with_425(self) -> None:
        self.assertRefused("425", f"STOR {self.event}/a.jpg")

    def test_what_would_leave_parts_of_files_is_not_offered(self) -> None:
        self.store(f"{self.event}/a.jpg", b"content")
        for command in (f"APPE {self.event}/a.jpg", "STOU", "REST 3"):
            with self.subTest(command):
                self.client.voidcmd("TYPE I")
                with self.assertRaisesRegex(ftplib.error_perm, "^50[02] "):
                    self.client.sendcmd(command)
        self.assertEqual((self.folder / "a.jpg").read_bytes(), b"content")

    def test_a_file_has_no_name_before_it_is_complete(self) -> None:
        self.client.voidcmd("TYPE I")
        connection = self.client.transfercmd(f"STOR {self.event}/a.jpg")
        connection.sendall(b"x" * 100_000)
        wait_until(lambda: sum(map(os.path.getsize, self.files())) > 0)
        self.assertEqual(self.client_of_its_own().nlst(self.event), [])
        connection.close()
        self.assertRegex(self.client.voidresp(), "^226 ")
        self.assertEqual((self.folder / "a.jpg").stat().st_size, 100_000)

    def client_of_its_own(self) -> ftplib.FTP:
        client = self.sandbox.ftp()
        self.addCleanup(client.close)
        return client


class CutOffUploadTest(FTPTest):
    def setUp(self) -> None:
        super().setUp()
        self.store(f"{self.event}/a.jpg", b"an earlier upload")
        self.begin_upload()

    def begin_upload(self) -> None:
        self.client.voidcmd("TYPE I")
        self.connection = self.client.transfercmd(f"STOR {self.event}/a.jpg")
        self.addCleanup(self.connection.close)
        self.connection.sendall(b"x" * 300_000)
        wait_until(lambda: sum(map(os.path.getsize, self.files())) > 100_000)

    def assertOnlyTheEarlierUploadIsThere(self) -> None:
        wait_until(lambda: len(self.files()) == 1)
        self.assertEqual((self.folder / "a.jpg").read_bytes(), b"an earlier upload")

    def test_a_reset_data_connection_stores_nothing(self) -> None:
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET_ON_CLOSE)
        self.connection.close()
        with self.assertRaisesRegex(ftplib.error_temp, "^426 "):
            self.client.voidresp()
        self.assertOnlyTheEarlierUploadIsThere()

    def test_a_data_connection_that_breaks_at_once_is_reported(self) -> None:
        other = self.sandbox.ftp()
        self.addCleanup(other.close)
        for _ in range(20):
            host, port = other.makepasv()
            connection = socket.create_connection((host, port))
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET_ON_CLOSE)
            connection.close()
            with self.assertRaisesRegex(ftplib.error_temp, "^(425|426) "):
                other.sendcmd(f"STOR {self.event}/b.jpg")
                other.voidresp()
        self.assertNotIn("b.jpg", os.listdir(self.folder))

    def assertNothingIsStoredWhenTheSandboxFindsEnded(self, *connections: ftplib.FTP | socket.socket) -> None:
        self.sandbox.process.send_signal(signal.SIGSTOP)
        for connection in connections:
            connection.close()
        self.sandbox.process.send_signal(signal.SIGCONT)
        self.assertOnlyTheEarlierUploadIsThere()

    def test_a_client_that_dies_stores_nothing(self) -> None:
        self.assertNothingIsStoredWhenTheSandboxFindsEnded(self.client, self.connection)

    def test_a_client_whose_data_connection_dies_first_stores_nothing(self) -> None:
        self.assertNothingIsStoredWhenTheSandboxFindsEnded(self.connection, self.client)

    def test_an_aborted_transfer_stores_nothing(self) -> None:
        self.client.putcmd("ABOR")
        with self.assertRaisesRegex(ftplib.error_temp, "^426 "):
            self.client.getresp()
        self.assertRegex(self.client.getresp(), "^226 ")
        self.assertOnlyTheEarlierUploadIsThere()

    def test_a_full_disk_is_reported_and_stores_nothing(self) -> None:
        with self.sandbox.disk_full_after(1_000_000):
            with self.assertRaisesRegex(ftplib.error_temp, "^426 .*transfer aborted"):
                self.connection.sendall(b"x" * 800_000)
                self.client.voidresp()
        self.assertOnlyTheEarlierUploadIsThere()
        self.connection.close()
        self.assertRegex(self.store(f"{self.event}/b.jpg", b"x" * 2_000_000), "^226 ")

    def test_a_folder_that_goes_away_meanwhile_refuses_the_file(self) -> None:
        other = self.sandbox.ftp()
        self.addCleanup(other.close)
        other.delete(f"{self.event}/a.jpg")
        other.rmd(self.event)
        self.connection.close()
        with self.assertRaisesRegex(ftplib.error_perm, "^550 "):
            self.client.voidresp()
        self.assertEqual(self.files(), [])


if __name__ == "__main__":
    unittest.main()
