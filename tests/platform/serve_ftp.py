#!/usr/bin/python3
"""Serves FOLDER/root by FTP with a real server, until standard input ends.

    serve_ftp.py pyftpdlib|vsftpd|proftpd|pure-ftpd FOLDER [CERTIFICATE KEY]

Prints the port. With a certificate, TLS is required on control and data connections, and vsftpd and ProFTPD demand
that data connections reuse the session. The account is "ann", password "secret", and "anonymous" with vsftpd.
FOLDER/connections gets a line for each control connection, and FOLDER/log one for each command, but with Pure-FTPd,
which tells commands to the system's log alone.
"""

import logging
import socket
import subprocess
import sys
import threading
from pathlib import Path

# Where scripts/setup unpacks the servers that can't be installed beside each other.
UNPACKED = "/usr/local/lib/quillmark-test-servers/usr"

# Both would change to the account's user, which only root may do. Under fakeroot they believe they do, whoever runs
# the tests, and the account's number is nobody's.
FAKE_USER = 1000
PASSWORD_HASH = "$6$quillmark$KE9Wb.FDXDNhOToNcyekaUGNBPX.TMrf7B8EW0rUXe4OYis4ZS.4cqiGjJXkqKnOq4Z6hDLdWfl3k8lmYPfoT1"

VSFTPD = "/usr/sbin/vsftpd"

# As the launching user, root or not: then nothing is chrooted, and the folder may be the login folder.
VSFTPD_CONFIGURATION = """
listen=NO
run_as_launching_user=YES
anonymous_enable=YES
no_anon_password=YES
anon_root={folder}/root
write_enable=YES
anon_upload_enable=YES
anon_mkdir_write_enable=YES
seccomp_sandbox=NO
secure_chroot_dir={folder}/empty
xferlog_enable=YES
log_ftp_protocol=YES
vsftpd_log_file={folder}/log
"""

VSFTPD_TLS = """
ssl_enable=YES
allow_anon_ssl=YES
force_anon_logins_ssl=YES
force_anon_data_ssl=YES
require_ssl_reuse=YES
strict_ssl_read_eof=YES
rsa_cert_file={certificate}
rsa_private_key_file={key}
ssl_ciphers=HIGH
"""

PROFTPD_CONFIGURATION = """
ServerType inetd
ServerName test
DefaultServer on
ModulePath {modules}
LoadModule mod_tls.c
AuthOrder mod_auth_file.c
AuthUserFile {folder}/accounts
AuthPAM off
RequireValidShell off
UseFtpUsers off
UseReverseDNS off
DelayEngine off
WtmpLog off
TransferLog none
ScoreboardFile none
SystemLog none
LogFormat command "%m"
ExtendedLog {folder}/log ALL command
"""

PROFTPD_TLS = """
TLSEngine on
TLSRequired on
TLSRSACertificateFile {certificate}
TLSRSACertificateKeyFile {key}
"""


def listen() -> socket.socket:
    listener = socket.socket()
    listener.bind(("127.0.0.1", 0))
    listener.listen(16)
    print(listener.getsockname()[1], flush=True)
    return listener


def serve_pyftpdlib(folder: Path, certificate: str, key: str) -> None:
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import FTPHandler, TLS_DTPHandler, TLS_FTPHandler
    from pyftpdlib.servers import FTPServer

    class TLSDataChannel(TLS_DTPHandler):
        def readable(self) -> bool:
            # The library takes the client's hello, where it comes before the command, for a hang-up.
            return self._ssl_accepting or self.receive

    class Session(TLS_FTPHandler if certificate else FTPHandler):
        def on_connect(self) -> None:
            note_connection(folder)

        def pre_process_command(self, line: str, cmd: str, arg: str) -> None:
            with Path(folder, "log").open("a", encoding="utf-8") as commands:
                commands.write(line + "\n")
            super().pre_process_command(line, cmd, arg)

    log = logging.getLogger("pyftpdlib")
    log.addHandler(logging.StreamHandler())
    log.setLevel(logging.ERROR)
    Session.authorizer = DummyAuthorizer()
    Session.authorizer.add_user("ann", "secret", str(folder / "root"), perm="elradfmw")
    if certificate:
        Session.dtp_handler = TLSDataChannel
        Session.certfile, Session.keyfile = certificate, key
        Session.tls_control_required = Session.tls_data_required = True
    FTPServer(listen(), Session).serve_forever()


def note_connection(folder: Path) -> None:
    with Path(folder, "connections").open("a", encoding="utf-8") as connections:
        connections.write("connected\n")


def serve_each(folder: Path, command: list[str]) -> None:
    """A process for each connection, as inetd does it: so the port is the system's choice."""
    listener = listen()
    while True:
        connection, _ = listener.accept()
        note_connection(folder)
        with connection:
            subprocess.Popen(command, stdin=connection, stdout=connection)


def serve_vsftpd(folder: Path, certificate: str, key: str) -> None:
    configuration = VSFTPD_CONFIGURATION + (VSFTPD_TLS if certificate else "")
    Path(folder, "empty").mkdir()
    Path(folder, "configuration").write_text(
        configuration.format(folder=folder, certificate=certificate, key=key), encoding="utf-8"
    )
    serve_each(folder, [VSFTPD, str(folder / "configuration")])


def serve_proftpd(folder: Path, certificate: str, key: str) -> None:
    configuration = PROFTPD_CONFIGURATION + (PROFTPD_TLS if certificate else "")
    Path(folder, "configuration").write_text(
        configuration.format(folder=folder, certificate=certificate, key=key, modules=f"{UNPACKED}/lib/proftpd"),
        encoding="utf-8",
    )
    accounts = folder / "accounts"
    accounts.write_text(
        f"ann:{PASSWORD_HASH}:{FAKE_USER}:{FAKE_USER}::{folder}/root:/bin/sh\n", encoding="utf-8"
    )
    accounts.chmod(0o600)
    serve_each(folder, ["fakeroot", f"{UNPACKED}/sbin/proftpd", "-c", str(folder / "configuration")])


def serve_pure_ftpd(folder: Path, certificate: str, key: str) -> None:
    accounts = folder / "accounts"
    accounts.write_text(
        f"ann:{PASSWORD_HASH}:{FAKE_USER}:{FAKE_USER}::{folder}/root::::::::::::\n", encoding="utf-8"
    )
    database = folder / "accounts.pdb"
    subprocess.run([f"{UNPACKED}/bin/pure-pw", "mkdb", str(database), "-f", str(accounts)], check=True)
    command = ["fakeroot", f"{UNPACKED}/sbin/pure-ftpd", "--noanonymous", "--dontresolve", "--minuid", "1"]
    command += ["--login", f"puredb:{database}"]
    if certificate:
        both = folder / "certificate.pem"
        both.write_bytes(Path(certificate).read_bytes() + Path(key).read_bytes())
        command += ["--tls", "3", "--certfile", str(both)]
    serve_each(folder, command)


def main() -> None:
    kind, folder, certificate, key = (sys.argv[1:] + ["", ""])[:4]
    Path(folder, "root").mkdir()
    serve = {
        "pyftpdlib": serve_pyftpdlib,
        "vsftpd": serve_vsftpd,
        "proftpd": serve_proftpd,
        "pure-ftpd": serve_pure_ftpd,
    }[kind]
    threading.Thread(target=serve, args=(Path(folder), certificate, key), daemon=True).start()
    sys.stdin.read()


if __name__ == "__main__":
    main()
