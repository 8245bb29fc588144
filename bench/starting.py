"""Starting the command line."""

import pathlib

from measure import BUILD, Series, Tool, run_in_turn

TITLE = "Start"
VERSION = "quillmark-export --version"
STARTS_PER_RUN = 3


def starting(folder: pathlib.Path, runs: int) -> list[Series]:
    tool = Tool(VERSION, lambda _: [BUILD / "host/cli/quillmark-export", "--version"])
    return [run_in_turn(TITLE, [tool], STARTS_PER_RUN * runs, folder)]
