"""A web side and an FTP side of the service that answer whatever a test wants them to."""

import contextlib
import socket
import sys
import threading
from urllib.parse import unquote

from scene import SOURCE

sys.path.insert(0, str(SOURCE / "sandbox"))
from quillmark_sandbox.certificates import Certificates  # noqa: E402

WEB_HOST, FTP_HOST = "www.quillmark.example", "ftp.quillmark.example"
HONEST_ANSWERS = {
    "login.php": "<Login><Success>1</Success><UserId>7</UserId><Password>token</Password>"
                 "<LoggedInName>Ann</LoggedInName><AllowHighResUploads>1</AllowHighResUploads></Login>",
    "eventlist.php": '<Events><Event id="77"><Name>Smith Wedding</Name></Event></Events>',
    "categorylist.php": '<Categories><Category id="1"><Name>Ceremony</Name></Category></Categories>',
    "processimages.php": "<Information><Result>All is well.</Result></Information>",
}


class Server:
    """Listens on loopback; each connection has a thread of its own, and goes with the server."""

    def __init__(self):
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self._open: list[socket.socket] = []
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self):
        for one in [self._listener, *self._open]:
            with contextlib.suppress(OSError):
                one.shutdown(socket.SHUT_RDWR)
            one.close()

    def _accept(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self._listener.accept()
                self._open.append(connection)
                threading.Thread(target=self._run, args=(connection,), daemon=True).start()

    def _run(self, connection: socket.socket):
        with contextlib.suppress(OSError, ValueError):
            self.talk(connection)
        with contextlib.suppress(OSError):
            connection.close()

    def talk(self, connection: socket.socket):
        raise NotImplementedError


def http_answer(body: bytes, status: str = "200 OK", *headers: str) -> bytes:
    head = [f"HTTP/1.1 {status}", "Content-Type: text/xml", f"Content-Length: {len(body)}", *headers, "", ""]
    return "\r\n".join(head).encode("latin-1") + body


class WebServer(Server):
    """`answers`: by the request's last path component, a document, or the raw bytes of a whole answer, or a function that
    is given the connection and says whatever it wants. What is not in it is answered honestly."""

    def __init__(self, folder, answers: dict):
        self._tls = Certificates(folder, [WEB_HOST]).https_context()
        self._answers = {**HONEST_ANSWERS, **answers}
        self.requests: list[str] = []
        super().__init__()

    def talk(self, connection):
        with self._tls.wrap_socket(connection, server_side=True) as secured:
            lines = secured.makefile("rb")
            while line := lines.readline():
                target = line.split()[1].decode("latin-1")
                self.requests.append(target)
                while lines.readline().strip():
                    pass
                answer = self._answers.get(target.partition("?")[0].rpartition("/")[2])
                if callable(answer):
                    answer(secured)
                else:
                    secured.sendall(answer if isinstance(answer, bytes) else http_answer((answer or "").encode()))


class FTPServer(Server):
    """`replies`: by verb (and "(greeting)", "(closing reply)"), the bytes to say in place of the honest reply, or a
    function that is given the connection. Files are kept in memory by the path that the client named."""

    def __init__(self, replies: dict):
        self._replies = replies
        self.lines: list[str] = []
        self.files: dict[str, bytes] = {}
        super().__init__()

    def talk(self, connection):
        passive = None
        self._say(connection, "(greeting)", b"220 Welcome.")
        for line in connection.makefile("rb"):
            text = line.decode("utf-8", "replace").rstrip("\r\n")
            self.lines.append(text)
            verb, _, argument = text.partition(" ")
            verb = verb.upper()
            if verb == "EPSV" and verb not in self._replies:
                passive = socket.create_server(("127.0.0.1", 0))
                self._say(connection, verb, b"229 Entering passive mode (|||%d|)." % passive.getsockname()[1])
            elif verb == "STOR" and verb not in self._replies:
                self._store(connection, passive, argument)
            else:
                honest = {"USER": b"331 Password.", "PASS": b"230 In.", "PWD": b'257 "/" is it.', "MKD": b"257 Made."}
                self._say(connection, verb, honest.get(verb, b"200 Fine."))

    def _store(self, connection, passive, path):
        connection.sendall(b"150 Go on.\r\n")
        with passive, passive.accept()[0] as data:
            if said := self._replies.get("(data)"):
                data.sendall(said)
            pieces = []
            while piece := data.recv(65536):
                pieces.append(piece)
        self.files[unquote(path)] = b"".join(pieces)
        self._say(connection, "(closing reply)", b"226 Stored.")

    def _say(self, connection, step: str, honest: bytes):
        reply = self._replies.get(step, honest)
        if callable(reply):
            reply(connection)
        else:
            connection.sendall(reply + b"\r\n")
