"""The examples of the documents do what the documents say."""

import re
import shlex
import unittest

from support import SOURCE, CommandLineTest, Picture, photograph


DOCUMENTS = {name: (SOURCE / "docs" / f"{name}.md").read_text()
             for name in ("formats", "templates", "pictures", "operating", "printing")}


class DocumentationTest(CommandLineTest):
    def write_files(self, size):
        """The files of the examples, and a photograph beside each ticket and in the home folder."""
        text = DOCUMENTS["formats"] + DOCUMENTS["templates"] + DOCUMENTS["printing"]
        files = re.findall(r"File `([^`]+)`[^`]*(?:`[^`]+`[^`]*)*?\n\n?```xml\n(.*?)```", text, re.DOTALL)
        photograph(self.home.path / "photo.jpg", *size)
        for name, content in files:
            if name.split("/")[0] in ("Templates", "Packages", "Nodes"):
                self.home.write("VELM/" + name, content)
            else:
                self.home.write(name, content)
            if name.endswith("/job.xml"):
                photograph(self.home.path / name.split("/")[0] / "Images/photo.jpg", *size)

    def run_examples(self, document, least):
        examples = re.findall(r"^velmctl (.*?)(?: *# prints (.*))?$", DOCUMENTS[document], re.MULTILINE)
        self.assertGreaterEqual(len(examples), least)
        for arguments, printed in examples:
            with self.subTest(arguments):
                answer = self.home.velmctl(*shlex.split(arguments))
                self.assertEqual((answer.returncode, answer.stderr), (0, ""))
                if printed:
                    self.assertEqual(answer.stdout.removeprefix(f"{self.home.path}/"), printed + "\n")


class Formats(DocumentationTest):
    def setUp(self):
        super().setUp()
        self.write_files((600, 400))
        # Pictures are found where the document says, not by where velmctl was started.
        self.home.write("Photographs/photo.jpg", (self.home.path / "photo.jpg").read_bytes())
        (self.home.path / "photo.jpg").unlink()

    def process(self, order):
        self.assertEqual(self.home.velmctl("order", "check", order).stdout, f"{order}: no findings\n")
        answer = self.home.velmctl("process", order)
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        return answer.stdout.splitlines()

    def test_orders_give_pictures_of_these_sizes(self):
        for order, folder, size in (("first.velm_job", "/Desktop/PrintToFileOutputs/Unknown/photo_", (600, 400)),
                                    ("inline.velm_job", "/", (300, 300)), ("stamped.velm_job", "/", (800, 600)),
                                    ("twoup.velm_job", "/originals/", (600, 400))):
            with self.subTest(order):
                written = self.process(order)
                picture = Picture(next(path for path in written if folder in path and path.endswith("g")))
                self.assertEqual((picture.width, picture.height), size)
        sheet = Picture(next(path for path in written if "/sheets/" in path))
        self.assertEqual(max(sheet.width, sheet.height), 400)

    def test_ticket_of_sorrel(self):
        self.home.velmctl("defaults", "write", "/", "--suite", "com.apple.java.util.prefs",
                          f"<dict><key>Sorrel/</key><dict><key>searchfolder</key><string>{self.home.path}/Photographs</string>"
                          "</dict></dict>")
        self.assertEqual(len(self.process("sorrel.xml")), 1)


class Templates(DocumentationTest):
    def test_examples(self):
        self.write_files((600, 400))
        self.run_examples("templates", 6)


class Operating(DocumentationTest):
    def test_examples(self):
        self.write_files((600, 400))
        self.home.velmctl("init")
        self.run_examples("operating", 16)


class Printing(DocumentationTest):
    def test_examples(self):
        self.write_files((600, 400))
        self.run_examples("printing", 18)


class Pictures(DocumentationTest):
    def test_examples(self):
        photograph(self.home.path / "photo.jpg", 1800, 1200, 6)
        self.run_examples("pictures", 11)

    def test_table_of_formats_names_what_can_be_written(self):
        rows = [[cell.strip() for cell in line.split("|")[1:-1]] for line in DOCUMENTS["pictures"].splitlines()]
        written = [extension for row in rows if len(row) == 6 and row[3] and row[1].islower()
                   for extension in row[1].split(", ")]
        refused = self.home.velmctl("image", "convert", "photo.jpg", "out.xyz").stderr
        self.assertEqual(sorted(re.search(r"\((.*?)\)", refused)[1].split(", ")), sorted(written))


if __name__ == "__main__":
    unittest.main()
