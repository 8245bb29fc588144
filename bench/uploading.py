"""Uploading files to one FTP server, directly and with a delay in each direction."""

import os
import pathlib
import shutil
from contextlib import contextmanager

import samples
from delay_proxy import DelayProxy
from harness import free_port, vsftpd
from measure import BUILD, Series, Tool, run_in_turn

DELAY = 0.025  # seconds, in each direction
SMALL = ("500 files of 100 KB", 500, 100 * 1000)
LARGE = ("5 files of 500 MB", 5, 500 * 1000 * 1000)
MOST_RUNS_WITH_DELAY = {SMALL: 1, LARGE: 3}  # A tool waits for 1,500 answers and more in each: that varies little.

LOOPBACK, DELAYED = "loopback", "25 ms each way"
OURS = "Quillmark"
CURL, LFTP, NCFTP = "curl -T, one process", "lftp mput", "ncftpput"


def title(job: tuple[str, int, int], way: str) -> str:
    return f"{job[0]}, {way}"


def uploading(folder: pathlib.Path, runs: int) -> list[Series]:
    found = []
    for job in (SMALL, LARGE):
        name, count, size = job
        files = samples.random_files(folder / name.replace(" ", "-"), count, size)
        found.append(_measured(title(job, LOOPBACK), files, 0.0, folder, runs))
        found.append(_measured(title(job, DELAYED), files, DELAY, folder, min(runs, MOST_RUNS_WITH_DELAY[job])))
    return found


def _measured(name: str, files: list[pathlib.Path], delay: float, folder: pathlib.Path, runs: int) -> Series:
    received = folder / "ftp-root" / "in"

    def prepare(place: pathlib.Path):
        shutil.rmtree(received, ignore_errors=True)
        received.mkdir()
        received.chmod(0o777)
        for file in files:
            os.link(file, place / file.name)

    def check(_):
        for file in files:
            if (received / file.name).stat().st_size != file.stat().st_size:
                raise RuntimeError(f"{name}: {file.name} has not come whole")

    with _server(received.parent, delay) as (port, proxy):
        series = run_in_turn(name, _tools(files, port), runs, folder, "file", len(files), prepare=prepare, check=check,
                             counter=(lambda: proxy.commands) if proxy else None)
    shutil.rmtree(received.parent)
    return series


@contextmanager
def _server(root: pathlib.Path, delay: float):
    """The port of an FTP server, and the proxy that holds back what is said where there is a delay."""
    root.mkdir()
    port = free_port()
    with vsftpd(root, port):
        if delay == 0:
            yield port, None
        else:
            with DelayProxy(port, delay) as proxy:
                yield proxy.port, proxy


def _tools(files: list[pathlib.Path], port: int) -> list[Tool]:
    def names(place):
        return [place / file.name for file in files]

    return [
        Tool(OURS, lambda place: [BUILD / "bench/upload_files", port, "in", *names(place)]),
        Tool(CURL, lambda place: [
            "curl", "-sS", "--ftp-method", "nocwd", "-T", "{" + ",".join(map(str, names(place))) + "}",
            f"ftp://127.0.0.1:{port}/in/"]),
        Tool(LFTP, lambda place: ["lftp", "-c", f"open -p {port} 127.0.0.1; cd in; lcd {place}; mput *.jpg"]),
        Tool(NCFTP, lambda place: ["ncftpput", "-V", "-P", port, "127.0.0.1", "in", *names(place)]),
    ]
