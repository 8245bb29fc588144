"""The command against servers of the test's own."""

from scene import EXPORT, PASSWORD, Scene, folder, photograph
from servers import FTP_HOST, WEB_HOST, FTPServer, WebServer


class ServedScene(Scene):
    """A machine of few files, and servers that say what a test wants them to say."""

    KEYRING = False
    PHOTOGRAPHS = 2

    def setUp(self):
        self.here = self.enterContext(folder())
        self.machine = self.here / "machine"  # All that the command could reach by a relative path.
        self.home = self.machine / "home"
        self.temporary = self.machine / "tmp"
        self.originals = self.machine / "Smith"
        self.working = self.machine / "working" / "folder"
        for made in (self.home, self.temporary, self.originals, self.working):
            made.mkdir(parents=True)
        (self.machine / "Ceremony").mkdir()
        (self.home / "precious.jpg").write_bytes(b"precious")
        self.images = [photograph(self.originals / f"{number}.jpg", *self.SIZE) for number in range(self.PHOTOGRAPHS)]
        self.config = self.here / "service.ini"
        self.password_file = self.here / "password"
        self.password_file.write_text(PASSWORD + "\n")

    def serve(self, web: dict | None = None, ftp: dict | None = None):
        self.web = WebServer(self.here, web or {})
        self.ftp = FTPServer(ftp or {})
        self.addCleanup(self.web.close)
        self.addCleanup(self.ftp.close)
        self.config.write_text(
            f"[service]\nwebHost={WEB_HOST}\nftpHost={FTP_HOST}\n[transport]\n"
            f'connectTo="{WEB_HOST}:443:127.0.0.1:{self.web.port}, {FTP_HOST}:21:127.0.0.1:{self.ftp.port}"\n'
            f"caFile={self.here / 'ca.pem'}\nidleTimeout={self.IDLE_TIMEOUT}\n")

    def command(self, *options) -> list[str]:
        return [str(word) for word in (
            EXPORT, "--ephemeral", "--user", "ann", "--password-file", self.password_file, *options)]

    def choices(self, event: str = "77", category: str = "Ceremony") -> list:
        return ["--event", event, "--category", category, *self.images]
