"""velmctl page: pages as archives, their rasters and previews, judged by plistlib, ImageMagick and exiftool."""

import array
import json
import pathlib
import plistlib
import sys
import unittest

from support import (BLUE, GREEN, RED, VELMCTL, YELLOW, CommandLineTest, Picture, near, photograph, run)

PROFILE = pathlib.Path(VELMCTL).resolve().parent.parent / "share/velm/CPD70_SF.icc"
MITSU = ("--model", "Mitsubishi CP-D90DW", "--paper", "Media6x8Cut4x6")
DNP = ("--model", "DNP DP-DS620", "--paper", "6x4")


def told(path, form):
    return run("identify", "-format", form, str(path)).decode()


def samples(path, *options):
    """16-bit samples of a picture file's red, green and blue."""
    return array.array("H", run("convert", str(path), *options, "-depth", "16", "-endian",
                                {"little": "LSB", "big": "MSB"}[sys.byteorder], "rgb:-"))


class PageTest(CommandLineTest):
    def page(self, *arguments, status=0, said=""):
        answer = self.home.velmctl("page", *arguments)
        self.assertEqual(answer.returncode, status, answer.stderr)
        if status == 0:
            self.assertRegex(answer.stderr, said or r"\A\Z")
        return answer.stdout if status == 0 else answer.stderr

    def make(self, *arguments, name="a.printpage", said=""):
        path = self.home.path / name
        self.assertEqual(self.page("make", *arguments, "-o", path, said=said), f"{path}\n")
        return path

    def shown(self, page):
        return json.loads(self.page("show", page, "--json"))

    def raster(self, page, *options, name="raster.png", command="raster"):
        path = self.home.path / name
        written = self.page(command, page, "-o", path, *options).splitlines()
        return path if written == [str(path)] else [pathlib.Path(line) for line in written]

    def assert_same(self, one, other):
        """Of samples: a list of them would be told one by one."""
        self.assertEqual(len(one), len(other))
        differing = sum(a != b for a, b in zip(one, other))
        self.assertEqual(differing, 0, f"{differing} of {len(one)} samples differ")

    def photo(self, *size):
        return photograph(self.home.path / "photo.jpg", *size)


class Make(PageTest):
    def test_an_archive_holds_what_was_asked_for(self):
        self.photo(90, 60)
        page = self.make(*MITSU, "photo.jpg", "--gravity", "resizeAspect", "--quality", "ultra fine", "--overcoat", "2",
                         "--no-auto-rotate", "--adjust", "Brightness=0.25", "--adjust", "Red=0.5", "--copies", "3",
                         "--color-management", "0", said="copies")
        archive = plistlib.loads(page.read_bytes())
        objects = archive["$objects"]
        root = objects[archive["$top"]["root"].data]
        held = {key: objects[value.data] if isinstance(value, plistlib.UID) else value for key, value in root.items()}
        self.assertEqual(objects[root["$class"].data]["$classes"][:2], ["KLARON_PrintPageMitsu1", "KLARON_PrintPage"])
        self.assertEqual([held[f"self.{key}"] for key in ("multicut", "mediaSize", "quality", "overcoat",
                                                          "colorManagement", "printerModel", "requiredModel")],
                         [128, 15, 4, 2, 0, 57, "Mitsubishi CP-D90DW"])
        self.assertIn(f"file://{self.home.path}/photo.jpg", objects)
        shown = self.shown(page)
        self.assertEqual([shown[key] for key in ("class", "multicutName", "mediaSizeName", "qualityName", "gravity",
                                                 "autoRotate", "outputSize", "applyImageFilters")],
                         ["KLARON_PrintPageMitsu1", "6 x 4", "6 x 8", "Ultra Fine", "resizeAspect", False,
                          [1852, 1226], True])
        self.assertEqual(shown["images"], [{"path": f"{self.home.path}/photo.jpg", "size": [90, 60]}])
        self.assertEqual({one["name"]: one["inputs"] for one in shown["filters"][0]}["CIColorMatrix"]["inputRVector"],
                         [0.5, 0, 0, 0])
        self.assertRegex(self.page("show", page), "filters 1 +CIColorControls inputBrightness=0.25; "
                                                  "CIColorMatrix inputRVector=0.5,0,0,0\n")
        (self.home.path / "photo.jpg").unlink()
        self.assertRegex(self.page("show", page), r"images 1 .*photo.jpg: No such file")

    def test_every_paper_that_is_offered_is_one(self):
        self.photo(90, 60)
        for model in ("DNP DS80", "Mitsubishi CP-D80DW"):
            answer = self.page("make", "photo.jpg", "--model", model, "--paper", "A3", "-o", "x", status=1)
            papers = answer.split("it knows ")[1].strip().split(", ")
            self.assertGreater(len(papers), 5)
            for paper in papers:
                page = self.make("photo.jpg", "--model", model, "--paper", paper)
                self.assertGreater(min(self.shown(page)["outputSize"]), 900, paper)

    def test_what_is_refused_and_what_is_told(self):
        self.photo(90, 60)
        (self.home.path / "bad.jpg").write_bytes(b"no picture")
        before = sorted(self.home.path.iterdir())
        for arguments, status, words in (
                ((*DNP, "missing.jpg"), 1, "missing.jpg"), ((*DNP, "bad.jpg"), 1, "bad.jpg"),
                ((*DNP, "photo.jpg", "--quality", "best"), 1, "High Speed"),
                ((*DNP, "photo.jpg", "--overcoat", "2"), 1, "Matte"),
                ((*DNP, "photo.jpg", "--multicut", "23"), 1, "multicut"), ((*DNP, "photo.jpg", "--media", "1"), 1, "6x4"),
                ((*DNP, "photo.jpg", "--profile", "bad.jpg"), 1, "bad.jpg"),
                ((*DNP, "photo.jpg", "--adjust", "Bright=1"), 2, "Brightness"),
                ((*DNP, "photo.jpg", "--adjust", "Hue=blue"), 2, "number"),
                ((*DNP, "photo.jpg", "--gravity", "fill"), 2, "resizeAspectFill"),
                ((*DNP, "photo.jpg", "--copies", "0"), 2, "copies"), (("--model", "DNP DS80", "photo.jpg"), 2, "paper"),
                ((*DNP, "photo.jpg", "-o", "no/such/x"), 1, "no/such")):
            with self.subTest(arguments):
                output = () if "-o" in arguments else ("-o", "x")
                self.assertIn(words, self.page("make", *arguments, *output, status=status))
        self.assertEqual(sorted(path for path in self.home.path.iterdir() if path.name not in ("Logs", "Settings")),
                         [path for path in before if path.name not in ("Logs", "Settings")])
        self.make("photo.jpg", "--model", "Epson", "--paper", "6x8", said="Epson.*DNP DS80")
        self.make("photo.jpg", *MITSU, "photo.jpg", said="one picture")
        for command in (("show",), ("raster", "-o", "x.png"), ("preview", "-o", "x.png")):
            for name in ("bad.jpg", "missing.jpg"):
                self.assertIn(name, self.page(command[0], name, *command[1:], status=1))
        page = self.make(*DNP, "photo.jpg")
        (self.home.path / "photo.jpg").unlink()
        for command in ("raster", "preview"):
            self.assertIn("photo.jpg", self.page(command, page, "-o", "x.png", status=1))


class Raster(PageTest):
    def test_photographs_stand_upright_in_every_gravity(self):
        self.photo(600, 400)
        for kind, quality, size, seen in ((DNP, "0", "1844x1240", (800, 538)), (DNP, "10", "1844x2480", (800, 538)),
                                          (MITSU, "0", "1852x1226", (800, 530))):
            for gravity in ("resizeAspectFill", "resizeAspect"):
                with self.subTest(kind, quality=quality, gravity=gravity):
                    page = self.make(*kind, "photo.jpg", "--quality", quality, "--gravity", gravity)
                    self.assertEqual(told(self.raster(page), "%wx%h"), size)
                    preview = self.raster(page, name="preview.png", command="preview")
                    self.assert_upright(preview)
                    picture = Picture(preview)
                    self.assertEqual((picture.width, picture.height), seen)
                    filled = gravity == "resizeAspectFill" or near(picture.at(0, 0.01), RED)
                    self.assertTrue(filled or near(picture.at(0.001, 0.001), (255, 255, 255), 3))
        page = self.make(*DNP, "photo.jpg", "--gravity", "center")
        self.assertEqual(told(self.raster(page), "%wx%h"), "600x400")

    def test_a_photograph_that_lies_across_is_turned(self):
        self.photo(400, 600)
        page = self.make(*DNP, "photo.jpg")
        turned = Picture(self.raster(page))
        for x, y, color in ((0.2, 0.2, BLUE), (0.8, 0.2, RED), (0.2, 0.8, YELLOW), (0.8, 0.8, GREEN)):
            self.assertTrue(near(turned.at(x, y), color), f"{turned.at(x, y)} at {x}, {y}")

    def test_the_printers_profile_is_applied_as_another_library_does(self):
        colors = ("#808080", "#ffffff", "#000000", "#dcaa8c", "#5a6e3c", "#1e3cc8")
        patches = self.home.path / "patches.png"
        run("convert", "-size", "1x1", *(f"xc:{color}" for color in colors), "+append", "-strip", "-sample",
            "1852x1226!", str(patches))
        raster = self.raster(self.make(*MITSU, patches))
        # ImageMagick needs a profile to come from.
        srgb = self.home.path / "srgb.icc"
        page = self.make(*DNP, patches)
        srgb.write_bytes(run("exiftool", "-b", "-ICC_Profile", str(self.raster(page, name="dnp.png"))))
        for i, color in enumerate(colors):
            middle = ("-crop", f"1x1+{1852 * i // 6 + 150}+600", "+repage")
            own = samples(raster, *middle)
            wanted = samples(patches, *middle, "-depth", "16", "-intent", "relative", "-black-point-compensation",
                             "-profile", str(srgb), "-profile", str(PROFILE))
            for one, other in zip(own, wanted):
                self.assertLessEqual(abs(one - other), 257, f"{color}: {own}, {wanted}")
        tags = run("exiftool", "-s3", "-ImageSize", "-BitDepth", "-ICC_Profile:ProfileDescription", str(raster))
        self.assertEqual(tags.decode().splitlines(), ["1852x1226", "16", "CP-D70 Super Fine"])

    def test_forms_hold_the_same_samples(self):
        self.photo(90, 60)
        page = self.make(*DNP, "photo.jpg")
        chunky = samples(self.raster(page, "--bits", 8))
        self.assert_same(chunky, samples(self.raster(page, name="plain.tiff")))
        colors = [chunky[component::3] for component in range(3)]
        inks = [array.array("H", (65535 - value for value in plane)) for plane in reversed(colors)]
        cmy = samples(self.raster(page, "--cmy", name="cmy.png"))
        for component, ink in enumerate(inks):
            self.assert_same(cmy[component::3], ink)
        for options, names, planes in (((), "RGB", colors), (("--cmy",), "YMC", inks)):
            written = self.raster(page, "--planar", *options, name="plane.png")
            self.assertEqual([path.name for path in written], [f"plane-{name}.png" for name in names])
            for path, plane in zip(written, planes):
                self.assert_same(samples(path)[::3], plane)
        deep = samples(self.raster(page, "--bits", 16, name="deep.tiff"))
        self.assertLessEqual(max(abs(one - other) for one, other in zip(deep, chunky)), 2 * 257)
        low = samples(self.raster(page, "--bits", 16, "--planar", name="low.png")[0])[::3]
        self.assert_same(low, [value & 255 for value in deep[::3]])

    def test_an_old_page_prints_as_one_that_is_made(self):
        photo = photograph(self.home.path / "old.jpeg", 300, 200)
        old = self.home.path / "old.plist"
        old.write_bytes(plistlib.dumps({
            "printer": 57, "printQuantity": 2, "mediaSettings": {"mediaType": 4, "cutInHalf": 3},
            "colorAdjustSettings": {"colorAdjustSaturation": 0.5, "colorAdjustSharpness": "0.75"}}))
        made = self.make(*MITSU, photo, "--adjust", "Saturation=0.5", "--adjust", "Sharpness=0.75")
        self.assert_same(samples(self.raster(old, name="old.png")), samples(self.raster(made)))
        self.assertEqual([self.shown(old)[key] for key in ("copies", "requiresIdealMedia", "quality")], [2, True, 0])


if __name__ == "__main__":
    unittest.main()
