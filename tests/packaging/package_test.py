"""The Debian package: what it holds, what Debian's own tools say of it, and that it works from where it is unpacked."""

import gzip
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = pathlib.Path(os.environ["QUILLMARK_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["QUILLMARK_BUILD_DIR"])
HERE = pathlib.Path(__file__).parent
DEADLINE = 60

sys.path.insert(0, str(SOURCE / "tests" / "end_to_end"))
from export_test import PASSWORD, service_data  # noqa: E402
from harness import Sandbox, photograph  # noqa: E402


def output(*command, **options) -> str:
    run = subprocess.run(list(map(str, command)), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                         timeout=DEADLINE, **options)
    if run.returncode != 0:
        raise AssertionError(f"{command}: status {run.returncode}\n{run.stdout}")
    return run.stdout


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="quillmark-package-")))
        output("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", cls.folder, cwd=BUILD)
        [cls.package] = cls.folder.glob("*.deb")
        cls.root = cls.folder / "root"
        output("dpkg-deb", "-x", cls.package, cls.root)
        cls.command = cls.root / "usr/bin/quillmark-export"
        cls.home = cls.folder / "home"
        cls.home.mkdir(mode=0o700)
        cls.environment = {
            **os.environ, "HOME": str(cls.home), "TMPDIR": str(cls.home), "LANG": "C.UTF-8",
            "XDG_RUNTIME_DIR": str(cls.home), "QT_QPA_PLATFORM": "offscreen",
            **{name: str(cls.home / name) for name in ("XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME")},
        }
        text = output(cls.command, "--help")
        cls.options = sorted(set(re.findall(r"(?<![\w-])--[a-z][a-z0-9]*(?:-[a-z0-9]+)*", text)))

    def test_lintian_finds_nothing(self):
        self.assertEqual(output("lintian", "--allow-root", "--fail-on", "error,warning", self.package), "")

    def test_desktop_entry_and_metadata_are_valid_and_belong_together(self):
        share = self.root / "usr/share"
        self.assertEqual(output("desktop-file-validate", share / "applications/quillmark.desktop"), "")
        output("appstreamcli", "validate", "--no-net", *share.glob("metainfo/*"))
        output("appstreamcli", "validate-tree", "--no-net", self.root)
        entry = (share / "applications/quillmark.desktop").read_text()
        for kind in ("image/jpeg", "image/tiff", "image/png", "image/webp", "image/heic"):
            self.assertIn(f"{kind};", entry)

    def test_icon_is_a_picture_that_scales(self):
        icon = self.root / "usr/share/icons/hicolor/scalable/apps/quillmark.svg"
        self.assertIn("128x128", output("vipsheader", icon))

    def test_integrations_are_where_their_page_says(self):
        page = (SOURCE / "docs/integrations.md").read_text()
        told = [self.root / path for path in set(re.findall(r'[`"]/(usr/share/[^`"]+)[`"]', page))]
        files = [path for path in (SOURCE / "integrations").rglob("*") if path.is_file() and path.name != "CMakeLists.txt"]
        self.assertEqual({path.name: path.read_bytes() for path in told}, {path.name: path.read_bytes() for path in files})
        self.assertEqual([path.name for path in told if os.access(path, os.X_OK)], ["Send to Quillmark"])

    def test_manual_pages_are_well_formed(self):
        pages = list((self.root / "usr/share/man/man1").iterdir())
        self.assertEqual(sorted(page.name for page in pages), ["quillmark-export.1.gz", "quillmark.1.gz"])
        for page in pages:
            text = gzip.decompress(page.read_bytes()).decode()
            complaints = output("groff", "-man", "-Tutf8", "-ww", "-z", input=text)
            self.assertEqual(complaints, "")
            version = re.search(r"project\(Quillmark VERSION (\S+)", (SOURCE / "CMakeLists.txt").read_text())[1]
            self.assertIn(f'"Quillmark {version}"', text)

    def test_manual_page_tells_of_every_option(self):
        page = gzip.decompress((self.root / "usr/share/man/man1/quillmark-export.1.gz").read_bytes()).decode()
        plain = page.replace("\\-", "-")
        self.assertGreater(len(self.options), 15)
        for option in self.options:
            self.assertRegex(plain, rf"\.(TP\n\.)?BI? {option}\b", option)

    def completions(self, shell: str, line: str) -> list[str]:
        share = self.root / "usr/share"
        if shell == "bash":
            script = ('source /usr/share/bash-completion/bash_completion; source "$0"; COMP_LINE=$1; COMP_POINT=${#1}; '
                      'COMP_WORDBREAKS=" "; read -ra COMP_WORDS <<<"$1"; COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); '
                      '_quillmark_export; printf "%s\\n" "${COMPREPLY[@]}"')
            found = output("bash", "-c", script, share / "bash-completion/completions/quillmark-export", line)
        elif shell == "zsh":
            found = output("zsh", HERE / "complete.zsh", share / "zsh/vendor-completions", line)
        else:
            file = share / "fish/vendor_completions.d/quillmark-export.fish"
            found = output("fish", "-c", f"source {file}; complete -C '{line}'", env=self.environment)
        return sorted({text.split("\t")[0].rstrip("=") for text in found.splitlines()})

    def test_each_shell_completes_every_option(self):
        for shell in ("bash", "zsh", "fish"):
            with self.subTest(shell):
                self.assertEqual(self.completions(shell, "quillmark-export --"), self.options)

    def test_each_shell_completes_values(self):
        for shell in ("bash", "zsh", "fish"):
            with self.subTest(shell):
                found = self.completions(shell, "quillmark-export --colorspace a")
                self.assertEqual(found, ["adobe-rgb"])

    def test_command_tells_its_version_without_loading_image_and_keyring_libraries(self):
        self.assertRegex(output(self.command, "--version"), r"^quillmark-export \d+\.\d+\.\d+\n$")
        libraries = output("ldd", self.command)
        for library in ("libvips", "libsecret", "libQt6Widgets"):
            self.assertNotIn(library, libraries)

    def test_command_finds_its_module_and_the_plug_in_where_they_are_installed(self):
        with Sandbox(self.folder / "state", data=service_data()) as sandbox:
            image = photograph(self.folder / "a.jpg", 100, 100)
            output(self.command, "--ephemeral", "--user", "ann", "--password-file", "-", "--event", "77",
                   "--category", "Ceremony", image, input=PASSWORD + "\n",
                   env={**self.environment, "QUILLMARK_SERVICE_CONFIG": str(sandbox.config)})
            self.assertEqual([entry["name"] for entry in sandbox.photographs()], ["a.jpg"])

    def test_application_starts(self):
        program = self.root / "usr/bin/quillmark"
        self.assertRegex(output(program, "--version"), r"^quillmark \d+\.\d+\.\d+\n$")
        process = subprocess.Popen([program], env=self.environment)
        try:
            deadline = time.monotonic() + DEADLINE
            # Once its window's platform is there, it has come through its start.
            while "libqoffscreen" not in pathlib.Path(f"/proc/{process.pid}/maps").read_text():
                self.assertIsNone(process.poll(), "it has ended")
                self.assertLess(time.monotonic(), deadline)
                time.sleep(0.05)
        finally:
            process.terminate()
            process.wait(DEADLINE)


if __name__ == "__main__":
    unittest.main()
