"""Draws pictures smaller or larger with Pillow's Lanczos filter, for comparison.

Reads a job a line from standard input, its fields parted by tabs: the picture, the width and height to draw it into,
the profile that it is read by, the profile to convert it to (or nothing, where that is the same), and the PNG to write.
"""

import sys

from PIL import Image, ImageCms

RELATIVE_COLORIMETRIC = 1
BLACK_POINT_COMPENSATION = 0x2000


def main() -> None:
    for line in sys.stdin:
        source, width, height, own_profile, target_profile, result = line.rstrip("\n").split("\t")
        with Image.open(source) as picture:
            drawn = picture.convert("RGB").resize((int(width), int(height)), Image.Resampling.LANCZOS)
        if target_profile:
            drawn = ImageCms.profileToProfile(drawn, own_profile, target_profile,
                                              renderingIntent=RELATIVE_COLORIMETRIC, flags=BLACK_POINT_COMPENSATION)
        drawn.save(result, compress_level=1, icc_profile=None)


if __name__ == "__main__":
    main()
