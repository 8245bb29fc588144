"""What the sandbox says when it can't start."""


class StartError(Exception):
    """Why the service can't start, as one line for the person who started it."""
