"""The sandbox's own certificate authority, kept in the state folder, and the servers' TLS settings."""

import os
import ssl
from pathlib import Path

import trustme
from cryptography import x509
from cryptography.hazmat.primitives.serialization import Encoding, PublicFormat, load_pem_private_key
from OpenSSL import SSL

from .errors import StartError

AUTHORITY_FILE = "ca.pem"
AUTHORITY_KEY_FILE = "ca-key.pem"
AUTHORITY_NAME = "Quillmark sandbox"


class Certificates:
    """One authority and one certificate for all the given host names and addresses."""

    def __init__(self, folder: Path, names: list[str]) -> None:
        self.authority_file = folder / AUTHORITY_FILE
        authority = _kept_or_new_authority(folder)
        self._certificate = authority.issue_cert(*names, organization_name=AUTHORITY_NAME)

    def https_context(self) -> ssl.SSLContext:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.minimum_version = ssl.TLSVersion.TLSv1_2
        context.set_alpn_protocols(["http/1.1"])
        self._certificate.configure_cert(context)
        return context

    def ftps_context(self) -> SSL.Context:
        context = SSL.Context(SSL.TLS_SERVER_METHOD)
        context.set_min_proto_version(SSL.TLS1_2_VERSION)
        # TLS 1.3 sends session tickets after the handshake. A client that only uploads never reads them, and
        # closing on unread bytes resets the connection, which takes the end of the upload with it.
        context.set_max_proto_version(SSL.TLS1_2_VERSION)
        # Without an id, OpenSSL won't resume the control connection's session on a data connection.
        context.set_session_id(b"quillmark-sandbox")
        self._certificate.configure_cert(context)
        return context


def _kept_or_new_authority(folder: Path) -> trustme.CA:
    certificate, key = folder / AUTHORITY_FILE, folder / AUTHORITY_KEY_FILE
    if certificate.exists() and key.exists():
        try:
            _require_pair(certificate.read_bytes(), key.read_bytes())
            return trustme.CA.from_pem(certificate.read_bytes(), key.read_bytes())
        except (OSError, ValueError, TypeError) as error:
            raise StartError(
                f"{certificate} and {key} can't be used; remove both to make a new authority"
            ) from error
    authority = trustme.CA(organization_name=AUTHORITY_NAME)
    # The key first: a certificate without its key would leave an authority that can't sign.
    write_private(key, authority.private_key_pem.bytes())
    write_private(certificate, authority.cert_pem.bytes())
    return authority


def _require_pair(certificate: bytes, key: bytes) -> None:
    form = (Encoding.DER, PublicFormat.SubjectPublicKeyInfo)
    certified = x509.load_pem_x509_certificate(certificate).public_key()
    kept = load_pem_private_key(key, password=None).public_key()
    if certified.public_bytes(*form) != kept.public_bytes(*form):
        raise ValueError("the key is another certificate's")


def write_private(path: Path, content: bytes) -> None:
    """Replaces a file at once, readable by its owner alone."""
    new = path.with_name(path.name + ".new")
    new.unlink(missing_ok=True)
    descriptor = os.open(new, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600)
    with os.fdopen(descriptor, "wb") as file:
        file.write(content)
    new.replace(path)
