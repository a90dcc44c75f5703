"""velmctl package: the packages of a folder, and what in it is none."""

import json
import os
import socket
import unittest

from support import CommandLineTest, simple_package


class List(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.folder = self.home.path / "Mixed"

    def package(self, file, attributes, children=""):
        return self.home.write(f"Mixed/{file}", f'<data type="VELM_Package" version="1.0" {attributes}>{children}</data>')

    def list(self, *arguments):
        return self.home.velmctl("package", "list", *arguments)

    def test_lists_the_tree_of_the_home(self):
        self.home.write("VELM/Packages/deep/Other.txt", simple_package("OtherPRT", "/nowhere"))
        done = self.list()
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual([line.split() for line in done.stdout.splitlines()],
                         [["OtherPRT", "-", "PRT", str(self.home.path / "VELM/Packages/deep/Other.txt")],
                          ["Simple", "-", "-", str(self.home.path / "VELM/Packages/Simple.xml")]])

    def test_tells_packages_from_what_is_none(self):
        lines_of_package = {
            self.package("b.xml", 'name="beach" plucode="100LS"'): ["beach", "100LS", "LS"],
            self.package("a.xml", 'name="Alps"', "<name>alps\n2PRT</name>"): ["alps\n2PRT", None, "PRT"],
            self.package("c.xml", "", "<plucode>LS</plucode><template><filepath>none.xml</filepath></template>"):
                [None, "LS", None],
            self.package("sub/d.xml", 'name="Beach2" plucode="100ls"'): ["Beach2", "100ls", "LS"],
        }
        problems = {
            self.home.write("Mixed/empty.xml", ""): "the file is empty",
            self.home.write("Mixed/photo.jpg", b"\xff\xd8\xff\xe0 no text"): "neither UTF-8 nor UTF-16",
            self.home.write("Mixed/nameless.xml", "<data/>"): "neither product code nor name",
            self.home.write("Mixed/template.xml", '<data type="VELM_Template"/>'): "incorrect file type VELM_Template",
            self.home.write("Mixed/new.xml", '<data name="N" version="2.0"/>'): "version too new 2.0",
            self.home.write("Mixed/huge.xml", ""): "larger than",
            self.folder / "pipe": "not a regular file",
            self.folder / "socket": "not a regular file",
            self.folder / "loop": "not a regular file",
        }
        os.truncate(self.folder / "huge.xml", 80 << 20)
        os.mkfifo(self.folder / "pipe")
        os.symlink(".", self.folder / "loop")
        with socket.socket(socket.AF_UNIX) as listening:
            listening.bind(os.path.relpath(self.folder / "socket"))
        done = self.list(self.folder, "--json")
        self.assertEqual(done.returncode, 0)
        expected = {str(path): values for path, values in lines_of_package.items()}
        listed = json.loads(done.stdout)
        self.assertEqual({one["file"]: [one["name"], one["productCode"], one["orientation"]] for one in listed},
                         expected)
        names = [(one["name"] or one["productCode"]).lower() for one in listed]
        self.assertEqual(names, sorted(names))
        diagnostics = done.stderr.splitlines()
        for path, reason in problems.items():
            self.assertTrue(any(line.startswith(f"{path}: ") and reason in line for line in diagnostics),
                            (path, diagnostics))
        self.assertIn(f"2 files go by the name 100LS: {self.folder}/b.xml, {self.folder}/sub/d.xml", diagnostics)
        self.assertEqual(len(diagnostics), len(problems) + 1)

    def test_says_why_a_folder_cannot_be_listed(self):
        for folder, reason in ((self.home.path / "nowhere", "No such file"),
                               (self.home.path / "VELM/Packages/Simple.xml", "Not a directory")):
            done = self.list(folder)
            self.assertEqual((done.returncode, done.stdout), (1, ""))
            self.assertTrue(done.stderr.startswith(f"FAILED {folder}: ") and reason in done.stderr, done.stderr)


if __name__ == "__main__":
    unittest.main()
