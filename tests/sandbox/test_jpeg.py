import io
import random
import tempfile
import unittest
from pathlib import Path

from quillmark_sandbox.jpeg import NotAnImage, read_size, size_of
from PIL import Image

from support import jpeg


class JpegTest(unittest.TestCase):
    def size(self, content: bytes) -> tuple[int, int]:
        return tuple(size_of(content))

    def reason(self, content: bytes) -> str:
        with self.assertRaises(NotAnImage) as caught:
            self.size(content)
        return str(caught.exception)

    def test_every_kind_of_file_has_its_size(self) -> None:
        kinds = {
            "baseline": {},
            "progressive": {"progressive": True},
            "restarts": {"restart_marker_blocks": 1},
        }
        for kind, options in kinds.items():
            with self.subTest(kind):
                self.assertEqual(self.size(jpeg(321, 45, **options)), (321, 45))

    def test_a_thumbnail_inside_is_not_taken_for_the_image(self) -> None:
        exif = b"\xff\xe1" + (len(jpeg(8, 8)) + 2).to_bytes(2, "big") + jpeg(8, 8)
        whole = jpeg(60, 40)
        self.assertEqual(self.size(whole[:2] + exif + whole[2:]), (60, 40))

    def test_fill_bytes_before_markers_and_bytes_after_the_end_are_allowed(self) -> None:
        whole = jpeg(60, 40)
        filled = whole[:2] + b"\xff\xff\xff" + whole[2:-2] + b"\xff\xff\xff\xd9" + b"more"
        self.assertEqual(self.size(filled), (60, 40))

    def test_a_file_that_is_cut_off_anywhere_is_refused(self) -> None:
        for options in ({}, {"progressive": True}):
            whole = jpeg(24, 24, **options)
            for length in range(2, len(whole)):
                self.assertEqual(self.reason(whole[:length]), "a cut-off JPEG image", length)

    def test_other_files_are_refused_with_their_reason(self) -> None:
        png = io.BytesIO()
        Image.new("RGB", (5, 5)).save(png, "PNG")
        self.assertEqual(self.reason(png.getvalue()), "not a JPEG image")
        self.assertEqual(self.reason(b"text"), "not a JPEG image")
        self.assertEqual(self.reason(b"\xff\xd8\xff\xd9"), "a broken JPEG image")

    def test_a_file_on_disk_is_read_like_its_content(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            file = Path(folder) / "image.jpg"
            file.write_bytes(jpeg(60, 40))
            self.assertEqual(read_size(file), (60, 40))
            file.write_bytes(b"")
            with self.assertRaisesRegex(NotAnImage, "empty"):
                read_size(file)

    def test_a_size_of_zero_is_refused(self) -> None:
        whole = jpeg(60, 40)
        frame = whole.index(b"\xff\xc0")
        flat = whole[: frame + 5] + b"\0\0" + whole[frame + 7 :]
        self.assertEqual(self.reason(flat), "a broken JPEG image")

    def test_no_damage_leads_to_anything_but_a_size_or_a_reason(self) -> None:
        chance = random.Random(1)
        whole = jpeg(32, 32)
        for _ in range(2000):
            damaged = bytearray(whole)
            for _ in range(chance.randrange(1, 30)):
                damaged[chance.randrange(len(damaged))] = chance.randrange(256)
            try:
                self.assertEqual(len(self.size(bytes(damaged))), 2)
            except NotAnImage as error:
                self.assertTrue(str(error))


if __name__ == "__main__":
    unittest.main()
