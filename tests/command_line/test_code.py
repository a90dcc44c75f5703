"""velmctl code: what it makes, judged by zbar and ImageMagick, and what it reads."""

import unittest

from support import CommandLineTest, Picture, photograph, run

PRINTABLE = "".join(map(chr, range(32, 127)))


class Codes(CommandLineTest):
    def code(self, *arguments, status=0):
        answer = self.home.velmctl("code", *arguments)
        self.assertEqual((answer.returncode, answer.stderr if status == 0 else answer.stdout), (status, ""), answer)
        return answer.stderr if status else answer.stdout

    def make(self, kind, message, name="code.png", *options):
        """The path as it was printed."""
        return self.code("make", kind, "-o", name, *options, "--", message).rstrip("\n")

    def modules(self, path):
        """Width and height in modules, and the modules' grey values by rows; every module must be 16 pixels wide."""
        small = run("convert", path, "-sample", "6.25%", "-depth", "8", "gray:-")
        self.assertEqual(run("convert", path, "-depth", "8", "gray:-"),
                         run("convert", path, "-sample", "6.25%", "-sample", "1600%", "-depth", "8", "gray:-"))
        picture = Picture(path)
        self.assertEqual((picture.width % 16, picture.height % 16), (0, 0))
        self.assertEqual(set(small), {0, 255})
        return picture.width // 16, picture.height // 16, small

    def test_each_kind_is_read_again(self):
        for kind, judge in (("aztec", False), ("qrcode", True), ("code128", True), ("pdf417", False)):
            for message in ("7", PRINTABLE[:48], PRINTABLE[48:], "read", "--help", "1234567890" * 6):
                with self.subTest(kind, message=message):
                    path = self.make(kind, message)
                    self.assertEqual(path, str(self.home.path / "code.png"))
                    self.assertEqual(self.code("read", path), message + "\n")
                    self.modules(path)
                    if judge:
                        self.assertEqual(run("zbarimg", "-q", "--nodbus", "--raw", path).decode(), message + "\n")

    def test_options_have_their_effect_and_their_limits(self):
        def size(kind, *options):
            return self.modules(self.make(kind, "a message of some length", "code.png", *options))[:2]
        self.assertEqual(size("qrcode"), size("qrcode", "--level", "1"))
        weak_to_strong = [size("qrcode", "--level", level)[0] for level in (0, 1, 3, 2)]
        self.assertEqual(weak_to_strong, sorted(weak_to_strong))
        self.assertLess(weak_to_strong[0], weak_to_strong[3])
        self.assertLess(size("aztec", "--level", "5"), size("aztec", "--level", "95"))
        self.assertLess(*(width * height for width, height in (size("pdf417", "--level", "0"),
                                                               size("pdf417", "--level", "8"))))
        self.assertEqual([size("code128", "--quiet", quiet)[0] - size("code128", "--quiet", "0")[0]
                          for quiet in (7, 20)], [14, 40])
        self.assertEqual(size("code128"), size("code128", "--quiet", "7"))

        for kind, option, numbers in (("aztec", "--level", ("4", "96", "x")), ("qrcode", "--level", ("-1", "4", "L")),
                                      ("code128", "--quiet", ("-1", "21")), ("pdf417", "--level", ("-1", "9")),
                                      ("code128", "--level", ("3",)), ("qrcode", "--quiet", ("3",))):
            for number in numbers:
                with self.subTest(kind, option=option, number=number):
                    line = self.code("make", kind, "a", "-o", "bad.png", f"{option}={number}", status=2)
                    self.assertIn(option, line)
        self.assertFalse((self.home.path / "bad.png").exists())

    def test_what_no_code_can_hold_leaves_no_file(self):
        for kind in ("aztec", "qrcode", "code128", "pdf417"):
            for message, words in (("", "empty"), ("größer", "ASCII"), ("a" * 5000, "")):
                with self.subTest(kind, message=message[:9]):
                    line = self.code("make", kind, message, "-o", "bad.png", status=1)
                    self.assertIn(words, line)
                    self.assertEqual(line.count("\n"), 1, line)
                    self.assertFalse((self.home.path / "bad.png").exists())
        self.assertIn("a.gif", self.code("make", "qrcode", "a", "-o", "a.gif", status=2))
        self.assertEqual(self.code("make", "qrcode", "a", "-o", "/proc/a.png", status=1).count("\n"), 1)

    def test_each_message_is_one_line(self):
        path = self.make("qrcode", "a\nb\tc\\n\x1d")
        self.assertEqual(self.code("read", path), "a\\nb\\tc\\n\\x1d\n")
        self.assertEqual(run("zbarimg", "-q", "--nodbus", "--raw", path).decode(), "a\nb\tc\\n\x1d\n")
        pieces = [self.make("qrcode", "above", "1.png"), self.make("code128", "below", "2.png")]
        run("convert", *pieces, "-strip", "-bordercolor", "white", "-border", "50", "-append",
            str(self.home.path / "both.png"))
        self.assertEqual(self.code("read", "both.png"), "above\nbelow\n")

    def test_pictures_without_a_code(self):
        photograph(self.home.path / "photo.jpg")
        self.home.write("rubbish.png", "no picture")
        for name in ("photo.jpg", "rubbish.png", "missing.png", "."):
            with self.subTest(name):
                line = self.code("read", name, status=1)
                self.assertEqual(line.count("\n"), 1, line)
                self.assertIn(name.rstrip("."), line)


if __name__ == "__main__":
    unittest.main()
