"""Exports on a machine that lets them down: what the user sees, and that no photograph is lost."""

import os
import resource
import shutil
import signal
import time
import unittest

from scene import DEADLINE, Outcome, Scene
from served_scene import ServedScene
from servers import HONEST_ANSWERS, http_answer

# How long a suspended process sleeps. It outlasts the idle time-out, and the ten seconds more that the command waits for
# a sign of life.
SUSPENDED_S = float(os.environ.get("QUILLMARK_SUSPENDED_SECONDS", "15"))
IDLE_TIMEOUT_S = int(os.environ.get("QUILLMARK_IDLE_TIMEOUT", "3"))


def reading_error(name: str) -> str:
    return f"There was an error reading {name}."


def uploading_error(name: str) -> str:
    return f"There was an error uploading {name}."


class FullDisk(Scene):
    def test_the_first_file_without_room_ends_the_upload_and_what_came_before_is_kept(self):
        run = self.export(faults={"FAULT_BELOW": self.temporary, "FAULT_ROOM": self.room_for_some()})
        prepared = [line["name"] for line in run.events("image")]
        self.assertTrue(0 < len(prepared) < len(self.images), run)
        self.expect_failed(run, reading_error(self.names[len(prepared)]))
        self.assertEqual(self.arrived(), prepared)
        self.expect_resumable()

    def test_without_any_room_nothing_is_sent(self):
        run = self.export(faults={"FAULT_BELOW": self.temporary, "FAULT_ROOM": 0})
        self.expect_failed(run, reading_error(self.names[0]))
        self.assertEqual(self.arrived(), [])
        self.expect_resumable()

    def test_a_journal_without_room_is_told_and_the_export_goes_on(self):
        run = self.export(faults={"FAULT_BELOW": self.home, "FAULT_ROOM": 0})
        self.expect_whole(run)
        self.assertIn("journal", run.stderr)

    def room_for_some(self) -> int:
        """Bytes for about two and a half prepared files: a first export tells how large they are."""
        sizes = []

        def measure(verb, count):
            if (verb, count) == ("STOR", 1):
                sizes.extend(path.stat().st_size for path in self.temporary.rglob("*.jpg"))
                self.process.send_signal(signal.SIGTERM)

        self.relay.on_command = measure
        self.export()
        self.relay.on_command = None
        for file in (self.here / "state" / "ftp").rglob("*.jpg"):
            file.unlink()
        shutil.rmtree(self.home / "state")
        return int(2.5 * max(sizes))


class TemporaryFolder(Scene):
    def test_deleted_while_images_are_prepared(self):
        self.expect_missing_files_told(self.export(on_line=self.at_first_image(self.delete_folder)))

    def test_deleted_during_the_upload(self):
        self.relay.on_command = self.at("STOR", 2, self.delete_folder)
        run = self.export()
        # The second file is in memory already.
        self.expect_failed(run, reading_error("2.jpg"))
        self.assertEqual(self.arrived(), ["0.jpg", "1.jpg"])
        self.expect_resumable()

    def test_read_only_while_images_are_prepared(self):
        run = self.export(on_line=self.at_first_image(self.trigger.touch), faults=self.read_only())
        self.expect_missing_files_told(run)

    def test_read_only_during_the_upload(self):
        self.relay.on_command = self.at("STOR", 2, self.trigger.touch)
        run = self.export(faults=self.read_only())
        self.expect_whole(run)
        # What can't be deleted stays until the next export is begun.
        self.assertEqual(self.prepared(), ["1.jpg", "2.jpg", "3.jpg"])

    def test_read_only_from_the_beginning(self):
        self.trigger.touch()
        run = self.export(faults=self.read_only())
        self.expect_failed(run, reading_error("0.jpg"))
        self.trigger.unlink()
        self.expect_resumable()

    def read_only(self) -> dict:
        return {"FAULT_BELOW": self.temporary, "FAULT_READ_ONLY_WHEN": self.trigger}

    def delete_folder(self):
        shutil.rmtree(next(self.temporary.glob("quillmark-*")), ignore_errors=True)

    def expect_missing_files_told(self, run):
        """Which images the fault has met is a matter of the moment: each of them arrives or ends the upload."""
        if run.status == 0:
            self.expect_whole(run)
            return
        missing = next(name for name in self.names if name not in self.arrived())
        self.expect_failed(run, reading_error(missing))
        self.trigger.unlink(missing_ok=True)
        self.expect_resumable()

    @staticmethod
    def at_first_image(act):
        return lambda line: act() if line["event"] == "image" and line["index"] == 0 else None

    @staticmethod
    def at(verb: str, count: int, act):
        return lambda *command: act() if command == (verb, count) else None


class FileDescriptors(Scene):
    def test_none_left_when_the_folders_are_made(self):
        self.relay.on_command = self.exhaust_at("MKD", 1)
        run = self.export()
        self.assertEqual(run.status, 1, run)
        self.assertEqual(len(run.critical), 1, run)
        self.expect_nothing_claimed(run)

    def test_none_left_during_the_upload(self):
        self.relay.on_command = self.exhaust_at("EPSV", 2)
        run = self.export()
        self.assertEqual(run.status, 1, run)
        self.assertEqual(run.critical, [uploading_error("1.jpg")], run)
        self.expect_nothing_claimed(run)

    def test_none_left_for_the_finishing_request(self):
        self.relay.on_command = self.exhaust_at("STOR", len(self.images))
        run = self.export()
        self.assertEqual((run.status, run.outcome), (1, "unconfirmed"), run)
        self.assertEqual(self.arrived(), self.names)
        self.expect_nothing_claimed(run)

    def test_few_from_the_beginning(self):
        """Whatever the number, it is a message and a status, never a crash, or the export is whole."""
        for limit in (8, 12, 16, 20, 24, 32, 40, 64):
            with self.subTest(limit=limit):
                run = self.export(descriptors=limit)
                self.assertIn(run.status, (0, 1, 2, 3, 4, 6), run)
                if run.status != 0:
                    self.assertNotEqual(run.stderr, "", run)
                    self.assertEqual(self.processed(), [], run)
                self.expect_originals_untouched()

    def exhaust_at(self, verb: str, count: int):
        def exhaust(*command):
            if command == (verb, count):
                # What is open stays open; the limit is on the number of a new one.
                _, hard = resource.prlimit(self.process.pid, resource.RLIMIT_NOFILE)
                resource.prlimit(self.process.pid, resource.RLIMIT_NOFILE, (3, hard))
        return exhaust

    def expect_nothing_claimed(self, run):
        self.assertNotIn("shouldFinishExport", run.asked_for, run)
        self.assertEqual(self.processed(), [], run)
        self.expect_originals_untouched()
        self.expect_nothing_deleted_unconfirmed(run)
        self.expect_resumable()


class Network(Scene):
    def test_absent_from_the_beginning_is_a_failed_login(self):
        self.config.write_text(self.config.read_text().replace(f"127.0.0.1:{self.sandbox.https_port}", "127.0.0.1:1"))
        run = self.export()
        self.assertEqual((run.status, run.outcome), (3, "login-failed"), run)
        self.assertIn({"event": "status", "text": "Login failed!"}, run.lines)
        self.expect_originals_untouched()

    def test_an_unknown_host_is_a_failed_login(self):
        lines = [line for line in self.config.read_text().splitlines() if not line.startswith("connectTo")]
        self.config.write_text("\n".join([*lines, ""]).replace("www.quillmark.example", "nowhere.invalid"))
        self.assertEqual(self.export().status, 3)

    def test_absent_when_the_folders_are_made(self):
        self.relay.cut()
        run = self.export()
        self.expect_failed(run, "Could Not Connect to Your FTP Server.")
        self.expect_nothing_deleted_unconfirmed(run)
        self.relay.mend()
        self.expect_resumable()

    def test_lost_during_the_upload(self):
        self.relay.on_command = lambda *command: self.relay.cut() if command == ("STOR", 2) else None
        run = self.export()
        self.expect_failed(run, uploading_error("1.jpg"))
        self.assertEqual(self.arrived(), ["0.jpg"])
        self.expect_nothing_deleted_unconfirmed(run)
        self.relay.mend()
        self.expect_resumable()

    def test_lost_before_the_finishing_request(self):
        stopped = []

        def stop_service(line):
            # The record stands at the end of all bytes: the finishing request comes three seconds later.
            if line["event"] == "progress" and line["message"].startswith("Step 3") and not stopped and \
                    line["current"] == line["total"] and self.arrived() == self.names:
                stopped.append(self.sandbox.stop())

        run = self.export(on_line=stop_service)
        self.assertEqual(stopped, [0], run)
        self.assertEqual((run.status, run.outcome), (1, "unconfirmed"), run)
        self.assertIn("The images were uploaded, but the service did not confirm that it processed them.", run.stderr)
        self.expect_originals_untouched()


class Clock(Scene):
    def test_set_back_an_hour_during_the_upload(self):
        self.relay.on_command = lambda *command: self.trigger.touch() if command == ("STOR", 2) else None
        run = self.export(faults={"FAULT_CLOCK_WHEN": self.trigger})
        self.assertTrue(self.trigger.exists())
        self.expect_whole(run)
        for line in run.events("progress"):
            self.assertNotRegex(line["message"], r"-\d|\d{3,}:", line)


# How long the sandbox's FTP side keeps a data connection on which nothing comes.
SERVER_PATIENCE_S = 30


class Suspension(Scene):
    """Longer than all time-outs: what counts is silence that an awake process has heard."""

    IDLE_TIMEOUT = IDLE_TIMEOUT_S

    def test_before_the_server_hears_of_a_file(self):
        self.relay.on_command = lambda *command: self.suspend() if command == ("STOR", 2) else None
        self.expect_gone_on(self.export(timeout=DEADLINE + SUSPENDED_S))

    def test_while_images_are_prepared(self):
        done = []

        def suspend(line):
            if line["event"] == "image" and not done:
                done.append(self.suspend())

        self.expect_whole(self.export(timeout=DEADLINE + SUSPENDED_S, on_line=suspend))

    def test_while_a_reply_comes(self):
        def reply(verb, count, deliver):
            if (verb, count) == ("STOR", 2) and not self.trigger.exists():
                self.trigger.touch()
                self.suspend(deliver)
            else:
                deliver()

        self.relay.on_reply = reply
        self.expect_gone_on(self.export(timeout=DEADLINE + SUSPENDED_S))

    def expect_gone_on(self, run: Outcome):
        """Unless the server has lost its patience meanwhile: then the user reads its own reply, and what is left is
        resumed."""
        if SUSPENDED_S < SERVER_PATIENCE_S or run.status == 0:
            self.expect_whole(run)
            return
        self.assertIn("(421)", run.events("alert")[0]["info"])
        self.expect_failed(run, uploading_error("1.jpg"))
        self.expect_resumable()

    def suspend(self, meanwhile=lambda: None):
        self.process.send_signal(signal.SIGSTOP)
        meanwhile()
        time.sleep(SUSPENDED_S)  # A suspension is nothing but time.
        self.process.send_signal(signal.SIGCONT)


class SuspensionWithWebServer(ServedScene):
    """The service's answers come while nobody is awake to read them."""

    IDLE_TIMEOUT = IDLE_TIMEOUT_S

    def test_while_the_login_is_answered(self):
        self.expect_finished(self.suspended_at("login.php"))

    def test_while_the_finishing_request_is_answered(self):
        run = self.suspended_at("processimages.php")
        self.expect_finished(run)
        self.assertEqual(run.events("alert")[-1]["info"], "All is well.")

    def suspended_at(self, request: str) -> Outcome:
        def answer(connection):
            self.process.send_signal(signal.SIGSTOP)
            connection.sendall(http_answer(HONEST_ANSWERS[request].encode()))
            time.sleep(SUSPENDED_S)
            self.process.send_signal(signal.SIGCONT)

        self.serve(web={request: answer})
        return self.run_command(*self.command()[1:], *self.choices(), timeout=DEADLINE + SUSPENDED_S)

    def expect_finished(self, run: Outcome):
        self.assertEqual((run.status, run.outcome), (0, "finished"), run)
        self.assertEqual(sorted(self.ftp.files), ["77/Ceremony/0.jpg", "77/Ceremony/1.jpg"])


class Termination(Scene):
    def test_while_images_are_prepared(self):
        self.expect_cancelled(self.export(on_line=self.terminate_when(lambda line: line["event"] == "image")))

    def test_while_folders_are_made(self):
        self.expect_cancelled(self.exported_with_termination("MKD", 1))

    def test_during_the_upload(self):
        run = self.exported_with_termination("STOR", 2)
        self.assertIn("0.jpg", self.arrived())
        self.expect_cancelled(run)

    def test_before_the_finishing_request(self):
        def all_sent(line):
            return line["event"] == "progress" and line["message"].startswith("Step 3") and \
                line["current"] == line["total"] and self.arrived() == self.names

        self.expect_cancelled(self.export(on_line=self.terminate_when(all_sent)))

    def exported_with_termination(self, verb: str, count: int):
        self.relay.on_command = lambda *command: self.terminate() if command == (verb, count) else None
        return self.export()

    def terminate(self):
        self.process.send_signal(signal.SIGTERM)

    def terminate_when(self, condition):
        done = []

        def look(line):
            if not done and condition(line):
                done.append(True)
                self.terminate()
        return look

    def expect_cancelled(self, run):
        self.assertEqual((run.status, run.outcome), (5, "cancelled"), run)
        self.assertEqual(run.critical, [], run)
        self.assertNotIn("shouldFinishExport", run.asked_for, run)
        self.expect_originals_untouched()
        self.expect_nothing_deleted_unconfirmed(run)
        self.expect_resumable()


class LockedKeyring(Scene):
    def setUp(self):
        super().setUp()
        self.addCleanup(self.renew_keyring)

    def test_before_the_folders_are_made(self):
        locked = []

        def lock(line):
            if line["event"] == "image" and not locked:
                locked.append(self.keyring.lock())

        run = self.export(on_line=lock)
        self.assertEqual(run.status, 1, run)
        self.assertIn("There was an error reading the password.", run.critical, run)
        self.expect_kept(run)

    def test_during_the_upload(self):
        self.relay.on_command = lambda *command: self.keyring.lock() if command == ("STOR", 1) else None
        run = self.export()
        self.assertEqual(run.status, 1, run)
        self.assertIn("There was an error reading the password.", run.critical, run)
        self.assertIn("0.jpg", self.arrived())
        self.expect_kept(run)

    def expect_kept(self, run):
        self.assertNotIn("shouldFinishExport", run.asked_for, run)
        self.assertEqual(self.processed(), [], run)
        self.expect_originals_untouched()
        self.expect_nothing_deleted_unconfirmed(run)
        self.renew_keyring()
        self.expect_resumable()

    def renew_keyring(self):
        """Another bus with an open keyring: its owner has logged in anew."""
        self.keyring.end()
        type(self).keyring = type(self.keyring)()


if __name__ == "__main__":
    unittest.main()
