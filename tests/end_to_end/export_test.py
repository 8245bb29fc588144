"""quillmark-export, from photographs on the disk to the service's gallery."""

import hashlib
import io
import signal
import unittest
import urllib.request

from PIL import Image, ImageCms

from harness import Export, Sandbox, folder, free_port, photograph, vsftpd

PASSWORD = "correct-horse"
EVENT = {"id": "77", "name": "Smith Wedding", "categories": [{"id": "1", "name": "Ceremony"}, {"id": "2", "name": "Party"}]}


def service_data(login: str = "ann", high_resolution: bool = True) -> dict:
    return {"users": [{
        "id": "7", "login": login, "password": PASSWORD, "displayName": "Ann", "highResolution": high_resolution,
        "events": [EVENT, {"id": "78", "name": "Nöçtürne & <Friends>", "categories": []}],
        "pricingTemplates": [{"id": "5", "name": "Standard"}, {"id": "6", "name": "Deluxe"}],
    }]}


class SandboxExport(unittest.TestCase):
    def setUp(self):
        self.here = self.enterContext(folder())
        self.photographs = self.here / "Smith"
        self.photographs.mkdir()
        self.sandbox = self.enterContext(Sandbox(self.here / "state", data=service_data()))

    def export(self, *arguments, **options) -> Export:
        login = ["--user", "ann", "--password-file", "-"]
        return Export(self.sandbox.config, *login, *arguments, password=PASSWORD, **options)

    def test_twelve_photographs_arrive_in_their_sizes(self):
        # Width and height, and what a box of 1280 by 1280 makes of them.
        sizes = [
            ((2000, 1000), (1280, 640)), ((3000, 2000), (1280, 853)), ((1280, 1280), (1280, 1280)),
            ((640, 480), (640, 480)), ((1000, 3000), (426, 1280)), ((1281, 100), (1280, 99)),
            ((4000, 3000), (1280, 960)), ((1281, 1281), (1280, 1280)), ((100, 1280), (100, 1280)),
            ((2560, 1), (1280, 0)), ((1920, 1080), (1280, 720)), ((5000, 5000), (1280, 1280)),
        ]
        sizes[9] = ((2560, 2), (1280, 1))
        files = [photograph(self.photographs / f"{index:02}.jpg", *size) for index, (size, _) in enumerate(sizes)]
        export = self.export("--event", "77", "--category", "Ceremony", "--pricing", "Standard",
                             "--resize", "1280x1280", *files)
        self.assertEqual(export.status, 0, export)
        self.assertEqual(export.end, {"event": "end", "outcome": "finished", "status": 0})
        arrived = {entry["name"]: entry for entry in self.sandbox.photographs()}
        for index, (_, size) in enumerate(sizes):
            entry = arrived[f"{index:02}.jpg"]
            self.assertEqual((entry["width"], entry["height"]), size)
            self.assertEqual((entry["event"], entry["category"], entry["pptid"]), ("77", "Ceremony", "5"))
        self.assertEqual(len(arrived), len(sizes))
        self.assertEqual(export.leftovers, [])

    def test_a_larger_box_enlarges_until_it_is_touched(self):
        files = [photograph(self.photographs / "wide.jpg", 1281, 100), photograph(self.photographs / "small.jpg", 900, 900)]
        export = self.export("--event", "77", "--category", "Party", "--resize", "2560x2560", *files)
        self.assertEqual(export.status, 0, export)
        arrived = {entry["name"]: (entry["width"], entry["height"]) for entry in self.sandbox.photographs()}
        self.assertEqual(arrived, {"wide.jpg": (2560, 199), "small.jpg": (900, 900)})

    def test_equal_stems_arrive_as_two_files(self):
        files = [photograph(self.photographs / name, 300, 200) for name in ("a.tif", "a.png")]
        export = self.export("--event", "77", "--category", "Ceremony", *files)
        self.assertEqual(export.status, 0, export)
        self.assertEqual(sorted(entry["name"] for entry in self.sandbox.photographs()), ["a-2.jpg", "a.jpg"])

    def test_the_service_is_asked_once_for_the_event_and_its_answer_is_shown(self):
        export = self.export("--event", "Smith Wedding", "--category", "Ceremony", photograph(self.photographs / "a.jpg", 50, 50))
        self.assertEqual(export.status, 0, export)
        alert = export.events("alert")[-1]
        self.assertEqual(alert["message"], "Your Quillmark export is complete.")
        self.assertEqual((alert["style"], alert["modality"]), ("informational", "application"))
        self.assertIn("Smith Wedding", alert["info"])
        self.assertEqual([line["call"] for line in export.events("host")], ["shouldBeginExport", "shouldFinishExport"])
        self.assertEqual(self.sandbox.photographs()[0]["pptid"], "0")

    def test_categories_are_named_after_each_images_project(self):
        for project in ("Zürich #1", "Paris"):
            (self.here / project).mkdir()
        files = [photograph(self.here / project / "a b.jpg", 60, 40) for project in ("Zürich #1", "Paris")]
        export = self.export("--event", "Nöçtürne & <Friends>", "--auto-categories", *files)
        self.assertEqual(export.status, 0, export)
        arrived = sorted((entry["category"], entry["name"]) for entry in self.sandbox.photographs())
        self.assertEqual(arrived, [("Paris", "a b-2.jpg"), ("Zürich #1", "a b.jpg")])

    def test_a_typed_category_is_made(self):
        export = self.export("--event", "77", "--category", "Evening – 日本", photograph(self.photographs / "a.jpg", 50, 50))
        self.assertEqual(export.status, 0, export)
        self.assertEqual(self.sandbox.photographs()[0]["category"], "Evening – 日本")

    def test_a_broken_file_is_left_out_and_named(self):
        broken = self.photographs / "broken.jpg"
        whole = photograph(self.photographs / "whole.jpg", 800, 600).read_bytes()
        broken.write_bytes(whole[: len(whole) // 2])
        export = self.export("--event", "77", "--category", "Ceremony", broken, self.photographs / "whole.jpg")
        self.assertEqual(export.status, 6, export)
        self.assertEqual(export.end["outcome"], "partial")
        self.assertIn("broken.jpg", export.stderr)
        self.assertEqual([entry["name"] for entry in self.sandbox.photographs()], ["whole.jpg"])
        outcomes = {line["source"]: line["outcome"] for line in export.events("image")}
        self.assertEqual(outcomes, {"broken.jpg": "skipped", "whole.jpg": "prepared"})

    def test_what_arrives_is_upright_and_carries_no_metadata(self):
        exif = Image.Exif()
        exif[0x0112] = 6  # to be turned by a quarter
        exif[0x010F] = "SecretCamera"
        turned = photograph(self.photographs / "turned.jpg", 400, 200, exif=exif)
        export = self.export("--event", "77", "--category", "Ceremony", turned)
        self.assertEqual(export.status, 0, export)
        entry = self.sandbox.photographs()[0]
        self.assertEqual((entry["width"], entry["height"]), (200, 400))
        arrived = self.download(entry)
        self.assertNotIn(b"SecretCamera", arrived)
        self.assertFalse(Image.open(io.BytesIO(arrived)).getexif())

    def test_a_resized_picture_is_converted_into_the_chosen_space(self):
        wide = (ImageCms.ImageCmsProfile(str(profile("AdobeRGB1998"))))
        picture = Image.new("RGB", (2000, 1500), (180, 60, 90))
        picture.save(self.photographs / "wide.png", icc_profile=wide.tobytes())
        export = self.export("--event", "77", "--category", "Ceremony", "--resize", "1280x1280", "--quality", "12",
                             "--colorspace", "srgb", self.photographs / "wide.png")
        self.assertEqual(export.status, 0, export)
        arrived = Image.open(io.BytesIO(self.download(self.sandbox.photographs()[0])))
        self.assertEqual(arrived.info["icc_profile"], profile("sRGB").read_bytes())
        wanted = ImageCms.profileToProfile(picture.resize((8, 8)), wide, str(profile("sRGB"))).getpixel((4, 4))
        for got, expected in zip(arrived.getpixel((640, 480)), wanted):
            self.assertAlmostEqual(got, expected, delta=2)

    def test_a_signal_cancels(self):
        files = [photograph(self.photographs / f"{index}.jpg", 3000, 2000) for index in range(20)]

        def interrupt(process):
            for line in process.stdout:
                if '"shouldBeginExport"' in line:
                    process.send_signal(signal.SIGTERM)
                    return

        export = self.export("--event", "77", "--category", "Ceremony", *files, interrupt=interrupt)
        self.assertEqual(export.status, 5, export)
        self.assertEqual(export.end["outcome"], "cancelled")
        self.assertEqual(export.leftovers, [])

    def test_the_lists_can_be_printed(self):
        export = self.export("--list")
        self.assertEqual(export.status, 0, export)
        lists = export.events("lists")[0]
        self.assertEqual(lists["events"][0], EVENT)
        self.assertEqual(lists["pricingTemplates"][0], {"id": "5", "name": "Standard"})

    def download(self, entry: dict) -> bytes:
        url = self.sandbox.gallery.rstrip("/") + entry["path"]
        with urllib.request.urlopen(url, timeout=10) as answer:
            data = answer.read()
        self.assertEqual(hashlib.sha256(data).hexdigest(), entry["sha256"])
        return data


class OtherFTPServerExport(unittest.TestCase):
    """The FTP side is vsftpd: nothing on the wire may be made for the sandbox's own server."""

    def test_files_arrive_in_their_folders(self):
        with folder() as here:
            root = here / "root"
            root.mkdir()
            port = free_port()
            with vsftpd(root, port), Sandbox(here / "state", data=service_data(login="ftp")) as sandbox:
                config = here / "service.ini"
                config.write_text(sandbox.config.read_text().replace(f"127.0.0.1:{sandbox.ftp_port}", f"127.0.0.1:{port}"))
                files = [photograph(here / f"Größe {index}.tif", 2000, 1000) for index in range(3)]
                export = Export(config, "--user", "ftp", "--password-file", "-", "--event", "77", "--category", "Party time",
                                "--resize", "1280x1280", *files, password=PASSWORD)
                self.assertEqual(export.status, 0, export)
                arrived = sorted((root / "77" / "Party time").iterdir())
                self.assertEqual([path.name for path in arrived], [f"Größe {index}.jpg" for index in range(3)])
                for path in arrived:
                    with Image.open(path) as picture:
                        self.assertEqual(picture.size, (1280, 640))


class Refusals(unittest.TestCase):
    def setUp(self):
        self.here = self.enterContext(folder())
        self.image = photograph(self.here / "a.jpg", 50, 50)

    def sandbox(self, **data) -> Sandbox:
        return self.enterContext(Sandbox(self.here / "state", data=service_data(**data)))

    def export(self, sandbox: Sandbox, *arguments, password: str = PASSWORD) -> Export:
        return Export(sandbox.config, "--user", "ann", "--password-file", "-", *arguments, password=password)

    def test_a_wrong_password_is_a_failed_login(self):
        export = self.export(self.sandbox(), "--event", "77", "--category", "Ceremony", self.image, password="wrong")
        self.assertEqual((export.status, export.end["outcome"]), (3, "login-failed"), export)
        self.assertIn({"event": "status", "text": "Login failed!"}, export.lines)

    def test_an_unknown_event_names_the_candidates(self):
        export = self.export(self.sandbox(), "--event", "Jones", "--category", "Ceremony", self.image)
        self.assertEqual((export.status, export.end["outcome"]), (4, "refused"), export)
        self.assertIn("Smith Wedding", export.stderr)

    def test_a_box_needs_an_account_that_allows_it(self):
        sandbox = self.sandbox(high_resolution=False)
        export = self.export(sandbox, "--event", "77", "--category", "Ceremony", "--resize", "2560x2560", self.image)
        self.assertEqual((export.status, export.end["outcome"]), (4, "refused"), export)
        self.assertEqual(sandbox.photographs(), [])

    def test_an_account_without_large_images_gets_small_ones(self):
        sandbox = self.sandbox(high_resolution=False)
        large = photograph(self.here / "large.jpg", 3000, 2000)
        export = self.export(sandbox, "--event", "77", "--category", "Ceremony", large)
        self.assertEqual(export.status, 0, export)
        entry = sandbox.photographs()[0]
        self.assertEqual((entry["width"], entry["height"]), (1280, 853))

    def test_a_box_that_is_too_small_is_refused_by_the_validation(self):
        export = self.export(self.sandbox(), "--event", "77", "--category", "Ceremony", "--resize", "900x1280", self.image)
        self.assertEqual((export.status, export.end["outcome"]), (4, "refused"), export)
        self.assertIn("Resize width is not valid", export.stderr)

    def test_a_missing_image_is_a_wrong_use(self):
        export = self.export(self.sandbox(), "--event", "77", "--category", "Ceremony", self.here / "none.jpg")
        self.assertEqual((export.status, export.end["outcome"]), (2, "usage"), export)


def profile(name: str):
    from harness import SOURCE
    return SOURCE / "resources" / f"{name}.icc"


if __name__ == "__main__":
    unittest.main()
