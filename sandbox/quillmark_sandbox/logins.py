"""Who is logged in: passwords checked and tokens issued, every comparison in constant time."""

import hmac
import secrets
import threading
from collections import defaultdict, deque
from typing import Optional

from .data import ServiceData, User

TOKEN_BYTES = 24
# A user's oldest token ends when this many newer ones exist, so that logins can't fill the memory.
TOKENS_PER_USER = 256


class Logins:
    """Checks passwords and tokens. Safe to use from any thread."""

    def __init__(self, data: ServiceData) -> None:
        self._data = data
        self._lock = threading.Lock()
        self._tokens: defaultdict[str, deque[str]] = defaultdict(lambda: deque(maxlen=TOKENS_PER_USER))

    def user_with_password(self, login: str, password: str) -> Optional[User]:
        user = self._data.user_by_login(login)
        # An unknown name costs a comparison too.
        expected = user.password if user else secrets.token_urlsafe(TOKEN_BYTES)
        return user if _equal(expected, password) else None

    def issue_token(self, user: User) -> str:
        token = secrets.token_urlsafe(TOKEN_BYTES)
        with self._lock:
            self._tokens[user.id].append(token)
        return token

    def user_with_token(self, user_id: str, token: str) -> Optional[User]:
        user = self._data.user_by_id(user_id)
        with self._lock:
            tokens = list(self._tokens[user.id]) if user else []
        # No short cut: how long this takes must not tell which token was nearly right.
        matches = [_equal(known, token) for known in tokens]
        return user if any(matches) else None


def _equal(expected: str, given: str) -> bool:
    return hmac.compare_digest(expected.encode(), given.encode("utf-8", "surrogatepass"))
