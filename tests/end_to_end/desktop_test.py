"""quillmark, the desktop application, from a folder of photographs to the service's gallery. Runs in a session with an
open keyring."""

import os
import pathlib
import time
import unittest

from PIL import Image, ImageGrab

from desktop import Application, Atspi, ScreenReader, display, wait_for
from export_test import PASSWORD, service_data
from forwarder import Forwarder
from harness import DEADLINE, Sandbox, folder, photograph
from resume_test import Home

COUNT = 6


class DesktopApplication(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.enterClassContext(display())

    def setUp(self):
        self.here = self.enterContext(folder())
        self.sandbox = self.start_sandbox()
        self.addCleanup(lambda: self.sandbox.__exit__())
        self.web = self.enterContext(Forwarder(self.sandbox.https_port, lambda _: self.at_request(),
                                                lambda _: self.at_answer()))
        self.ftp = self.enterContext(Forwarder(self.sandbox.ftp_port, self.hear_commands))
        config = self.here / "service.ini"
        config.write_text(self.sandbox.config.read_text()
                          .replace(f":127.0.0.1:{self.sandbox.https_port}", f":127.0.0.1:{self.web.port}")
                          .replace(f":127.0.0.1:{self.sandbox.ftp_port}", f":127.0.0.1:{self.ftp.port}"))
        self.home = Home(self.here / "home", config)
        self.stored: list[str] = []
        self.at_command = lambda command: None
        self.at_request = lambda: None
        self.at_answer = lambda: None
        self.shoot = self.here / "Smith"
        self.shoot.mkdir()
        self.names = [f"{index}.jpg" for index in range(COUNT)]
        for index in range(COUNT):
            photograph(self.shoot / f"{index}.tif", 3000, 2000)

    def start_sandbox(self) -> Sandbox:
        return Sandbox(self.here / "state", data=service_data())

    def hear_commands(self, data: bytes):
        for command in data.split(b"\r\n"):
            if command.startswith(b"STOR "):
                self.stored.append(command.rsplit(b"/", 1)[-1].decode())
            self.at_command(command)

    def start(self, *arguments, folder=None) -> Application:
        return self.enterContext(Application(self.home.environment, *arguments, folder=folder))

    def arrived(self) -> list[str]:
        entries = self.sandbox.photographs()
        for entry in entries:
            self.assertEqual((entry["event"], entry["category"]), ("77", "Ceremony"))
        return sorted(entry["name"] for entry in entries)

    def remaining(self) -> int:
        """What the command, which reads the same journals, finds left to do."""
        run = self.home.run("--resume")
        self.assertEqual(run.lines[0]["event"], "resume", run)
        return run.lines[0]["remaining"]

    # --- What the user does ---

    def export_all(self, application: Application):
        wait_for("the photographs", lambda: application.shows(f"{COUNT} photographs"))
        application.menu("Edit", "Select All")
        application.press("Export to Quillmark*")
        application.focus_window("Export to Quillmark")
        application.type_into(application.find("User*", Atspi.Role.TEXT), "ann")
        application.type_into(application.find("Password*", Atspi.Role.PASSWORD_TEXT), PASSWORD)
        # The FTP server's password is the remembered one.
        application.press("Remember*", Atspi.Role.CHECK_BOX)
        application.press("Login")
        # By the keys that the labels underline, and the one to the next control.
        application.find("Event*", Atspi.Role.COMBO_BOX)
        application.keys("alt+e", "Down", "Tab", "Down", "alt+x")

    def export_remaining(self, application: Application, button: str = "Export the Remaining*"):
        """From the summary on; the remembered login logs in by itself, and the choices are there."""
        application.press(button)
        wait_for("the dialog's button", lambda: application.find("Logout"))
        application.press("Export")

    def answer_and_close(self, application: Application):
        """Ends the plug-in's own message, and then the summary."""
        application.press("OK")
        application.wait_until_shows("The export is finished.")
        application.press("Close")
        wait_for("the summary to close", lambda: not application.shows("The export is finished."))

    # --- Tests ---

    def test_the_command_lines_files_come_onto_the_light_table(self):
        listed = self.here / "list"
        listed.write_bytes(b"0.tif\0" + os.fsencode(self.shoot) + b"/1.tif\0")
        (self.shoot / "--help.tif").symlink_to("2.tif")
        with ScreenReader() as reader:
            application = self.start("--files0-from", listed, "3.tif", "--", "--help.tif", "none.tif", folder=self.shoot)
            wait_for("the photographs", lambda: application.shows("4 photographs"))
            wait_for("the notice", lambda: application.shows("1 file is no picture"))
        self.assertEqual(reader.notifications, ["1 file is no picture, or is not there, and was passed over."])

    def test_a_selected_folder_arrives_in_the_gallery(self):
        application = self.start(self.shoot)
        with ScreenReader() as reader:
            self.export_all(application)
            self.answer_and_close(application)
        stages = {name for name, _ in reader.progress if name.startswith("Export progress")}
        self.assertLessEqual({"Export progress, Step 1 of 3", "Export progress, Step 3 of 3"}, stages)
        for stage in ("Step 1 of 3", "Step 3 of 3"):
            self.assertEqual(len([heard for heard in reader.notifications if heard.startswith(stage)]), 1, reader.notifications)
        self.assertEqual(self.arrived(), self.names)
        self.assertEqual(self.stored, self.names)
        self.assertEqual(self.remaining(), 0)

    def test_after_a_kill_in_every_stage_the_rest_is_exported(self):
        application = self.start(self.shoot)
        prepared = self.here / "home" / "tmp"
        self.export_all(application)
        wait_for("a prepared image", lambda: next(prepared.rglob("*.jpg"), None))
        application.kill()
        self.assertEqual(self.stored, [])

        application = self.go_on()
        self.at_command = lambda command: application.kill() if command.startswith(b"MKD ") else None
        application.process.wait(DEADLINE)

        application = self.go_on()
        self.at_command = lambda command: application.kill() if len(self.stored) == COUNT // 2 else None
        application.process.wait(DEADLINE)
        self.assertLess(len(self.arrived()), COUNT)

        application = self.go_on()
        # After the last upload there is one request: the finishing one.
        self.at_command = lambda command: None
        self.at_request = lambda: application.kill() if set(self.stored) == set(self.names) else None
        application.process.wait(DEADLINE)
        self.at_request = lambda: None
        stored = list(self.stored)
        # What was under way at a kill goes once more.
        self.assertLessEqual(len(stored), COUNT + 1)

        application = self.go_on("Ask for the Confirmation Again*")
        self.answer_and_close(application)
        self.assertEqual(self.stored, stored, "only the finishing request is sent")
        self.assertEqual(self.arrived(), self.names)
        self.assertEqual(self.remaining(), 0)

    def go_on(self, button: str = "Export the Remaining*") -> Application:
        """After a new start, from what the application offers by itself."""
        application = self.start()
        application.press("Show*")
        self.export_remaining(application, button)
        return application

    def test_after_the_network_was_cut_the_rest_is_exported_in_the_same_session(self):
        application = self.start(self.shoot)
        self.at_command = lambda command: self.ftp.cut() if len(self.stored) == COUNT // 2 else None
        self.export_all(application)
        application.press("OK")  # Of the plug-in's message.
        application.wait_until_shows("The export failed.")
        self.at_command = lambda command: None
        self.ftp.mend()
        self.export_remaining(application)
        self.answer_and_close(application)
        self.assertEqual(self.arrived(), self.names)
        self.assertLessEqual(len(self.stored), COUNT + 1)
        self.assertEqual(self.remaining(), 0)

    def test_without_the_services_answer_it_asks_again(self):
        application = self.start(self.shoot)
        self.at_request = lambda: self.web.cut() if set(self.stored) == set(self.names) else None
        self.export_all(application)
        application.wait_until_shows("The service did not confirm that it processes the photographs.")
        self.assertFalse(any("finished" in text for text in application.texts()))
        self.at_request = lambda: None
        self.web.mend()
        self.export_remaining(application, "Ask for the Confirmation Again*")
        self.answer_and_close(application)
        self.assertEqual(self.stored, self.names)
        self.assertEqual(self.arrived(), self.names)

    def test_an_answer_that_is_lost_after_the_service_has_processed_doubles_nothing(self):
        application = self.start(self.shoot)
        self.at_answer = lambda: self.web.cut() if len(self.sandbox.photographs()) == COUNT else None
        self.export_all(application)
        application.wait_until_shows("The service did not confirm that it processes the photographs.")
        self.assertFalse(any("finished" in text for text in application.texts()))
        processed = self.sandbox.photographs()
        self.assertEqual(self.arrived(), self.names)
        self.at_answer = lambda: None
        self.web.mend()
        self.export_remaining(application, "Ask for the Confirmation Again*")
        self.answer_and_close(application)
        self.assertEqual(self.stored, self.names, "nothing is sent a second time")
        self.assertEqual(self.sandbox.photographs(), processed)
        self.assertEqual(self.remaining(), 0)

    def test_after_the_server_was_killed_the_rest_is_exported_later(self):
        application = self.start(self.shoot)
        self.at_command = lambda command: self.sandbox.process.kill() if len(self.stored) == 2 else None
        self.export_all(application)
        application.press("OK")
        application.wait_until_shows("The export failed.")
        application.press("Close")
        self.at_command = lambda command: None
        self.sandbox.__exit__()
        self.sandbox = self.start_sandbox()
        self.web.target_port, self.ftp.target_port = self.sandbox.https_port, self.sandbox.ftp_port
        application.kill()
        self.answer_and_close(self.go_on())
        self.assertEqual(self.arrived(), self.names)


class DesktopStart(unittest.TestCase):
    """Measured in a release build, with nothing beside it."""

    COLOR = (200, 60, 40)
    LIMIT = 1.0

    def first_thumbnail(self, home: Home, shoot: pathlib.Path) -> float:
        """Seconds from the start to the first picture on the screen."""
        started = time.monotonic()
        with Application(home.environment, shoot):
            wait_for("a thumbnail", lambda: self.is_on_screen(ImageGrab.grab(xdisplay=os.environ["DISPLAY"])))
            return time.monotonic() - started

    def is_on_screen(self, screen: Image.Image) -> bool:
        colors = screen.convert("RGB").reduce(8).getcolors(1 << 16)
        return any(all(abs(a - b) < 8 for a, b in zip(color, self.COLOR)) for _, color in colors)

    def test_the_first_of_a_thousand_photographs_is_seen_within_a_second(self):
        here = self.enterContext(folder())
        self.enterContext(display())
        home = Home(here / "home", here / "none.ini")
        shoot = here / "Smith"
        shoot.mkdir()
        Image.new("RGB", (4000, 3000), self.COLOR).save(shoot / "0.jpg", quality=95)
        for index in range(1, 1000):
            os.link(shoot / "0.jpg", shoot / f"{index}.jpg")
        times = sorted(self.first_thumbnail(home, shoot) for _ in range(3))
        self.assertLess(times[1], self.LIMIT, times)


if __name__ == "__main__":
    unittest.main()
