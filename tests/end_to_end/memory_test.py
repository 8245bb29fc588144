"""How much memory an export takes at its peak."""

import os
import unittest

from PIL import Image

from export_test import PASSWORD, service_data
from harness import Export, Sandbox, folder

FEW, MANY = 5, 200
WIDTH, HEIGHT = 6000, 4000


class PeakMemory(unittest.TestCase):
    def test_it_does_not_grow_with_the_number_of_images(self):
        with folder() as here, Sandbox(here / "state", data=service_data()) as sandbox:
            original = here / "original.jpg"
            noise = Image.effect_noise((WIDTH, HEIGHT), 40)
            Image.merge("RGB", (noise, noise.transpose(Image.Transpose.ROTATE_180), noise)).save(original, quality=85)
            peaks = {}
            for count in (FEW, MANY):
                export = self.export(sandbox, here, original, count)
                self.assertEqual(export.status, 0, export.stderr)
                peaks[count] = export.peak
            print(f"peak of {FEW} images: {peaks[FEW]} KiB, of {MANY}: {peaks[MANY]} KiB")
            self.assertLessEqual(peaks[MANY], 1.2 * peaks[FEW])

    @staticmethod
    def export(sandbox, here, original, count) -> Export:
        files = [here / f"{count}-{index}.jpg" for index in range(count)]
        for file in files:
            os.link(original, file)
        return Export(sandbox.config, "--user", "ann", "--password-file", "-", "--event", "77", "--category", "Ceremony",
                      "--resize", "1280x1280", *files, password=PASSWORD, timeout=500)


if __name__ == "__main__":
    unittest.main()
