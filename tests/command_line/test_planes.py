"""velmctl dnp planes, dnp picture: the planes of a page as files, judged by their bytes and by ImageMagick."""

import struct
import unittest

from support import Home, photograph, run


def pixels(*command):
    """What ImageMagick makes of a picture, as rows of red, green and blue bytes."""
    width, height = (int(part) for part in run(*command, "-format", "%w %h", "info:").split())
    data = run(*command, "-depth", "8", "rgb:-")
    return [data[y * width * 3:(y + 1) * width * 3] for y in range(height)]


class Planes(unittest.TestCase):
    def setUp(self):
        self.home = Home(self)
        self.planes = self.home.path / "Planes"

    def page(self, *arguments, images=("a.jpg",)):
        for image in images:
            photograph(self.home.path / image, 300, 200)
        made = self.home.velmctl("page", "make", "--model", "DNP DS620", *arguments, *images, "-o", "p.printpage")
        self.assertEqual(made.returncode, 0, made.stderr)

    def write_planes(self, *arguments, **more):
        self.page(*arguments, **more)
        done = self.home.velmctl("dnp", "planes", "p.printpage", "-o", "Planes")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(done.stdout.split(), [f"Planes/{name}.bmp" for name in "YMC"])

    def test_headers_to_the_byte(self):
        for paper, quality, width, height, vertical in (("6x4", 0, 1920, 1240, 11811), ("8x4", 10, 2560, 2472, 23622)):
            self.write_planes("--paper", paper, "--quality", quality)
            for name in "YMC":
                data = (self.planes / f"{name}.bmp").read_bytes()
                count = width * height
                self.assertEqual(struct.unpack("<2s13I", data[:2] + data[2:26] + data[30:54] + data[26:30]),
                                 (b"BM", count + 1088, 0, 1088, 40, width, height, 0, count, 11811, vertical, 256, 0,
                                  8 << 16 | 1))
                self.assertEqual(data[54:1088], b"".join(bytes((255 - i,) * 3 + (0,)) for i in range(256)) + bytes(10))
                self.assertEqual(len(data), count + 1088)

    def test_planes_hold_the_raster_but_for_its_last_row(self):
        self.write_planes("--multicut", "12", images=("a.jpg", "b.jpg"))
        self.home.velmctl("page", "raster", "p.printpage", "-o", "raster.png")
        self.home.velmctl("dnp", "picture", "Planes", "-o", "picture.png")
        raster = pixels("convert", str(self.home.path / "raster.png"))
        white = b"\xff" * 38 * 3
        expected = [white + row + white for row in raster[:-1]] + [b"\xff" * 1920 * 3]
        self.assertEqual(pixels("convert", str(self.home.path / "picture.png")), expected)
        # The grey that a program shows is the density of the ink.
        files = [str(self.planes / f"{name}.bmp") for name in "CMY"]
        self.assertEqual(pixels("convert", *files, "-set", "colorspace", "sRGB", "-negate", "-combine"), expected)

    def test_failures_name_the_file(self):
        self.write_planes("--paper", "6x4")
        for damaged, lost in ((self.home.path / "a.jpg", 1000), (self.planes / "M.bmp", 1)):
            damaged.write_bytes(damaged.read_bytes()[:-lost])
        self.home.write("old.plist", "no list")
        for command, words in ((("planes", "p.printpage", "-o", "Other"), "a.jpg"),
                               (("planes", "Planes/Y.bmp", "-o", "Other"), "Planes/Y.bmp"),
                               (("planes", "old.plist", "-o", "Other"), "old.plist"),
                               (("picture", "Planes", "-o", "picture.png"), "Planes/M.bmp: it has 2381887 bytes"),
                               (("picture", "Other", "-o", "picture.png"), "Other/Y.bmp")):
            done = self.home.velmctl("dnp", *command)
            self.assertEqual((done.returncode, done.stdout), (1, ""), command)
            self.assertIn(words, done.stderr)
        self.assertFalse((self.home.path / "Other").exists())
