"""velmctl image: what it tells, writes and refuses, judged by exiftool, ImageMagick, poppler and the files' bytes."""

import base64
import json
import struct
import subprocess
import unittest

from support import STORED, VELMCTL, CommandLineTest, Picture, decoded, photograph, run


def metadata(path, *options):
    """What exiftool reads, in numbers rather than words."""
    return json.loads(run("exiftool", "-json", "-n", *options, str(path)))[0]


def p3_profile():
    """An ICC profile of Display P3's primaries with a plain curve of 2.2."""
    def number(value):
        return struct.pack(">i", round(value * 65536))
    name = b"Test P3\0"
    tags = {b"desc": b"desc" + bytes(4) + struct.pack(">I", len(name)) + name + bytes(78),
            b"cprt": b"text" + bytes(4) + b"none\0",
            b"wtpt": b"XYZ " + bytes(4) + number(0.9642) + number(1) + number(0.8249)}
    for colour, values in (("r", (0.5151, 0.2412, -0.0011)), ("g", (0.2920, 0.6922, 0.0419)),
                           ("b", (0.1571, 0.0666, 0.7841))):
        tags[f"{colour}XYZ".encode()] = b"XYZ " + bytes(4) + b"".join(map(number, values))
        tags[f"{colour}TRC".encode()] = b"curv" + bytes(4) + struct.pack(">IH", 1, round(2.2 * 256))
    table, body, start = b"", b"", 128 + 4 + 12 * len(tags)
    for tag, content in tags.items():
        table += tag + struct.pack(">II", start + len(body), len(content))
        body += content + bytes(-len(content) % 4)
    content = struct.pack(">I", len(tags)) + table + body
    header = (struct.pack(">I4sI", 128 + len(content), b"none", 0x02100000) + b"mntrRGB XYZ " + bytes(12) + b"acsp" +
              bytes(28) + number(0.9642) + number(1) + number(0.8249))
    return header.ljust(128, b"\0") + content


class ImageTest(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.folder = self.home.path / "pictures"
        self.folder.mkdir()

    def image(self, *arguments, status=0):
        answer = self.home.velmctl("image", *arguments)
        self.assertEqual((answer.returncode, answer.stderr if status == 0 else answer.stdout), (status, ""), answer)
        return answer.stderr if status else answer.stdout

    def noise(self, name, *options):
        """A picture of which every pixel counts."""
        path = self.folder / name
        run("convert", "-size", "61x43", "-seed", "7", "plasma:red-blue", "-depth", "8", *options, str(path))
        return path

    def files(self):
        return {path.name: path.read_bytes() for path in self.folder.iterdir() if path.is_file()}


class Info(ImageTest):
    def info(self, path):
        def refuse(word):
            self.fail(f"{word} is no JSON")
        return json.loads(self.image("info", path, "--json"), parse_constant=refuse)

    def test_sizes_and_orientations(self):
        for orientation in STORED:
            with self.subTest(orientation):
                info = self.info(photograph(self.folder / "a.jpg", 90, 60, orientation))
                stored = (60, 90) if orientation >= 5 else (90, 60)
                self.assertEqual([info[key] for key in ("width", "height", "orientation", "orientedWidth",
                                                        "orientedHeight", "type")],
                                 [*stored, orientation, 90, 60, "public.jpeg"])
                self.assertEqual(info["properties"]["PixelWidth"], stored[0])

    def test_types_and_colour_spaces(self):
        (self.folder / "p3.icc").write_bytes(p3_profile())
        for name, options, kind, space in (
                ("a.png", [], "public.png", "sRGB"), ("g.png", ["-colorspace", "Gray"], "public.png", "Gray"),
                ("a.tif", [], "public.tiff", "sRGB"), ("c.jpg", ["-colorspace", "CMYK"], "public.jpeg", "CMYK"),
                ("w.png", ["-profile", self.folder / "p3.icc"], "public.png", "Test P3"),
                ("a.gif", [], "com.compuserve.gif", "sRGB"), ("a.bmp", [], "com.microsoft.bmp", "sRGB"),
                ("a.webp", [], "org.webmproject.webp", "sRGB"), ("a.heic", [], "public.heic", "sRGB"),
                ("a.psd", [], "com.adobe.photoshop-image", "sRGB"), ("a.pdf", [], "com.adobe.pdf", "sRGB")):
            with self.subTest(name):
                if name.endswith(".pdf"):  # ImageMagick is not allowed to write them
                    self.image("convert", self.folder / "a.png", self.folder / name)
                else:
                    self.noise(name, *map(str, options))
                info = self.info(self.folder / name)
                self.assertEqual((info["type"], info["orientation"], info["width"]), (kind, 1, 61))
                self.assertIn(space, info["colorSpace"])

    def test_pages_are_counted(self):
        page = self.noise("a.png")
        run("convert", str(page), str(page), str(self.folder / "two.tif"))
        self.assertEqual(self.info(self.folder / "two.tif")["count"], 2)
        self.assertNotIn("count", self.info(page))

    def test_strange_metadata_is_valid_json_and_harmless_on_a_terminal(self):
        path = photograph(self.folder / "a.jpg")
        run("exiftool", "-q", "-overwrite_original", "-n", "-ImageDescription=AAAAAAAA", "-Make=x\"\\\n\x1b[31m",
            "-FocalLength=inf", "-UserComment=größer", str(path))
        path.write_bytes(path.read_bytes().replace(b"AAAAAAAA", b"\xff\xfe\xc3(\x80AA\x07"))
        properties = self.info(path)["properties"]
        self.assertEqual(properties["{TIFF}"]["Make"], "x\"\\\n\x1b[31m")
        self.assertEqual(properties["{Exif}"]["UserComment"], "größer")
        base64.b64decode(properties["{Exif}"]["ComponentsConfiguration"], validate=True)
        human = self.image("info", path)
        self.assertNotRegex(human, "[\x00-\x09\x0b-\x1f]")
        self.assertIn("x\"\\\\n\\x1b[31m", human)


class Convert(ImageTest):
    def assert_like(self, picture, expected, limit):
        """No pixel differs by more than the limit, from 0 to 1."""
        got = self.folder / "got.png"
        got.write_bytes(decoded(picture))
        answer = subprocess.run(["compare", "-metric", "PAE", str(got), str(expected), "null:"], capture_output=True,
                                text=True)
        self.assertRegex(answer.stderr, r"\(", answer)
        self.assertLessEqual(float(answer.stderr.split("(")[1].rstrip(")\n")), limit, f"{picture} against {expected}")

    def test_every_orientation_becomes_upright_to_the_bit(self):
        upright = self.noise("upright.png")
        for orientation, kind in [*((number, "tif") for number in STORED), (5, "png"), (6, "psd"), (7, "webp")]:
            with self.subTest(orientation, kind=kind):
                stored = self.folder / f"stored.{kind}"
                run("convert", str(upright), *STORED[orientation], "-define", "webp:lossless=true", str(stored))
                run("exiftool", "-q", "-q", "-overwrite_original", "-n", f"-Orientation={orientation}", str(stored))
                out = self.folder / "out.png"
                self.assertEqual(self.image("convert", stored, out), f"{out}\n")
                self.assert_like(out, upright, 0)
                self.assertEqual(metadata(out).get("Orientation"), 1)

    def test_what_is_read_has_the_pixels_that_others_see(self):
        for name, options in (("a.jpg", ["-interlace", "JPEG"]), ("p.png", ["-colors", "50", "-type", "Palette"]),
                              ("d.png", ["-depth", "16"]), ("g.png", ["-colorspace", "Gray", "-interlace", "PNG"]),
                              ("t.tif", ["-compress", "LZW", "-define", "tiff:tile-geometry=16x16"]),
                              ("z.tif", ["-depth", "16", "-compress", "Zip"]), ("a.gif", []), ("a.bmp", []),
                              ("a.webp", ["-define", "webp:lossless=true"]), ("a.heic", []),
                              ("a.psd", ["-depth", "16"])):
            with self.subTest(name):
                source = self.noise(name, *options)
                others = self.folder / "others.png"
                others.write_bytes(decoded(source))
                self.image("convert", source, self.folder / "out.png")
                # Half the colour resolution can be brought back in more than one way.
                self.assert_like(self.folder / "out.png", others, 0.03 if name.endswith("heic") else 0.006)

    def test_every_type_holds_pixels_profile_and_metadata(self):
        source = photograph(self.folder / "a.jpg", 240, 160, 6)
        upright = self.folder / "upright.png"
        run("convert", str(source), "-auto-orient", str(upright))
        for name, written, kind, limit in (
                ("b.jpg", "b.jpeg", "JPEG", 0.02), ("B.JPE", "B.jpeg", "JPEG", 0.02), ("b.png", "b.png", "PNG", 0),
                ("b.tif", "b.tiff", "TIFF", 0), ("b.heic", "b.heic", "HEIC", 0.02), ("b.psd", "b.psd", "PSD", 0),
                ("b.pdf", "b.pdf", "PDF", 0.02)):
            with self.subTest(name):
                path = self.folder / written
                options = ("--comment", "größer", "--quality", "1")
                self.assertEqual(self.image("convert", source, self.folder / name, *options), f"{path}\n")
                tags = metadata(path, "-ICC_Profile:ProfileDescription", "-all")
                self.assertEqual(tags["FileType"], kind)
                self.assert_like(path, upright, limit)
                self.assert_upright(path)
                if kind == "PDF":
                    self.assertIn("größer", json.dumps(tags, ensure_ascii=False))
                    continue
                self.assertEqual((tags["UserComment"], tags["Orientation"]), ("größer", 1))
                for date in ("DateTimeOriginal", "CreateDate"):
                    self.assertRegex(tags[date], r"^\d{4}:\d\d:\d\d \d\d:\d\d:\d\d$")
                self.assertIn("sRGB", tags["ProfileDescription"])

    def test_colours_of_other_models_and_profiles(self):
        (self.folder / "p3.icc").write_bytes(p3_profile())
        source = photograph(self.folder / "a.jpg")
        for name, options, profile in (("cmyk.jpg", ["-colorspace", "CMYK"], "sRGB"),
                                       ("cmyk.tif", ["-colorspace", "CMYK"], "sRGB"),
                                       ("p3.png", ["-profile", str(self.folder / "p3.icc")], "Test P3")):
            for more in ([], ["--max", "60"]):
                with self.subTest(name, more=more):
                    run("convert", str(source), *options, str(self.folder / name))
                    self.image("convert", self.folder / name, self.folder / "out.png", *more)
                    self.assertIn(profile, metadata(self.folder / "out.png")["ProfileDescription"])
                    self.assert_upright(self.folder / "out.png")

    def test_the_longer_side_is_limited_and_never_enlarged(self):
        source = photograph(self.folder / "a.jpg", 400, 300, 8)
        for maximum, size in ((100, (100, 75)), (400, (400, 300)), (5000, (400, 300)), (1, (1, 1))):
            with self.subTest(maximum):
                self.image("convert", source, self.folder / "out.png", "--max", maximum)
                picture = Picture(self.folder / "out.png")
                self.assertEqual((picture.width, picture.height), size)
                if maximum > 1:
                    self.assert_upright(self.folder / "out.png")

    def test_quality_decides_the_size(self):
        source = self.noise("a.png")
        sizes = []
        for quality in ("0", "0.5", "1"):
            self.image("convert", source, self.folder / "out.jpg", "--quality", quality)
            sizes.append((self.folder / "out.jpeg").stat().st_size)
        self.assertEqual(sizes, sorted(set(sizes)))

    def test_keep_gives_each_of_several_processes_its_own_name(self):
        source = photograph(self.folder / "a.jpg")
        before = self.files()
        processes = [subprocess.Popen([VELMCTL, "--home", str(self.home.path), "image", "convert", str(source),
                                       str(self.folder / "a.jpeg"), "--keep"], stdout=subprocess.PIPE, text=True)
                     for _ in range(4)]
        names = [process.communicate()[0].rstrip("\n") for process in processes]
        self.assertEqual(sorted(names), [str(self.folder / name)
                                         for name in ("a 1.jpeg", "a 2.jpeg", "a 3.jpeg", "a.jpeg")])
        self.assertEqual(self.files()["a.jpg"], before["a.jpg"])
        self.assertEqual(len(self.files()), 5)

    def test_what_cannot_be_done_leaves_nothing(self):
        good = photograph(self.folder / "good.jpg", 600, 400)
        png, jpeg = self.noise("whole.png").read_bytes(), good.read_bytes()
        for name, content in (("rubbish.jpg", b"no picture at all"), ("empty.png", b""),
                              ("cut.jpg", jpeg[:len(jpeg) // 2]), ("cut.png", png[:len(png) // 2])):
            (self.folder / name).write_bytes(content)
        before = self.files()
        for source, target, reason in (("rubbish.jpg", "out.png", "rubbish.jpg"), ("empty.png", "out.png", "empty"),
                                       ("cut.jpg", "out.png", "cut.jpg"), ("cut.png", "out.jpg", "cut.png"),
                                       ("missing.jpg", "out.png", "No such file"), (".", "out.png", "not a file"),
                                       ("good.jpg", "good.jpg/out.png", "good.jpg"),
                                       ("good.jpg", "/proc/out.png", "/proc/out.png")):
            with self.subTest(source, target=target):
                line = self.image("convert", self.folder / source, self.folder / target, status=1)
                self.assertIn(reason, line)
                self.assertEqual(line.count("\n"), 1, line)
                self.assertEqual(self.files(), before)
        for source in ("rubbish.jpg", "empty.png", "missing.jpg", "."):
            for command in ("info", "comment"):
                self.assertEqual(self.image(command, self.folder / source, status=1).count("\n"), 1)

    def test_wrong_usage(self):
        source = photograph(self.folder / "a.jpg")
        for arguments, words in ((["convert", source], "OUT"), (["convert", source, "a.xyz"], "jpg"),
                                 (["convert", source, "a"], "tiff"), (["convert", source, "a.gif"], "png"),
                                 (["convert", source, "a.png", "--quality", "1.5"], "1.5"),
                                 (["convert", source, "a.png", "--quality", "-0.1"], "-0.1"),
                                 (["convert", source, "a.png", "--quality", "nan"], "nan"),
                                 (["convert", source, "a.png", "--max", "0"], "max"),
                                 (["convert", source, "a.png", "--max", "many"], "many"),
                                 (["comment", source, ""], "empty"), (["info"], "FILE"), ([], "required")):
            with self.subTest(arguments):
                self.assertIn(words, self.image(*arguments, status=2))


class Comment(ImageTest):
    @staticmethod
    def scans(jpeg):
        """The bytes from the first scan's header to the end, behind all metadata."""
        position = 2
        while jpeg[position + 1] != 0xDA:
            position += 2 + int.from_bytes(jpeg[position + 2:position + 4], "big")
        return jpeg[position:]

    def test_a_comment_is_set_without_touching_the_picture(self):
        for options in ([], ["-interlace", "JPEG"], ["-colorspace", "CMYK"]):
            source = self.noise("a.jpg", *options)
            run("exiftool", "-q", "-overwrite_original", "-n", "-Orientation=6", "-Artist=somebody", str(source))
            self.assertEqual(self.image("comment", source), "\n")
            for text in ("first", "größer\n<b>\"second\"</b>", "short"):
                with self.subTest(text, options=options):
                    before, tags = self.scans(source.read_bytes()), metadata(source, "-Orientation", "-Artist")
                    self.assertEqual(self.image("comment", source, text), "")
                    self.assertEqual(self.image("comment", source), text + "\n")
                    self.assertEqual(run("exiftool", "-b", "-UserComment", str(source)).decode(), text)
                    self.assertEqual(self.scans(source.read_bytes()), before)
                    self.assertEqual(metadata(source, "-Orientation", "-Artist"), tags)

    def test_only_jpeg_files_take_one(self):
        photograph(self.folder / "a.jpg")
        for name in ("a.png", "a.tif"):
            with self.subTest(name):
                self.noise(name)
                before = self.files()
                self.assertIn("JPEG", self.image("comment", self.folder / name, "text", status=1))
                self.assertEqual(self.files(), before)


if __name__ == "__main__":
    unittest.main()
