"""velmctl dnp: the tables, and packets as they are made and read."""

import json
import struct
import subprocess
import unittest

from support import VELMCTL, CommandLineTest


class Packets(CommandLineTest):
    def dnp(self, *arguments, status=0):
        """What was printed: results, or the diagnostic of a failure."""
        answer = self.home.velmctl("dnp", *arguments)
        self.assertEqual(answer.returncode, status, answer)
        return answer.stderr if status else answer.stdout

    def packet(self, code, *payload):
        path = self.home.path / "packet.bin"
        self.assertEqual(self.dnp("packet", code, *payload, "-o", path), f"{path}\n")
        return path.read_bytes()

    def test_a_job_is_made_and_told_again(self):
        plane = bytearray(b"BM" + struct.pack("<I", 1100) + bytes(1094))
        struct.pack_into("<II", plane, 18, 4, 3)
        struct.pack_into("<II", plane, 38, 11811, 23622)
        self.home.write("Y.bmp", bytes(plane))
        self.home.write("noise", bytes(range(256)))
        stream = (self.packet("CNTRL QTY", "--payload", "0000001\r") + self.packet(25, "--payload-file", "Y.bmp")
                  + self.packet("image mplane", "--payload-file", "noise") + self.packet(31))
        self.home.write("job", stream)
        table = [line.split(maxsplit=3) for line in self.dnp("packets", "job").splitlines()[1:]]
        self.assertEqual(table, [["0", "CNTRL", "QTY", "8  0000001\\r"],
                                 ["40", "IMAGE", "YPLANE", "1100  BMP 4 x 3, 300 x 600 dpi"],
                                 ["1172", "IMAGE", "MPLANE", "256  " + bytes(range(16)).hex(" ") + "..."],
                                 ["1460", "CNTRL", "START"]])
        piped = subprocess.run([VELMCTL, "--home", self.home.path, "dnp", "packets", "-"], input=stream[:1200],
                               capture_output=True, check=False)
        self.assertEqual((piped.returncode, len(piped.stdout.splitlines())), (1, 3), piped)
        self.assertEqual(piped.stderr, b"standard input: byte 1200: the stream ends within a header, after 28 of its 32 bytes\n")

    def test_what_is_wrong_is_refused(self):
        self.assertRegex(self.dnp("packet", "22", "--payload", "1", "-o", "p", status=1),
                         r"CNTRL QTY: incorrect payload size for command code:22 \(.*\); it takes 8 bytes")
        for arguments, words, status in ((("packet", "6", "-o", "p"), "6 is no command", 2),
                                         (("packet", "25", "--payload-file", "none", "-o", "p"), "none: No such", 1),
                                         (("packets", "none"), "none: No such", 1), (("packets", "."), "directory", 1),
                                         (("packets", "empty"), "empty: holds no packet", 1)):
            with self.subTest(arguments):
                self.home.write("empty", "")
                self.assertIn(words, self.dnp(*arguments, status=status))
        self.assertFalse((self.home.path / "p").exists())

    def test_the_table_is_the_same_in_both_forms(self):
        document = json.loads(self.dnp("table", "--json"))
        media, multicuts = (block.splitlines()[1:] for block in self.dnp("table").split("\n\n"))
        self.assertEqual([line.split(maxsplit=3) for line in media],
                         [[str(row["code"]), row["name"], str(row["defaultMulticut"]), " ".join(map(str, row["multicuts"]))]
                          for row in document["media"]])
        self.assertEqual(len(multicuts), sum(len(row["frames"]) for row in document["multicuts"]))


if __name__ == "__main__":
    unittest.main()
