"""The command: options, start, the ready line, and the end on a signal."""

import argparse
import signal
import socket
import sys
from pathlib import Path
from typing import NoReturn, Optional, Sequence

from .certificates import Certificates
from .data import load
from .endpoints import Endpoints
from .errors import StartError
from .ftp import FTPService
from .gallery import Gallery
from .logins import Logins
from .site import Site
from .state import StateFolder
from .uploads import Uploads
from .web import WebServer

WEB_HOST = "www.quillmark.example"
FTP_HOST = "ftp.quillmark.example"
LOOPBACK = "127.0.0.1"
LOCAL_NAMES = ["localhost", LOOPBACK]
SAMPLE_DATA = Path(__file__).parent.parent / "sample-data.json"
END_SIGNALS = {signal.SIGTERM, signal.SIGINT}
BACKLOG = 128
START_FAILED = 1
WRONG_USAGE = 2


def main(arguments: Optional[Sequence[str]] = None) -> int:
    options = _parser().parse_args(arguments)
    # Blocked before the first thread starts, so that every thread leaves them to the wait below.
    signal.pthread_sigmask(signal.SIG_BLOCK, END_SIGNALS)
    try:
        _serve(options)
    except StartError as error:
        return _fail(str(error))
    except OSError as error:
        return _fail(f"{error.filename}: {error.strerror}" if error.filename else str(error))
    return 0


def _serve(options: argparse.Namespace) -> None:
    data = load(options.data)
    state = StateFolder(options.state)
    https, ftp, http = [
        _listener(name, getattr(options, f"{name}_port")) for name in ("https", "ftp", "gallery")
    ]
    uploads = Uploads(state.path, data.users)
    gallery = Gallery(state.path, data, uploads)
    certificates = Certificates(state.path, [WEB_HOST, FTP_HOST, *LOCAL_NAMES])
    logins = Logins(data)
    site = Site(data, Endpoints(logins, gallery), gallery, {WEB_HOST, *LOCAL_NAMES})

    ftps_context = certificates.ftps_context() if options.ftps else None
    ftp_service = FTPService(ftp, data.users, uploads, logins, ftps_context)
    WebServer(https, site.service_and_gallery, certificates.https_context())
    WebServer(http, site.gallery)
    configuration = state.write_configuration(
        WEB_HOST, _port(https), FTP_HOST, _port(ftp), certificates.authority_file, options.ftps
    )
    address = f"http://{LOOPBACK}:{_port(http)}/"
    print(f"ready https={_port(https)} ftp={_port(ftp)} gallery={address} config={configuration}", flush=True)
    signal.sigwait(END_SIGNALS)
    ftp_service.close()
    gallery.close()
    state.release()


def _listener(name: str, port: int) -> socket.socket:
    listener = socket.socket()
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    try:
        listener.bind((LOOPBACK, port))
        listener.listen(BACKLOG)
    except OSError as error:
        raise StartError(f"--{name}-port {port}: {error.strerror}") from error
    return listener


def _port(listener: socket.socket) -> int:
    return listener.getsockname()[1]


class _Parser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        sys.exit(_fail(message, WRONG_USAGE))


def _parser() -> argparse.ArgumentParser:
    parser = _Parser(
        prog="sandbox/serve",
        allow_abbrev=False,
        description="A Quillmark proofing service for this machine, on loopback only.",
    )
    parser.add_argument(
        "--state", type=Path, required=True, metavar="DIR", help="folder that keeps everything"
    )
    for name, what in (("https", "service"), ("ftp", "uploads"), ("gallery", "gallery page over plain HTTP")):
        parser.add_argument(
            f"--{name}-port",
            type=_port_number,
            default=0,
            metavar="N",
            help=f"port of the {what}; 0, the default, takes a free one",
        )
    parser.add_argument("--ftps", action="store_true", help="require TLS on control and data connections")
    parser.add_argument(
        "--data",
        type=Path,
        default=SAMPLE_DATA,
        metavar="FILE",
        help="users, events, categories and pricing templates",
    )
    return parser


def _port_number(text: str) -> int:
    if not (text.isascii() and text.isdigit() and int(text) <= 65535):
        raise argparse.ArgumentTypeError(f"{text!r} is not a port number")
    return int(text)


def _fail(message: str, status: int = START_FAILED) -> int:
    print(f"sandbox/serve: {' '.join(message.split())}", file=sys.stderr)
    return status
