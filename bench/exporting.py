"""Whole exports to the sandbox, from the photographs to the service's answer."""

import pathlib

import samples
from harness import Sandbox
from measure import BUILD, Series, Taken, Tool, quoted, run_in_turn, shell
from preparing import ENCODER_QUALITY, QUALITY

EXPORTED = 100
MOST_RUNS = 3
COUNTS = (10, 100, 1000, 5000)
USER, PASSWORD = "ann", "proofs-for-ann"

WHOLE = "100 photographs of 24 megapixels into a box of 2048"
GROWTH = "Exports of 10 to 5 000 images of 2.5 megapixels into a box of 1280"
GROWTH_RUNS = 1  # Each of the largest takes minutes.


def exporting(folder: pathlib.Path, runs: int) -> list[Series]:
    photographs = samples.photographs(folder, EXPORTED)
    with _sandbox(folder) as sandbox:
        tools = [
            Tool("Quillmark", lambda place: _export(sandbox, place, photographs, "2048x2048")),
            Tool("vipsthumbnail, then curl", lambda place: _script(sandbox, place, photographs)),
        ]
        series = run_in_turn(WHOLE, tools, min(runs, MOST_RUNS), folder, "image", EXPORTED)
    series.notes.append("Quillmark's time holds a wait of three seconds that the service asks for, between the last file "
                        "and the finishing request, and the requests for login, lists and finishing.")
    return [series]


def growing(folder: pathlib.Path, _runs: int) -> list[Series]:
    images = samples.small_photographs(folder, max(COUNTS))
    taken: dict[str, Taken] = {}
    with _sandbox(folder) as sandbox:
        for count in COUNTS:
            tool = Tool(str(count), lambda place, count=count: _export(sandbox, place, images[:count], "1280x1280"))
            taken |= run_in_turn(f"{count} images", [tool], GROWTH_RUNS, folder).taken
    return [Series(GROWTH, taken)]


def _sandbox(folder: pathlib.Path) -> Sandbox:
    return Sandbox(folder / "sandbox")


def _script(sandbox: Sandbox, place: pathlib.Path, photographs: list[pathlib.Path]) -> list:
    """What takes the place of an export without Quillmark."""
    return shell(
        quoted("vipsthumbnail", "--size", "2048x2048", "-o", f"{place}/%s.jpg[Q={ENCODER_QUALITY},strip]", *photographs),
        f"curl -sS --ftp-method nocwd --ftp-create-dirs -u {USER}:{PASSWORD} -T "
        f"\"{{$(ls {place}/*.jpg | paste -sd, -)}}\" ftp://127.0.0.1:{sandbox.ftp_port}/77/Ceremony/")


def _export(sandbox: Sandbox, place: pathlib.Path, photographs: list[pathlib.Path], box: str) -> list:
    password = place / "password"
    password.write_text(PASSWORD + "\n", encoding="utf-8")
    return ["env", f"QUILLMARK_SERVICE_CONFIG={sandbox.config}", f"HOME={place}", f"XDG_CONFIG_HOME={place}",
            f"XDG_DATA_HOME={place}", f"TMPDIR={place}", BUILD / "host/cli/quillmark-export", "--ephemeral", "--user", USER,
            "--password-file", password, "--event", "77", "--category", "Ceremony", "--resize", box,
            "--quality", QUALITY, *photographs]
