#!/usr/bin/python3
"""Serves FOLDER/root by FTP with a real server, until standard input ends.

    serve_ftp.py pyftpdlib|vsftpd FOLDER [CERTIFICATE KEY]

Prints the port. With a certificate, TLS is required on control and data connections, and vsftpd demands that data
connections reuse the session. The account is "ann", password "secret", with pyftpdlib, and "anonymous" with vsftpd.
FOLDER/log gets a line for each command.
"""

import logging
import socket
import subprocess
import sys
import threading
from pathlib import Path

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


def serve_vsftpd(folder: Path, certificate: str, key: str) -> None:
    """A process for each connection, as inetd does it: so the port is the system's choice."""
    configuration = VSFTPD_CONFIGURATION + (VSFTPD_TLS if certificate else "")
    Path(folder, "empty").mkdir()
    Path(folder, "configuration").write_text(
        configuration.format(folder=folder, certificate=certificate, key=key), encoding="utf-8"
    )
    listener = listen()
    while True:
        connection, _ = listener.accept()
        with connection:
            subprocess.Popen([VSFTPD, str(folder / "configuration")], stdin=connection, stdout=connection)


def main() -> None:
    kind, folder, certificate, key = (sys.argv[1:] + ["", ""])[:4]
    Path(folder, "root").mkdir()
    serve = {"pyftpdlib": serve_pyftpdlib, "vsftpd": serve_vsftpd}[kind]
    threading.Thread(target=serve, args=(Path(folder), certificate, key), daemon=True).start()
    sys.stdin.read()


if __name__ == "__main__":
    main()
