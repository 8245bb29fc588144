import ftplib
import io
import os
import socket
import ssl
import time
import unittest
from contextlib import suppress

from support import DEADLINE_S, SandboxTest, jpeg, wait_until


class FTPSTest(SandboxTest):
    options = ("--ftps",)

    def secured(self, protect_data: bool = True) -> ftplib.FTP_TLS:
        client = ftplib.FTP_TLS(context=self.sandbox.tls(), timeout=DEADLINE_S, encoding="utf-8")
        self.addCleanup(client.close)
        client.connect("127.0.0.1", self.sandbox.ftp_port)
        client.login("ann", "ann's password")
        if protect_data:
            client.prot_p()
        return client

    def test_the_configuration_asks_for_tls(self) -> None:
        self.assertIn("\nftpSecurity=required\n", (self.sandbox.state / "service.ini").read_text())

    def test_files_arrive_over_verified_tls(self) -> None:
        client, event = self.secured(), self.new_event()
        client.mkd(event)
        for number in range(5):
            content = jpeg(300, 200, seed=number)
            self.assertRegex(client.storbinary(f"STOR {event}/{number}.jpg", io.BytesIO(content)), "^226 ")
            self.assertEqual((self.sandbox.home() / event / f"{number}.jpg").read_bytes(), content)
        self.assertEqual(client.nlst(event), [f"{number}.jpg" for number in range(5)])
        received = io.BytesIO()
        client.retrbinary(f"RETR {event}/4.jpg", received.write)
        self.assertEqual(received.getvalue(), content)

    def test_no_connection_speaks_a_tls_whose_tickets_uploading_clients_never_read(self) -> None:
        client, event = self.secured(), self.new_event()
        client.mkd(event)
        with client.transfercmd(f"STOR {event}/a.jpg") as connection:
            self.assertEqual((client.sock.version(), connection.version()), ("TLSv1.2", "TLSv1.2"))
            connection.unwrap().close()
        self.assertRegex(client.voidresp(), "^226 ")

    def test_a_client_may_begin_tls_on_the_data_connection_before_its_command(self) -> None:
        client, event = self.secured(), self.new_event()
        client.mkd(event)
        client.voidcmd("TYPE I")
        for number in range(5):
            plain = socket.create_connection(client.makepasv(), timeout=DEADLINE_S)
            connection = self.sandbox.tls().wrap_socket(plain, server_hostname="127.0.0.1")
            self.assertRegex(client.sendcmd(f"STOR {event}/{number}.jpg"), "^1")
            connection.sendall(jpeg(300, 200))
            connection.unwrap().close()
            self.assertRegex(client.voidresp(), "^226 ")
            self.assertEqual((self.sandbox.home() / event / f"{number}.jpg").read_bytes(), jpeg(300, 200))

    def test_a_client_that_does_not_know_the_authority_refuses_the_certificate(self) -> None:
        client = ftplib.FTP_TLS(context=ssl.create_default_context(), timeout=DEADLINE_S)
        self.addCleanup(client.close)
        client.connect("127.0.0.1", self.sandbox.ftp_port)
        with self.assertRaises(ssl.SSLCertVerificationError):
            client.auth()

    def test_a_login_without_tls_is_refused(self) -> None:
        with self.assertRaisesRegex(ftplib.error_perm, "^550 .*TLS"):
            self.sandbox.ftp()

    def test_a_data_connection_without_tls_is_refused(self) -> None:
        client = self.secured(protect_data=False)
        for command in ("PASV", "EPSV", "PORT 127,0,0,1,4,1", "EPRT |1|127.0.0.1|1025|"):
            with self.subTest(command), self.assertRaisesRegex(ftplib.error_perm, "^550 .*TLS"):
                client.sendcmd(command)
        with self.assertRaisesRegex(ftplib.error_perm, "^534 "):
            client.prot_c()

    def test_commands_sent_in_the_clear_behind_auth_are_dropped(self) -> None:
        client = ftplib.FTP_TLS(context=self.sandbox.tls(), timeout=DEADLINE_S)
        self.addCleanup(client.close)
        client.connect("127.0.0.1", self.sandbox.ftp_port)
        client.sock.sendall(b"AUTH TLS\r\nNOOP\r\n")
        self.assertRegex(client.getresp(), "^234 ")
        client.sock = self.sandbox.tls().wrap_socket(client.sock, server_hostname="127.0.0.1")
        client.file = client.sock.makefile("r", encoding="utf-8")
        self.assertRegex(client.sendcmd("SYST"), "^215 ")

    def begin_upload(self, client: ftplib.FTP_TLS, event: str) -> ssl.SSLSocket:
        client.mkd(event)
        client.voidcmd("TYPE I")
        connection = client.transfercmd(f"STOR {event}/a.jpg")
        connection.sendall(b"x" * 100_000)
        self.addCleanup(connection.close)
        return connection

    def assertStoresNothing(self, client: ftplib.FTP_TLS, event: str) -> None:
        with self.assertRaisesRegex(ftplib.error_temp, "^426 "):
            client.voidresp()
        wait_until(lambda: not list((self.sandbox.state / "incoming").iterdir()))
        self.assertEqual(list((self.sandbox.home() / event).iterdir()), [])

    def test_an_upload_that_ends_without_tlss_closing_notice_is_not_stored(self) -> None:
        client, event = self.secured(), self.new_event()
        self.begin_upload(client, event).close()
        self.assertStoresNothing(client, event)

    def test_bytes_that_are_no_tls_end_an_upload_and_store_nothing(self) -> None:
        client, event = self.secured(), self.new_event()
        connection = self.begin_upload(client, event)
        os.write(connection.fileno(), b"these are no TLS records" * 1000)
        self.assertStoresNothing(client, event)

    def test_a_full_disk_is_reported_and_stores_nothing(self) -> None:
        client, event = self.secured(), self.new_event()
        with self.sandbox.disk_full_after(1_000_000):
            connection = self.begin_upload(client, event)
            with suppress(OSError):
                connection.sendall(b"x" * 2_000_000)
            self.assertStoresNothing(client, event)

    def test_a_data_connection_that_closes_before_any_command_gets_no_reply(self) -> None:
        client = self.secured()
        socket.create_connection(client.makepasv(), timeout=DEADLINE_S).close()
        for _ in range(3):
            self.assertRegex(client.sendcmd("NOOP"), "^200 ")

    def test_bytes_that_come_before_their_command_wait_for_it_and_keep_no_processor_busy(self) -> None:
        event, uploads = self.new_event(), []
        # Several, because the handshake's messages may meet in one way or another.
        for number in range(6):
            client = self.secured()
            client.voidcmd("TYPE I")
            plain = socket.create_connection(client.makepasv(), timeout=DEADLINE_S)
            connection = self.sandbox.tls().wrap_socket(plain, server_hostname="127.0.0.1")
            connection.sendall(jpeg(seed=number))
            uploads.append((client, connection))
        client.mkd(event)
        before = self.sandbox.processor_seconds()
        time.sleep(0.5)
        self.assertLess(self.sandbox.processor_seconds() - before, 0.05)
        for number, (client, connection) in enumerate(uploads):
            client.sendcmd(f"STOR {event}/{number}.jpg")
            connection.unwrap().close()
            self.assertRegex(client.voidresp(), "^226 ")
            self.assertEqual((self.sandbox.home() / event / f"{number}.jpg").read_bytes(), jpeg(seed=number))

    def test_a_data_connection_that_speaks_no_tls_stores_nothing(self) -> None:
        client, event = self.secured(), self.new_event()
        client.mkd(event)
        client.voidcmd("TYPE I")
        # The library's client without its TLS: a plain data connection behind a protected control connection.
        connection = ftplib.FTP.ntransfercmd(client, f"STOR {event}/a.jpg")[0]
        connection.sendall(b"x" * 100_000)
        with self.assertRaisesRegex(ftplib.Error, "^(522|426) "):
            client.voidresp()
        connection.close()
        wait_until(lambda: not list((self.sandbox.state / "incoming").iterdir()))
        self.assertEqual(list((self.sandbox.home() / event).iterdir()), [])


if __name__ == "__main__":
    unittest.main()
