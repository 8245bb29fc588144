"""The FTP side: each user's own folder, plain or with TLS on every connection."""

import logging
import re
import secrets
import socket
import threading
from contextlib import suppress
from typing import Any, Optional

from OpenSSL import SSL
from pyftpdlib.authorizers import AuthenticationFailed, DummyAuthorizer
from pyftpdlib.filesystems import AbstractedFS
from pyftpdlib.handlers import DTPHandler, FTPHandler, PassiveDTP, TLS_DTPHandler, TLS_FTPHandler
from pyftpdlib.ioloop import AsyncChat, IOLoop, RetryError
from pyftpdlib.servers import FTPServer

from .data import User
from .logins import Logins
from .uploads import IncomingFile, Uploads

# See the library's list: change folder, list, read, delete, rename, make a folder, store. No appending.
PERMISSIONS = "elrdfmw"
BANNER = "Quillmark sandbox"
LONGEST_COMMAND = 2048
CONTROL_TIMEOUT_S = 300
DATA_TIMEOUT_S = 60
REFUSED_LOGIN_DELAY_S = 0.2
LOG = logging.getLogger("pyftpdlib")
CONTROL_CHARACTERS = re.compile(r"[\x00-\x1f\x7f]")
# STOU writes under a visible name from the first byte on; the rest would change what was stored.
NOT_OFFERED = ("STOU", "APPE", "MFMT", "SITE CHMOD")


class FTPService:
    """Serves a listening socket on a thread of its own."""

    def __init__(
        self,
        listener: socket.socket,
        users: tuple[User, ...],
        uploads: Uploads,
        logins: Logins,
        tls: Optional[SSL.Context],
    ) -> None:
        _log_errors_only()
        self._loop = IOLoop()
        handler = _handler(_Authorizer(users, uploads, logins), uploads, tls)
        FTPServer(listener, handler, ioloop=self._loop)
        self._stop, wake = socket.socketpair()
        _StopSignal(wake, self._loop)
        self._thread = threading.Thread(target=self._loop.loop, name="ftp")
        self._thread.start()

    def close(self) -> None:
        """Ends every connection; an upload that is under way is given up."""
        self._stop.close()
        self._thread.join()


def _log_errors_only() -> None:
    LOG.setLevel(logging.ERROR)
    LOG.propagate = False
    if not LOG.handlers:
        LOG.addHandler(logging.StreamHandler())


def _handler(authorizer: DummyAuthorizer, uploads: Uploads, tls: Optional[SSL.Context]) -> type[FTPHandler]:
    """The library configures sessions by class attributes: a class for this service alone."""
    attributes: dict[str, Any] = {"authorizer": authorizer, "uploads": uploads}
    if tls is None:
        return type("Session", (_PlainSession,), attributes)
    return type("Session", (_TLSSession,), {**attributes, "ssl_context": tls})


class _StopSignal(AsyncChat):
    """Ends the loop, from the loop's own thread, when the other end of its socket is closed."""

    def __init__(self, wake: socket.socket, loop: IOLoop) -> None:
        super().__init__(wake, ioloop=loop)

    def handle_read(self) -> None:
        self.ioloop.close()


class _Authorizer(DummyAuthorizer):
    """The service's own users and passwords; nobody is let in anonymously."""

    def __init__(self, users: tuple[User, ...], uploads: Uploads, logins: Logins) -> None:
        super().__init__()
        self._logins = logins
        for user in users:
            self.add_user(user.login, secrets.token_urlsafe(), str(uploads.home(user)), perm=PERMISSIONS)

    def validate_authentication(self, username: str, password: str, handler: FTPHandler) -> None:
        if not self._logins.user_with_password(username, password):
            raise AuthenticationFailed("Login incorrect.")


class _UserFolder(AbstractedFS):
    """A user's folder, in which files appear only once they are complete."""

    def open(self, filename: str, mode: str) -> Any:
        if mode == "rb":
            return super().open(filename, mode)
        return self.cmd_channel.uploads.receive(filename)

    def rename(self, src: str, dst: str) -> None:
        self.cmd_channel.uploads.rename(src, dst)


class _DataChannel(DTPHandler):
    """A data connection whose upload counts only when the client ended it in order."""

    timeout = DATA_TIMEOUT_S
    ended_in_order = False

    def recv(self, buffer_size: int) -> bytes:
        try:
            data = self.socket.recv(buffer_size)
        except BlockingIOError as error:
            raise RetryError from error
        except OSError:
            data = b""
        else:
            # A client that dies closes its control connection too: its file is cut off, not ended.
            self.ended_in_order = not data and not self.cmd_channel.client_is_gone()
        if not data:
            self.handle_close()
        return data

    def handle_close(self) -> None:
        if not self._initialized:
            # Nothing was asked for yet, so there is nothing to reply to.
            self.close()
        elif self.receive and not self.ended_in_order:
            self._resp = ("426 Connection closed; transfer aborted.", LOG.debug)
            self.close()
        else:
            super().handle_close()

    def close(self) -> None:
        upload = self.file_obj
        if isinstance(upload, IncomingFile) and not upload.closed and self.ended_in_order:
            try:
                upload.keep()
            except OSError as error:
                self._resp = (f"550 {error.strerror}.", LOG.debug)
        super().close()


class _TLSDataChannel(TLS_DTPHandler, _DataChannel):
    """A data connection with TLS, in which an upload ends with TLS's own closing notice."""

    def __init__(self, sock: socket.socket, cmd_channel: FTPHandler) -> None:
        # The handshake's small messages must not wait for each other's acknowledgement.
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        super().__init__(sock, cmd_channel)

    def recv(self, buffer_size: int) -> bytes:
        try:
            return self.socket.recv(buffer_size)
        except SSL.WantReadError as error:
            self._ssl_want_read = True
            raise RetryError from error
        except SSL.ZeroReturnError:
            self.ended_in_order = True
        except (SSL.Error, OSError):
            pass
        self.handle_close()
        return b""

    def readable(self) -> bool:
        # The library takes the client's hello, where it comes before the command, for a hang-up.
        return self._ssl_accepting or self._ssl_want_read or self.receive

    def handle_ssl_established(self) -> None:
        if not self._initialized:
            # Bytes that come before a command asks for them stay where they are.
            self._wanted_io_events = 0
            self.modify_ioloop_events(0)

    def handle_error(self) -> None:
        # The library's own forgets to reply.
        self._error = True
        DTPHandler.handle_error(self)

    def close(self) -> None:
        if self.receive and self._ssl_established:
            # Nothing is left to send, so there is no reason to wait for a full closing handshake.
            with suppress(SSL.Error, OSError):
                self.socket.shutdown()
            self._ssl_established = False
        super().close()


class _PassiveListener(PassiveDTP):
    """Waits for a data connection."""

    def handle_accepted(self, sock: socket.socket, addr: Any) -> None:
        super().handle_accepted(sock, addr)
        if self._closed and self.cmd_channel.connected:
            self.cmd_channel.refuse_transfer_without_connection()


class _Session(FTPHandler):
    """A control connection, stricter than the library's where a real server is."""

    abstracted_fs = _UserFolder
    passive_dtp = _PassiveListener
    banner = BANNER
    timeout = CONTROL_TIMEOUT_S
    auth_failed_timeout = REFUSED_LOGIN_DELAY_S
    # Names are UTF-8 (RFC 2640); a name that isn't must not be stored as another.
    unicode_errors = "strict"
    uploads: Uploads
    _too_long = False

    def collect_incoming_data(self, data: bytes) -> None:
        # The library would take what follows the limit for another command.
        self._too_long = self._too_long or self._in_buffer_len + len(data) > LONGEST_COMMAND
        if not self._too_long:
            super().collect_incoming_data(data)

    def found_terminator(self) -> None:
        if self._too_long:
            self._too_long, self._in_buffer, self._in_buffer_len = False, [], 0
            self.respond("500 Command too long.")
        else:
            super().found_terminator()

    def decode(self, bytes: bytes) -> str:
        try:
            return super().decode(bytes)
        except UnicodeDecodeError:
            # The library replies, but would put these bytes in front of the next command.
            self._in_buffer, self._in_buffer_len = [], 0
            raise

    def pre_process_command(self, line: str, cmd: str, arg: str) -> None:
        if CONTROL_CHARACTERS.search(line):
            self.respond("501 Control characters are not allowed.")
        else:
            super().pre_process_command(line, cmd, arg)

    def ftp_STOR(self, file: str, mode: str = "w") -> Optional[str]:
        waiting = (self._dtp_acceptor, self._dtp_connector)
        if not self.data_channel and all(each is None or each._closed for each in waiting):
            self.respond("425 Use PASV or PORT first.")
            return None
        return super().ftp_STOR(file, mode)

    def ftp_REST(self, line: str) -> None:
        if line.strip() != "0":
            self.respond("502 Transfers can't be resumed.")
        else:
            super().ftp_REST(line)

    def refuse_transfer_without_connection(self) -> None:
        """Ends a transfer whose data connection broke before it was accepted: the library would wait on."""
        if self.data_channel is None and self._in_dtp_queue is not None:
            upload, _ = self._in_dtp_queue
            self._in_dtp_queue = None
            upload.close()
            self.respond("425 The data connection broke.")

    def client_is_gone(self) -> bool:
        try:
            return self.socket.recv(1, socket.MSG_PEEK) == b""
        except BlockingIOError:
            return False
        except OSError:
            return True


def _offered(commands: dict[str, Any]) -> dict[str, Any]:
    return {name: command for name, command in commands.items() if name not in NOT_OFFERED}


class _PlainSession(_Session):
    dtp_handler = _DataChannel
    proto_cmds = _offered(FTPHandler.proto_cmds)


class _TLSSession(TLS_FTPHandler, _Session):
    """A session that requires TLS on the control connection and on every data connection."""

    dtp_handler = _TLSDataChannel
    proto_cmds = _offered(TLS_FTPHandler.proto_cmds)
    tls_control_required = True
    tls_data_required = True

    def ftp_AUTH(self, line: str) -> None:
        super().ftp_AUTH(line)
        # What came unencrypted behind the command must not count as said inside TLS.
        self.ac_in_buffer = b""

    def ftp_PROT(self, line: str) -> None:
        if line.upper() == "C":
            self.respond("534 Data connections need TLS.")
        else:
            super().ftp_PROT(line)
