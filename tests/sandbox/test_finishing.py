import ftplib
import hashlib
import io
import json
import os
import sqlite3
import tempfile
import threading
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

from quillmark_sandbox.data import load
from quillmark_sandbox.gallery import Gallery
from quillmark_sandbox.uploads import Uploads

from support import SandboxTest, data, jpeg


class FinishingTest(SandboxTest):
    def setUp(self) -> None:
        self.event = self.new_event()
        self.name = f"Wedding {self.event[1:]}"
        self.folder = self.sandbox.home() / self.event

    def processed(self) -> dict[tuple[str, str], dict[str, Any]]:
        return self.records("photographs")

    def waiting(self) -> dict[tuple[str, str], dict[str, Any]]:
        return self.records("waiting")

    def records(self, kind: str) -> dict[tuple[str, str], dict[str, Any]]:
        records = [record for record in self.sandbox.records()[kind] if record["event"] == self.event]
        return {(record["category"], record["name"]): record for record in records}

    def test_uploads_move_into_the_gallery_and_the_sentence_tells_it(self) -> None:
        self.sandbox.upload(self.event, "Ceremony", {"a.jpg": jpeg(60, 40), "b.jpg": jpeg(40, 60)})
        self.sandbox.upload(self.event, "Party", {"a.jpg": jpeg(128, 7)})
        self.assertEqual(
            self.sandbox.finish(self.event, "5"),
            (200, f"3 images of {self.name} were processed with Standard prices: 2 in Ceremony, 1 in Party."),
        )
        sizes = {key: (record["width"], record["height"]) for key, record in self.processed().items()}
        expected = {
            ("Ceremony", "a.jpg"): (60, 40),
            ("Ceremony", "b.jpg"): (40, 60),
            ("Party", "a.jpg"): (128, 7),
        }
        self.assertEqual(sizes, expected)
        self.assertEqual(self.waiting(), {})
        self.assertEqual([names for _, _, names in os.walk(self.folder) if names], [])

    def test_records_tell_where_each_file_is_before_and_after(self) -> None:
        content = jpeg(60, 40)
        self.sandbox.upload(self.event, "Party", {"a.jpg": content})
        common = {
            "user": "ann",
            "event": self.event,
            "eventName": self.name,
            "category": "Party",
            "name": "a.jpg",
            "width": 60,
            "height": 40,
            "bytes": len(content),
            "sha256": hashlib.sha256(content).hexdigest(),
        }
        self.assertEqual((self.waiting(), self.processed()), ({("Party", "a.jpg"): common}, {}))
        self.sandbox.finish(self.event, "5")
        record = self.processed()["Party", "a.jpg"]
        path = record.pop("path")
        self.assertRegex(record.pop("processedAt"), r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\+00:00$")
        self.assertEqual(record, {**common, "pptid": "5"})
        self.assertEqual(self.sandbox.gallery(path)[2], content)

    def test_one_image_without_prices_reads_as_one(self) -> None:
        self.sandbox.upload(self.event, "Party", {"a.jpg": jpeg()})
        sentence = f"1 image of {self.name} was processed without prices: 1 in Party."
        self.assertEqual(self.sandbox.finish(self.event), (200, sentence))
        self.assertEqual(self.processed()["Party", "a.jpg"]["pptid"], "0")

    def test_a_repeated_request_changes_nothing(self) -> None:
        self.assertEqual(
            self.sandbox.finish(self.event),
            (200, f"No new images of {self.name} were found; its gallery holds no photographs."),
        )
        self.sandbox.upload(self.event, "Party", {"a.jpg": jpeg()})
        self.sandbox.finish(self.event, "5")
        before = self.processed()
        self.assertEqual(
            self.sandbox.finish(self.event),
            (200, f"No new images of {self.name} were found; its gallery holds 1 photograph."),
        )
        self.assertEqual(self.processed(), before)

    def test_another_upload_of_the_same_name_replaces_the_earlier_photograph(self) -> None:
        self.sandbox.upload(self.event, "Party", {"a.jpg": jpeg(60, 40), "b.jpg": jpeg()})
        self.sandbox.finish(self.event)
        earlier = self.processed()["Party", "a.jpg"]["path"]
        self.sandbox.upload(self.event, "Party", {"a.jpg": jpeg(80, 20)})
        _, sentence = self.sandbox.finish(self.event, "5")
        self.assertTrue(sentence.endswith(" 1 of them replaces an earlier photograph."), sentence)
        replaced = self.processed()["Party", "a.jpg"]
        self.assertEqual((replaced["width"], replaced["pptid"], len(self.processed())), (80, "5", 2))
        self.assertEqual(self.sandbox.gallery(earlier)[0], 404)
        self.assertFalse((self.sandbox.state / "gallery" / os.path.basename(earlier)).exists())

    def test_files_that_are_no_photographs_stay_in_place_and_are_named(self) -> None:
        broken = {"cut.jpg": jpeg()[:-10], "empty.jpg": b"", "text.txt": b"text"}
        self.sandbox.upload(self.event, "Party", {**broken, "a.jpg": jpeg()})
        with self.sandbox.ftp() as client:
            client.storbinary(f"STOR {self.event}/loose.jpg", io.BytesIO(jpeg()))
        _, sentence = self.sandbox.finish(self.event)
        self.assertTrue(
            sentence.endswith(
                ": 1 in Party. 4 files were left in place: loose.jpg (not in a category), Party/cut.jpg (a cut-off "
                "JPEG image), Party/empty.jpg (empty), Party/text.txt (not a JPEG image)."
            ),
            sentence,
        )
        self.assertEqual({name: (self.folder / "Party" / name).read_bytes() for name in broken}, broken)
        self.assertEqual((self.folder / "loose.jpg").read_bytes(), jpeg())
        self.assertIsNone(self.waiting()["Party", "text.txt"]["width"])

    def test_a_long_story_is_cut_short(self) -> None:
        for number in range(15):
            self.sandbox.upload(self.event, f"C{number:02}", {"a.jpg": jpeg(), "b.jpg": jpeg()})
        self.sandbox.upload(self.event, "C00", {f"{number}.txt": b"text" for number in range(9)})
        _, sentence = self.sandbox.finish(self.event)
        self.assertIn(": 2 in C00, 2 in C01, ", sentence)
        self.assertIn(", 2 in C11, 6 in 3 further categories. 9 files were left in place: ", sentence)
        self.assertTrue(sentence.endswith("C00/4.txt (not a JPEG image) and 4 more."), sentence)

    def test_names_with_markup_come_through_whole(self) -> None:
        self.sandbox.upload(self.event, '<Gäste> & "写真"\ufffe', {"&lt;a>.jpg": jpeg()})
        status, sentence = self.sandbox.finish(self.event)
        self.assertEqual(status, 200)
        self.assertTrue(sentence.endswith(': 1 in <Gäste> & "写真"\ufffd.'), sentence)
        self.assertIn(('<Gäste> & "写真"\ufffe', "&lt;a>.jpg"), self.processed())

    def test_what_the_user_may_not_do_is_forbidden_and_changes_nothing(self) -> None:
        self.sandbox.upload(self.event, "Party", {"a.jpg": jpeg()})
        for event, pricing in (
            (self.event, "6"),
            (self.event, ""),
            (self.event, "00"),
            ("b1", "0"),
            ("..", "0"),
            (f"{self.event}/Party", "0"),
            ("", "0"),
            ("(null)", "0"),
        ):
            with self.subTest(event=event, pricing=pricing):
                self.assertEqual(self.sandbox.finish(event, pricing), (403, ""))
        self.assertIn(("Party", "a.jpg"), self.waiting())
        self.assertEqual(self.processed(), {})

    def test_requests_at_the_same_time_process_each_image_once(self) -> None:
        self.sandbox.upload(self.event, "Party", {f"{number}.jpg": jpeg(seed=number) for number in range(20)})
        login = self.sandbox.login()
        with ThreadPoolExecutor(8) as pool:
            answers = list(pool.map(lambda _: self.sandbox.finish(self.event, "5", login), range(8)))
        self.assertEqual([status for status, _ in answers], [200] * 8)
        counts = [sentence for _, sentence in answers if not sentence.startswith("No new images")]
        self.assertEqual(len(counts), 1, counts)
        self.assertTrue(counts[0].startswith("20 images"))
        self.assertEqual(len(self.processed()), 20)

    def test_no_upload_is_lost_to_a_request_that_runs_meanwhile(self) -> None:
        """Each new version of a file comes while requests take the ones before it away."""
        login, ended = self.sandbox.login(), threading.Event()

        def finish_all_the_time() -> None:
            while not ended.is_set():
                self.sandbox.finish(self.event, login=login)

        versions = [jpeg(30, 30, seed=number) for number in range(60)]
        with ThreadPoolExecutor(3) as pool:
            finishers = [pool.submit(finish_all_the_time) for _ in range(2)]
            try:
                with self.sandbox.ftp() as client:
                    client.mkd(self.event)
                    client.mkd(f"{self.event}/Party")
                    for version in versions:
                        client.storbinary(f"STOR {self.event}/Party/a.jpg", io.BytesIO(version))
            finally:
                ended.set()
            for finisher in finishers:
                finisher.result()
        self.sandbox.finish(self.event)
        newest = hashlib.sha256(versions[-1]).hexdigest()
        self.assertEqual(self.processed()["Party", "a.jpg"]["sha256"], newest)
        self.assertEqual(self.waiting(), {})

    def test_an_export_goes_on_in_the_folders_of_an_earlier_one(self) -> None:
        self.sandbox.upload(self.event, "Party", {"a.jpg": jpeg()})
        self.sandbox.finish(self.event)
        with self.sandbox.ftp() as client:
            with self.assertRaisesRegex(ftplib.error_perm, "^550 "):
                client.mkd(f"{self.event}/Party")
        self.sandbox.upload(self.event, "Party", {"b.jpg": jpeg()})
        self.sandbox.finish(self.event)
        self.assertEqual(set(self.processed()), {("Party", "a.jpg"), ("Party", "b.jpg")})


class FailureTest(unittest.TestCase):
    """A gallery without its servers, whose disk and database fail in the middle."""

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.state = Path(folder.name)
        (self.state / "data.json").write_text(json.dumps(data()))
        self.data = load(self.state / "data.json")
        self.user = self.data.users[0]
        self.event = self.user.events[0]
        self.uploads = Uploads(self.state, self.data.users)
        self.gallery = Gallery(self.state, self.data, self.uploads)
        self.upload = self.uploads.home(self.user) / self.event.id / "Party" / "a.jpg"
        self.upload.parent.mkdir(parents=True)
        self.upload.write_bytes(jpeg())

    def stored(self) -> list[str]:
        return os.listdir(self.state / "gallery")

    def test_a_failing_database_leaves_uploads_and_gallery_as_they_were(self) -> None:
        with sqlite3.connect(self.state / "gallery.sqlite") as connection:
            connection.execute(
                "CREATE TRIGGER full BEFORE INSERT ON photographs BEGIN SELECT raise(ABORT, 'full'); END"
            )
        connection.close()
        with self.assertRaisesRegex(sqlite3.Error, "full"):
            self.gallery.process(self.user, self.event, None)
        self.assertEqual(self.upload.read_bytes(), jpeg())
        self.assertEqual((self.gallery.photographs(), self.stored()), ([], []))

    def test_one_upload_that_fails_leaves_the_others_as_they_were(self) -> None:
        self.upload.with_name("b.jpg").write_bytes(jpeg())
        copy_out = self.uploads.copy_out

        def fail_at_the_second(source: Path, target: Path) -> os.stat_result:
            if source.name == "b.jpg":
                raise OSError(28, "No space left on device")
            return copy_out(source, target)

        self.uploads.copy_out = fail_at_the_second  # type: ignore[method-assign]
        with self.assertRaisesRegex(OSError, "No space left"):
            self.gallery.process(self.user, self.event, None)
        self.assertEqual(sorted(os.listdir(self.upload.parent)), ["a.jpg", "b.jpg"])
        self.assertEqual((self.gallery.photographs(), self.stored()), ([], []))

    def test_a_start_after_a_crash_forgets_only_what_the_uploads_still_hold(self) -> None:
        before_the_commit = self.state / "gallery" / f"{'0' * 32}.jpg"
        self.uploads.copy_out(self.upload, before_the_commit)
        only_here = self.state / "gallery" / f"{'1' * 32}.jpg"
        only_here.write_bytes(jpeg())
        Gallery(self.state, self.data, self.uploads)
        self.assertEqual(self.stored(), [only_here.name])
        self.assertEqual(self.upload.read_bytes(), jpeg())

    def test_a_file_system_without_links_gets_copies(self) -> None:
        def no_links(*_: Any, **__: Any) -> None:
            raise PermissionError(1, "Operation not permitted")

        link, os.link = os.link, no_links
        self.addCleanup(setattr, os, "link", link)
        outcome = self.gallery.process(self.user, self.event, None)
        self.assertEqual(outcome.processed, {"Party": 1})
        self.assertFalse(self.upload.exists())
        stored = self.gallery.photograph_file(self.gallery.photographs()[0].stored_as)
        self.assertEqual(stored.read_bytes(), jpeg())


if __name__ == "__main__":
    unittest.main()
