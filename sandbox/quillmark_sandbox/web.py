"""The HTTP servers: endpoints and gallery over HTTPS, the gallery alone over plain HTTP."""

import io
import re
import shutil
import socket
import socketserver
import ssl
import sys
import threading
import time
import traceback
from dataclasses import dataclass, field
from http import HTTPStatus
from http.server import BaseHTTPRequestHandler
from pathlib import Path
from typing import Any, Callable, Optional

HANDSHAKE_TIMEOUT_S = 10
# From the wait for a request to its last header: covers idle connections and clients that send byte by byte.
REQUEST_TIMEOUT_S = 60
WRITE_TIMEOUT_S = 30
# How long the rest of a refused request is read.
REFUSED_READ_S = 2
LONGEST_TARGET = 8192
SERVER_NAME = "QuillmarkSandbox"
CONNECTIONS = 200
NOT_IN_REQUEST_LINE = re.compile(rb"[^\x20-\x7e\r\n]")
TEXT = "text/plain; charset=UTF-8"
COMMON_HEADERS = {
    "X-Content-Type-Options": "nosniff",
    "Referrer-Policy": "no-referrer",
    "Cross-Origin-Resource-Policy": "same-origin",
    "Content-Security-Policy": "default-src 'none'; img-src 'self'; style-src 'self'; base-uri 'none'; "
    "form-action 'none'; frame-ancestors 'none'",
}


@dataclass(frozen=True)
class Answer:
    """What goes back: a body, or a file's content."""

    status: HTTPStatus
    content_type: str
    body: bytes = b""
    file: Optional[Path] = None
    headers: dict[str, str] = field(default_factory=dict)

    @classmethod
    def text(cls, status: HTTPStatus, message: str) -> "Answer":
        return cls(status, TEXT, f"{message}\n".encode())


# From the request's host (without a port), path and query to its answer.
Route = Callable[[str, str, str], Answer]


class WebServer(socketserver.ThreadingTCPServer):
    """Serves a listening socket: one thread accepts, every connection has its own."""

    daemon_threads = True

    def __init__(self, listener: socket.socket, route: Route, tls: Optional[ssl.SSLContext] = None) -> None:
        super().__init__(listener.getsockname(), _Handler, bind_and_activate=False)
        self.socket.close()
        self.socket = listener
        self.route = route
        self._tls = tls
        self._places = threading.BoundedSemaphore(CONNECTIONS)
        threading.Thread(target=self.serve_forever, name="https" if tls else "http", daemon=True).start()

    def process_request(self, request: Any, client_address: Any) -> None:
        if self._places.acquire(blocking=False):
            super().process_request(request, client_address)
        else:
            self.shutdown_request(request)

    def process_request_thread(self, request: Any, client_address: Any) -> None:
        try:
            super().process_request_thread(request, client_address)
        finally:
            self._places.release()

    def finish_request(self, request: Any, client_address: Any) -> None:
        if not self._tls:
            super().finish_request(request, client_address)
            return
        # On the connection's own thread: a client that never says hello must not keep others waiting.
        request.settimeout(HANDSHAKE_TIMEOUT_S)
        with self._tls.wrap_socket(request, server_side=True) as connection:
            super().finish_request(connection, client_address)

    def handle_error(self, request: Any, client_address: Any) -> None:
        # Connections break and handshakes fail by their clients' doing.
        if not isinstance(sys.exc_info()[1], OSError):
            traceback.print_exc()


class _DeadlineReader(io.RawIOBase):
    """Reads from a connection until a moment in time, however the bytes trickle in."""

    def __init__(self, connection: socket.socket) -> None:
        self._connection = connection
        self.deadline = 0.0

    def readable(self) -> bool:
        return True

    def readinto(self, buffer: Any) -> int:
        remaining = self.deadline - time.monotonic()
        if remaining <= 0:
            raise TimeoutError("the request did not come in time")
        self._connection.settimeout(remaining)
        return self._connection.recv_into(buffer)


class _Handler(BaseHTTPRequestHandler):
    server: WebServer
    protocol_version = "HTTP/1.1"
    # Until the line is read: refusals get a head, too.
    default_request_version = "HTTP/1.0"
    # An answer's head and body leave together.
    wbufsize = -1
    disable_nagle_algorithm = True
    _refused = False

    def setup(self) -> None:
        super().setup()
        self.rfile.close()
        self._reader = _DeadlineReader(self.connection)
        self.rfile = io.BufferedReader(self._reader)

    def finish(self) -> None:
        super().finish()
        if self._refused:
            self._read_to_the_end()

    def handle_one_request(self) -> None:
        self._reader.deadline = time.monotonic() + REQUEST_TIMEOUT_S
        super().handle_one_request()

    def parse_request(self) -> bool:
        # The library splits the line at all that Unicode calls a space, among them some of UTF-8's bytes.
        self.raw_requestline = NOT_IN_REQUEST_LINE.sub(
            lambda match: b"%%%02X" % match[0][0], self.raw_requestline
        )
        return super().parse_request()

    def do_GET(self) -> None:
        self.connection.settimeout(WRITE_TIMEOUT_S)
        if self.headers.get("Content-Length", "0") != "0" or "Transfer-Encoding" in self.headers:
            # A body is never read: what follows it on the connection could not be told from it.
            self.send_error(HTTPStatus.BAD_REQUEST, "A body is not expected.")
        elif len(self.path) > LONGEST_TARGET:
            self.send_error(HTTPStatus.REQUEST_URI_TOO_LONG, "The request is too long.")
        else:
            self._send(self._answer())

    do_HEAD = do_GET

    def _answer(self) -> Answer:
        path, _, query = self.path.partition("?")
        host = re.sub(r":\d*$", "", self.headers.get("Host", ""))
        try:
            return self.server.route(host.lower(), path, query)
        except Exception:
            traceback.print_exc()
            return Answer.text(
                HTTPStatus.INTERNAL_SERVER_ERROR, "The sandbox failed; its standard error tells why."
            )

    def _send(self, answer: Answer) -> None:
        if answer.file:
            try:
                with open(answer.file, "rb") as file:
                    self._send_head(answer, file.seek(0, io.SEEK_END))
                    file.seek(0)
                    if self.command != "HEAD":
                        shutil.copyfileobj(file, self.wfile)
                return
            except FileNotFoundError:
                answer = Answer.text(HTTPStatus.NOT_FOUND, "There is nothing here.")
        self._send_head(answer, len(answer.body))
        if self.command != "HEAD":
            self.wfile.write(answer.body)

    def _send_head(self, answer: Answer, length: int) -> None:
        self.send_response(answer.status)
        self.send_header("Content-Type", answer.content_type)
        self.send_header("Content-Length", str(length))
        for name, value in {"Cache-Control": "no-store", **COMMON_HEADERS, **answer.headers}.items():
            self.send_header(name, value)
        self.end_headers()

    def send_error(self, code: int, message: Optional[str] = None, explain: Optional[str] = None) -> None:
        """Refuses a request that can't be read, and with it whatever else the connection would bring."""
        self._refused = True
        status = HTTPStatus(code)
        self._send(
            Answer(status, TEXT, f"{message or status.phrase}\n".encode(), headers={"Connection": "close"})
        )

    def _read_to_the_end(self) -> None:
        """Closing on unread bytes would reset the connection, and the client would lose the refusal."""
        self.connection.shutdown(socket.SHUT_WR)
        self._reader.deadline = time.monotonic() + REFUSED_READ_S
        buffer = bytearray(65536)
        while self._reader.readinto(buffer):
            pass

    def version_string(self) -> str:
        return SERVER_NAME

    def log_message(self, format: str, *args: Any) -> None:
        """Queries hold passwords: nothing of a request is written anywhere."""
