"""The sample order as scripts/demo lays it out: the photographs of camera size, judged by what they show."""

import os
import pathlib
import subprocess
import unittest

from support import SOURCE, CommandLineTest, Picture, near

PHOTOGRAPHS = pathlib.Path(os.environ.get("VELM_PHOTOGRAPHS", ""))


@unittest.skipUnless((PHOTOGRAPHS / ".made").exists(), "the sample photographs are not generated in this build")
class SampleOrder(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.assertEqual(self.home.velmctl("init").returncode, 0)
        (self.home.path / "VELM/Packages/Simple.xml").unlink()
        self.pictures = self.home.path / "Pictures"
        subprocess.run([SOURCE / "scripts/sample-order", self.home.path, PHOTOGRAPHS, self.pictures], check=True)

    def process(self, order):
        answer = self.home.velmctl("process", self.home.path / "Orders" / order)
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        return sorted(os.path.relpath(path, self.pictures) for path in answer.stdout.splitlines())

    def assert_shows_upright(self, picture, photograph, frame):
        """The part of the picture (left, top, width, height) is the photograph as ImageMagick sees it upright."""
        left, top, width, height = frame
        part = f"{width}x{height}+{left}+{top}"
        reference = subprocess.run(["convert", "-define", "jpeg:size=1600x1600", str(PHOTOGRAPHS / photograph),
                                    "-auto-orient", "-resize", f"{width}x{height}^", "-gravity", "center", "-extent",
                                    f"{width}x{height}", "-strip", "png:-"], stdout=subprocess.PIPE, check=True)
        compared = subprocess.run(["compare", "-metric", "RMSE", str(self.pictures / picture) + f"[{part}]", "png:-",
                                   "null:"], input=reference.stdout, stderr=subprocess.PIPE, check=False)
        difference = float(compared.stderr.decode().split("(")[1].split(")")[0])
        self.assertLess(difference, 0.02, f"{picture} does not show {photograph}")

    def test_the_holiday_order(self):
        written = self.process("holiday.velm_job")
        folders = [path.split("/")[0] for path in written]
        self.assertEqual({folder: folders.count(folder) for folder in folders},
                         {"Bordered": 1, "Originals": 5, "Pages": 1, "Previews": 1, "Proofs": 5, "Sheets": 1})
        one = {path.split("/")[0]: path for path in written}
        bordered = Picture(self.pictures / one["Bordered"])
        self.assertEqual((bordered.width, bordered.height), (1800, 1200))
        for x, y in ((0.01, 0.5), (0.99, 0.5), (0.5, 0.01), (0.5, 0.99)):
            self.assertTrue(near(bordered.at(x, y), (255, 255, 255), 3), "the border is white")
        preview = Picture(self.pictures / one["Previews"])
        self.assertEqual((preview.width, preview.height), (640, 800))

        # A proof shows all of its photograph, on white, whatever way it is stored.
        for name, width, height in (("House_0001_Morning", 840, 560), ("House_0002_Noon", 840, 630),
                                    ("Lighthouse_0003_Noon", 560, 840), ("Lighthouse_0004_Evening", 630, 840)):
            proof = next(path for path in written if path.startswith(f"Proofs/{name}"))
            self.assert_shows_upright(proof, f"{name}.jpg",
                                      (30 + (840 - width) // 2, 30 + (840 - height) // 2, width, height))
        for path in written:
            if path.startswith("Originals/"):
                name = "_".join(os.path.basename(path).split("_")[:3]) + ".jpg"
                self.assertEqual((self.pictures / path).stat().st_size, (PHOTOGRAPHS / name).stat().st_size)

    def test_the_upright_order_gets_the_upright_package(self):
        bordered = self.process("lighthouse.velm_job")[0]
        picture = Picture(self.pictures / bordered)
        self.assertEqual((picture.width, picture.height), (1200, 1800))
        self.assertTrue(near(picture.at(0.5, 0.01), (255, 255, 255), 3), "a turned photograph has its border too")


if __name__ == "__main__":
    unittest.main()
