"""The jobs that are measured: preparing, uploading, whole exports, and how they grow."""

import json
import os
import pathlib
import shlex
import shutil
import sys
from contextlib import contextmanager

from PIL import Image

HOME = pathlib.Path(__file__).resolve().parent.parent
BUILD = HOME / "build-release"
os.environ.setdefault("QUILLMARK_SOURCE_DIR", str(HOME))
os.environ.setdefault("QUILLMARK_BUILD_DIR", str(BUILD))
sys.path.insert(0, str(HOME / "tests" / "end_to_end"))

from delay_proxy import DelayProxy  # noqa: E402
from harness import Sandbox, free_port, vsftpd  # noqa: E402
from measure import Series, Tool, run_in_turn  # noqa: E402

PHOTOGRAPH = (6000, 4000)
QUALITY = 10  # of 12
ENCODER_QUALITY = round(100 * QUALITY / 12)
DELAY = 0.025  # seconds, in each direction
SMALL_FILES, SMALL_SIZE = 500, 100 * 1000
LARGE_FILES, LARGE_SIZE = 5, 500 * 1000 * 1000
EXPORTED = 100
USER, PASSWORD = "ann", "proofs-for-ann"


def shell(*lines: str) -> list:
    return ["sh", "-e", "-c", "\n".join(lines)]


def quoted(*words) -> str:
    return " ".join(shlex.quote(str(word)) for word in words)


def make_photographs(folder: pathlib.Path, count: int) -> list[pathlib.Path]:
    """JPEGs of 24 megapixels with a photograph's detail and noise, each another file with the same content."""
    first = folder / "photograph-0.jpg"
    if not first.exists():
        source = sorted(pathlib.Path("/usr/share/backgrounds").glob("*.jpg"))[0]
        picture = Image.open(source).convert("RGB").resize(PHOTOGRAPH, Image.Resampling.LANCZOS)
        grain = Image.effect_noise(PHOTOGRAPH, 24).convert("RGB")
        Image.blend(picture, grain, 0.12).save(first, quality=92)
    files = [folder / f"photograph-{index}.jpg" for index in range(count)]
    for file in files[1:]:
        if not file.exists():
            os.link(first, file)
    return files


def preparing(folder: pathlib.Path, runs: int) -> list[Series]:
    photographs = make_photographs(folder, EXPORTED)
    tiff = folder / "photograph.tif"
    if not tiff.exists():
        os.system(quoted("vips", "colourspace", photographs[0], tiff, "rgb16"))
    few = photographs[:5]
    return [
        _preparing("24-megapixel JPEG into a box of 1280", few, "1280x1280", folder, runs),
        _preparing("24-megapixel JPEG into a box of 2048", few, "2048x2048", folder, runs),
        _preparing("24-megapixel 16-bit TIFF into a box of 2048", [tiff], "2048x2048", folder, runs),
        _preparing("24-megapixel JPEG in its own size", few, "own", folder, runs),
        _preparing("100 JPEGs of 24 megapixels into a box of 2048", photographs, "2048x2048", folder, min(runs, 3)),
    ]


def _preparing(title: str, files: list[pathlib.Path], box: str, folder: pathlib.Path, runs: int) -> Series:
    options = f"[Q={ENCODER_QUALITY},strip]"
    own_size = box == "own"

    def vips(place):
        if own_size:
            return shell(*(quoted("vips", "copy", file, f"{place}/{file.stem}-out.jpg{options}") for file in files))
        return shell(*(quoted(*thumbnail(place), file) for file in files))

    def thumbnail(place):
        return ["vipsthumbnail", "--size", box, "--export-profile", "srgb", "-o", f"{place}/%s-out.jpg{options}"]

    def magick(program):
        resize = [] if own_size else ["-resize", box]
        return lambda place: shell(*(
            quoted(*program, file, *resize, "-quality", ENCODER_QUALITY, f"{place}/{file.stem}.jpg") for file in files))

    tools = [
        Tool("Quillmark", lambda place: [BUILD / "bench/prepare_images", box, QUALITY, place, *files]),
        Tool("vips copy, once an image" if own_size else "vipsthumbnail, once an image", vips),
    ]
    if not own_size:
        tools.append(Tool("vipsthumbnail, one process", lambda place: [*thumbnail(place), *files]))
    tools += [
        Tool("ImageMagick", magick(["convert"])),
        Tool("GraphicsMagick", magick(["gm", "convert"])),
        Tool("QImage, one process", lambda place: [BUILD / "bench/qt_images", box, ENCODER_QUALITY, place, *files]),
    ]
    return run_in_turn(title, tools, runs, folder, unit=len(files))


def uploading(folder: pathlib.Path, runs: int) -> list[Series]:
    small = _files(folder / "small", SMALL_FILES, SMALL_SIZE)
    large = _files(folder / "large", LARGE_FILES, LARGE_SIZE)
    found = []
    for name, files in (("500 files of 100 KB", small), ("5 files of 500 MB", large)):
        for way, delay in (("loopback", 0.0), ("25 ms each way", DELAY)):
            found.append(_uploading(f"{name}, {way}", files, delay, folder, runs))
    return found


def _files(folder: pathlib.Path, count: int, size: int) -> list[pathlib.Path]:
    folder.mkdir(exist_ok=True)
    files = [folder / f"IMG_{index:04}.jpg" for index in range(count)]
    for file in files:
        if not file.exists():
            with file.open("wb") as made:
                made.truncate(size)
    return files


def _uploading(title: str, files: list[pathlib.Path], delay: float, folder: pathlib.Path, runs: int) -> Series:
    root = folder / "ftp-root"
    commands = {}

    def links(place: pathlib.Path):
        shutil.rmtree(root, ignore_errors=True)
        (root / "in").mkdir(parents=True)
        (root / "in").chmod(0o777)
        for file in files:
            os.link(file, place / file.name)

    @contextmanager
    def server():
        root.mkdir(exist_ok=True)
        port = free_port()
        with vsftpd(root, port):
            if delay == 0:
                yield port, None
            else:
                with DelayProxy(port, delay) as proxy:
                    yield proxy.port, proxy

    with server() as (port, proxy):
        def counted(name, command):
            def make(place):
                if proxy:
                    commands.setdefault(name, []).append(proxy.commands)
                return command(place)
            return Tool(name, make)

        def names(place):
            return [place / file.name for file in files]

        tools = [
            counted("Quillmark", lambda place: [BUILD / "bench/upload_files", port, "in", *names(place)]),
            counted("curl -T, one process", lambda place: [
                "curl", "-sS", "--ftp-method", "nocwd", "-T", "{" + ",".join(map(str, names(place))) + "}",
                f"ftp://127.0.0.1:{port}/in/"]),
            counted("lftp mput", lambda place: [
                "lftp", "-c", f"open -p {port} 127.0.0.1; cd in; lcd {place}; mput *.jpg"]),
            counted("ncftpput", lambda place: ["ncftpput", "-V", "-P", port, "127.0.0.1", "in", *names(place)]),
        ]
        series = run_in_turn(title, tools, runs, folder, unit=len(files), prepare=links)
        if proxy:
            series.notes["commands"] = _commands_per_file(commands, proxy.commands, len(files))
    return series


def _commands_per_file(before: dict[str, list[int]], last: int, files: int) -> str:
    """A tool's commands are those until the next one starts."""
    names = list(before)
    starts = [*(count for run in zip(*before.values()) for count in run), last]
    told = [f"{name} {(starts[index + 1] - starts[index]) / files:.2f}" for index, name in enumerate(names)]
    return "Commands per file: " + ", ".join(told) + "."


def exporting(folder: pathlib.Path, runs: int) -> list[Series]:
    photographs = make_photographs(folder, EXPORTED)
    with Sandbox(folder / "sandbox") as sandbox:
        def script(place):
            return shell(
                quoted("vipsthumbnail", "--size", "2048x2048", "--export-profile", "srgb", "-o",
                       f"{place}/%s.jpg[Q={ENCODER_QUALITY},strip]", *photographs),
                f"curl -sS --ftp-method nocwd --ftp-create-dirs -u {USER}:{PASSWORD} -T "
                f"\"{{$(ls {place}/*.jpg | paste -sd, -)}}\" ftp://127.0.0.1:{sandbox.ftp_port}/77/Ceremony/")

        tools = [
            Tool("Quillmark", lambda place: _export(sandbox, place, photographs, "2048x2048")),
            Tool("vipsthumbnail, then curl", script),
        ]
        series = run_in_turn("100 photographs of 24 megapixels into a box of 2048", tools, runs, folder, unit=EXPORTED)
    series.notes["wait"] = ("Quillmark's time holds a wait of three seconds that the service asks for, between the last "
                            "file and the finishing request, and the login, lists and finishing requests.")
    return [series]


def _export(sandbox: Sandbox, place: pathlib.Path, photographs: list, box: str) -> list:
    password = place / "password"
    password.write_text(PASSWORD + "\n", encoding="utf-8")
    return ["env", f"QUILLMARK_SERVICE_CONFIG={sandbox.config}", f"HOME={place}", f"XDG_CONFIG_HOME={place}",
            f"XDG_DATA_HOME={place}", f"TMPDIR={place}", BUILD / "host/cli/quillmark-export", "--ephemeral", "--user", USER,
            "--password-file", password, "--event", "77", "--category", "Ceremony", "--resize", box,
            "--quality", QUALITY, *photographs]


def growing(folder: pathlib.Path, _runs: int) -> list[Series]:
    small = folder / "growing"
    small.mkdir(exist_ok=True)
    original = small / "original.jpg"
    Image.open(make_photographs(folder, 1)[0]).resize((1920, 1280)).save(original, quality=90)
    found = []
    with Sandbox(folder / "growing-sandbox") as sandbox:
        for count in (10, 100, 1000, 5000):
            files = [small / f"{index}.jpg" for index in range(count)]
            for file in files:
                if not file.exists():
                    os.link(original, file)
            tool = Tool("Quillmark", lambda place, files=files: _export(sandbox, place, files, "1280x1280"))
            found.append(run_in_turn(f"{count} images", [tool], 1, folder, unit=count))
    merged = Series("Whole exports of 10 to 5 000 images of 2.5 megapixels",
                    {f"{series.title}": series.taken["Quillmark"] for series in found})
    return [merged]


def startup(folder: pathlib.Path, runs: int) -> list[Series]:
    tool = Tool("quillmark-export --version", lambda _: [BUILD / "host/cli/quillmark-export", "--version"])
    return [run_in_turn("Start", [tool], 3 * runs, folder)]


JOBS = {"Preparing": preparing, "Uploading": uploading, "Whole exports": exporting, "Growth": growing,
        "Starting": startup}


def machine() -> str:
    model = next((line.split(":", 1)[1].strip() for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines()
                  if line.startswith("model name")), "an unknown processor")
    return f"{os.cpu_count()} cores of {model}"


__all__ = ["JOBS", "machine", "json"]
