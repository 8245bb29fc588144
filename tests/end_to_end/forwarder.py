"""A stretch of network between the command and a service that a test can listen to and cut."""

import socket
import threading


class Forwarder:
    """Forwards connections from a loopback port of its own to `target_port`.

    `heard`, if given, is called with what each client sends, and `answered` with what the service sends, before it
    goes on. All of it on threads.
    """

    def __init__(self, target_port: int, heard=None, answered=None):
        self.target_port = target_port
        self.heard = heard
        self.answered = answered
        self._lock = threading.Lock()
        self._sockets: set[socket.socket] = set()
        self._is_cut = False
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def cut(self):
        """Breaks every connection off, and each new one at once."""
        with self._lock:
            self._is_cut = True
            for connection in self._sockets:
                self._break(connection)

    def mend(self):
        with self._lock:
            self._is_cut = False

    def close(self):
        self.cut()
        self._break(self._listener)
        self._listener.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    @staticmethod
    def _break(connection: socket.socket):
        try:
            connection.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass  # Its other end was faster.

    def _accept(self):
        while True:
            try:
                client, _ = self._listener.accept()
            except OSError:
                return
            threading.Thread(target=self._forward, args=(client,), daemon=True).start()

    def _forward(self, client: socket.socket):
        with client, socket.socket() as server:
            with self._lock:
                if self._is_cut:
                    return
                self._sockets |= {client, server}
            try:
                server.connect(("127.0.0.1", self.target_port))
                back = threading.Thread(target=self._pump, args=(server, client, self.answered), daemon=True)
                back.start()
                self._pump(client, server, self.heard)
                back.join()
            except OSError:
                pass  # The service is not there.
            finally:
                with self._lock:
                    self._sockets -= {client, server}

    def _pump(self, source: socket.socket, sink: socket.socket, told):
        try:
            while data := source.recv(65536):
                if told:
                    told(data)
                sink.sendall(data)
        except OSError:
            pass
        self._break(sink)
        self._break(source)
