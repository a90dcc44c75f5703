"""velmctl dnp planes, dnp picture: the planes of a page as files, judged by their bytes and by ImageMagick."""

import struct
import unittest

from support import Home, photograph, run


def rows(*command):
    """What ImageMagick makes of a picture, as rows of red, green and blue bytes."""
    width = int(run(*command, "-format", "%w", "info:"))
    data = run(*command, "-depth", "8", "rgb:-")
    return [data[start:start + width * 3] for start in range(0, len(data), width * 3)]


class Planes(unittest.TestCase):
    def planes(self, *arguments):
        self.home = Home(self)
        images = [photograph(self.home.path / name, 300, 200).name for name in ("a.jpg", "b.jpg")]
        self.home.velmctl("page", "make", "--model", "DNP DS620", *arguments, *images, "-o", "p.printpage")
        done = self.home.velmctl("dnp", "planes", "p.printpage", "-o", "Planes")
        self.assertEqual((done.returncode, done.stdout.split()), (0, [f"Planes/{name}.bmp" for name in "YMC"]))
        return [self.home.path / "Planes" / f"{name}.bmp" for name in "CMY"]

    def test_planes_hold_the_raster_but_for_its_last_row(self):
        for multicut, quality, width, height, vertical in ((12, 0, 1920, 2498, 11811), (8, 10, 2560, 2472, 23622)):
            files = self.planes("--multicut", multicut, "--quality", quality)
            for data in (file.read_bytes() for file in files):
                self.assertEqual(struct.unpack("<2s6I2H6I", data[:54]),
                                 (b"BM", width * height + 1088, 0, 1088, 40, width, height, 1, 8, 0, width * height,
                                  11811, vertical, 256, 0))
                self.assertEqual(data[54:1088], b"".join(bytes((255 - i,) * 3 + (0,)) for i in range(256)) + bytes(10))
            self.home.velmctl("page", "raster", "p.printpage", "-o", "raster.png")
            self.home.velmctl("dnp", "picture", "Planes", "-o", "picture.png")
            raster = rows("convert", str(self.home.path / "raster.png"))
            white = b"\xff" * ((width * 3 - len(raster[0])) // 2)
            expected = [white + row + white for row in raster[:-1]] + [b"\xff" * width * 3]
            self.assertEqual(rows("convert", str(self.home.path / "picture.png")), expected)
            # The grey that a program shows is the density of the ink.
            self.assertEqual(rows("convert", *map(str, files), "-set", "colorspace", "sRGB", "-negate", "-combine"),
                             expected)

    def test_failures_name_the_file(self):
        magenta = self.planes("--multicut", 12)[1]
        for damaged, lost in ((self.home.path / "b.jpg", 1000), (magenta, 1)):
            damaged.write_bytes(damaged.read_bytes()[:-lost])
        self.home.write("old.plist", "no list")
        for command, words in ((("planes", "p.printpage", "-o", "Other"), "b.jpg"),
                               (("planes", "Planes/Y.bmp", "-o", "Other"), "Planes/Y.bmp"),
                               (("planes", "old.plist", "-o", "Other"), "old.plist"),
                               (("picture", "Planes", "-o", "picture.png"), "Planes/M.bmp: it has 4797247 bytes"),
                               (("picture", "Other", "-o", "picture.png"), "Other/Y.bmp")):
            done = self.home.velmctl("dnp", *command)
            self.assertEqual((done.returncode, done.stdout), (1, ""), command)
            self.assertIn(words, done.stderr)
        self.assertFalse((self.home.path / "Other").exists())
