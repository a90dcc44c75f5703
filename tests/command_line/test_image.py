"""velmctl image: what it tells, writes and refuses, judged by exiftool, ImageMagick, poppler and the files' bytes."""

import base64
import json
import subprocess
import unittest

from support import STORED, VELMCTL, CommandLineTest, Picture, decoded, photograph, run


def metadata(*paths, options=()):
    """What exiftool reads of each file, in numbers rather than words; one call for all, for it takes long to start."""
    return json.loads(run("exiftool", "-q", "-json", "-n", *options, *map(str, paths)))


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

    def test_sizes_orientations_and_numbers_of_pages(self):
        for orientation in (1, 6):  # all eight are told by what is converted
            with self.subTest(orientation):
                info = self.info(photograph(self.folder / "a.jpg", 90, 60, orientation))
                stored = (60, 90) if orientation >= 5 else (90, 60)
                self.assertEqual([info[key] for key in ("width", "height", "orientation", "orientedWidth",
                                                        "orientedHeight", "type")],
                                 [*stored, orientation, 90, 60, "public.jpeg"])
                self.assertEqual(info["properties"]["PixelWidth"], stored[0])
                self.assertIn("sRGB", info["colorSpace"])
                self.assertNotIn("count", info)
        page = str(self.noise("a.png"))
        run("convert", page, page, str(self.folder / "two.tif"))
        self.assertEqual(self.info(self.folder / "two.tif")["count"], 2)

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
        written = []
        for orientation, kind in [*((number, "tif") for number in STORED), (5, "png"), (6, "psd"), (7, "webp")]:
            with self.subTest(orientation, kind=kind):
                stored = self.folder / f"stored.{kind}"
                run("convert", str(upright), *STORED[orientation], "-define", "webp:lossless=true", str(stored))
                run("exiftool", "-q", "-q", "-overwrite_original", "-n", f"-Orientation={orientation}", str(stored))
                written.append(self.folder / f"{orientation} {kind}.png")
                self.assertEqual(self.image("convert", stored, written[-1]), f"{written[-1]}\n")
                self.assert_like(written[-1], upright, 0)
        self.assertEqual({tags["Orientation"] for tags in metadata(*written)}, {1})

    def test_every_type_holds_pixels_profile_and_metadata(self):
        source = photograph(self.folder / "a.jpg", 240, 160, 6)
        upright = self.folder / "upright.png"
        run("convert", str(source), "-auto-orient", str(upright))
        names = {"b.jpg": "b.jpeg", "B.JPE": "B.jpeg", "b.png": "b.png", "b.tif": "b.tiff", "b.heic": "b.heic",
                 "b.psd": "b.psd", "b.pdf": "b.pdf"}
        paths = [self.folder / written for written in names.values()]
        for name, path in zip(names, paths):
            options = ("--comment", "größer", "--quality", "1")
            self.assertEqual(self.image("convert", source, self.folder / name, *options), f"{path}\n")
        for path, tags in zip(paths, metadata(*paths, options=("-ICC_Profile:ProfileDescription", "-all"))):
            with self.subTest(path):
                kind = path.suffix[1:].upper()
                self.assert_like(path, upright, 0.02 if kind in ("JPEG", "HEIC", "PDF") else 0)
                self.assertEqual((tags["FileType"], tags["UserComment"], tags["Orientation"]), (kind, "größer", 1))
                self.assertEqual(self.image("comment", path), "größer\n")
                for date in ("DateTimeOriginal", "CreateDate"):
                    self.assertRegex(tags[date], r"^\d{4}:\d\d:\d\d \d\d:\d\d:\d\d$")
                if kind == "PDF":  # whose profile stands with its picture, whose note among its keywords
                    self.assertIn(" icc ", run("pdfimages", "-list", str(path)).decode())
                    self.assertEqual(tags["Keywords"], ["VELM", "XML"])
                else:
                    self.assertIn("sRGB", tags["ProfileDescription"])
                    self.assertEqual(tags["MakerNoteUnknownText"], "VELM XML")

    def test_printing_colours_become_those_of_screens(self):
        source = photograph(self.folder / "a.jpg")
        for name in ("cmyk.jpg", "cmyk.tif"):
            for more in ([], ["--max", "60"]):
                with self.subTest(name, more=more):
                    run("convert", str(source), "-colorspace", "CMYK", str(self.folder / name))
                    self.image("convert", self.folder / name, self.folder / "out.png", *more)
                    self.assertIn("sRGB", metadata(self.folder / "out.png")[0]["ProfileDescription"])
                    self.assert_upright(self.folder / "out.png")

    def test_size_is_limited(self):
        source = photograph(self.folder / "a.jpg", 400, 300, 8)
        for maximum, size in ((100, (100, 75)), (400, (400, 300)), (5000, (400, 300)), (1, (1, 1))):
            with self.subTest(maximum):
                self.image("convert", source, self.folder / "out.png", "--max", maximum)
                picture = Picture(self.folder / "out.png")
                self.assertEqual((picture.width, picture.height), size)
                if maximum > 1:
                    self.assert_upright(self.folder / "out.png")

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
                    before = self.scans(source.read_bytes())
                    self.assertEqual(self.image("comment", source, text), "")
                    self.assertEqual(self.image("comment", source), text + "\n")
                    self.assertEqual(self.scans(source.read_bytes()), before)
                    tags = metadata(source, options=("-b", "-Orientation", "-Artist", "-UserComment"))[0]
                    self.assertEqual([*tags.values()][1:], [6, "somebody", text])

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
