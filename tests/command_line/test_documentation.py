"""The examples of the documents do what the documents say."""

import re
import shlex
import unittest

from support import SOURCE, CommandLineTest, Picture, photograph


class Formats(CommandLineTest):
    def setUp(self):
        super().setUp()
        text = (SOURCE / "docs/formats.md").read_text()
        self.files = dict(re.findall(r"File `([^`]+)`[^`]*(?:`[^`]+`[^`]*)*?\n\n?```xml\n(.*?)```", text, re.DOTALL))
        self.photo = photograph(self.home.path / "photo.jpg", 600, 400)
        for name, content in self.files.items():
            if name.split("/")[0] in ("Templates", "Packages", "Nodes"):
                self.home.write("VELM/" + name, content)
            else:
                self.home.write(name, content)
            if name.endswith("/job.xml"):
                photograph(self.home.path / name.split("/")[0] / "Images/photo.jpg", 600, 400)

    def process(self, order):
        answer = self.home.velmctl("process", order)
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        return answer.stdout.splitlines()

    def test_all_examples_are_found(self):
        self.assertEqual(sorted(name for name in self.files if name.endswith("job.xml") or "/" not in name),
                         ["first.velm_job/job.xml", "inline.velm_job/job.xml", "sorrel.xml",
                          "stamped.velm_job/job.xml", "twoup.velm_job/job.xml"])

    def test_first_order(self):
        written = self.process("first.velm_job")
        self.assertEqual(len(written), 1)
        self.assertRegex(written[0], rf"^{self.home.path}/Desktop/PrintToFileOutputs/Unknown/photo_.*\.jpeg$")
        picture = Picture(written[0])
        self.assertEqual((picture.width, picture.height), (600, 400))

    def test_inline_package(self):
        picture = Picture(self.process("inline.velm_job")[0])
        self.assertEqual((picture.width, picture.height), (300, 300))

    def test_ticket_of_sorrel(self):
        self.home.velmctl("defaults", "write", "/", "--suite", "com.apple.java.util.prefs",
                          f"<dict><key>Sorrel/</key><dict><key>searchfolder</key><string>{self.home.path}</string>"
                          "</dict></dict>")
        self.assertEqual(len(self.process("sorrel.xml")), 1)

    def test_sheet_and_originals(self):
        written = self.process("twoup.velm_job")
        sheet = next(path for path in written if "/sheets/" in path)
        picture = Picture(sheet)
        self.assertEqual(max(picture.width, picture.height), 400)
        original = next(path for path in written if "/originals/" in path)
        picture = Picture(original)
        self.assertEqual((picture.width, picture.height), (600, 400))

    def test_stamps(self):
        picture = Picture(self.process("stamped.velm_job")[0])
        self.assertEqual((picture.width, picture.height), (800, 600))

    def test_render(self):
        answer = self.home.velmctl("render", "Stamped.xml", "--image", "photo.jpg", "-o", "page.png")
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))


class Pictures(CommandLineTest):
    text = (SOURCE / "docs/pictures.md").read_text()

    def test_examples(self):
        photograph(self.home.path / "photo.jpg", 1800, 1200, 6)
        examples = re.findall(r"^velmctl (.*?)(?: *# prints (.*))?$", self.text, re.MULTILINE)
        self.assertGreater(len(examples), 10)
        for arguments, printed in examples:
            with self.subTest(arguments):
                answer = self.home.velmctl(*shlex.split(arguments))
                self.assertEqual((answer.returncode, answer.stderr), (0, ""))
                if printed:
                    self.assertEqual(answer.stdout.removeprefix(f"{self.home.path}/"), printed + "\n")

    def test_table_of_formats_names_what_can_be_written(self):
        rows = [[cell.strip() for cell in line.split("|")[1:-1]] for line in self.text.splitlines()]
        written = [extension for row in rows if len(row) == 6 and row[3] and row[1].islower()
                   for extension in row[1].split(", ")]
        refused = self.home.velmctl("image", "convert", "photo.jpg", "out.xyz").stderr
        self.assertEqual(sorted(re.search(r"\((.*?)\)", refused)[1].split(", ")), sorted(written))


if __name__ == "__main__":
    unittest.main()
