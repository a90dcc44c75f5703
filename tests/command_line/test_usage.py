"""The command line itself: help, version, exit status, what goes where."""

import os
import pty
import subprocess
import unittest

from support import VELMCTL, CommandLineTest, ticket


class Usage(CommandLineTest):
    def test_help_and_version_explain_themselves(self):
        for arguments in (["--help"], ["process", "--help"], ["watch", "--help"], ["init", "--help"],
                          ["render", "--help"], ["defaults", "--help"], ["defaults", "write", "--help"],
                          ["image", "--help"], ["image", "convert", "--help"], ["template", "format", "--help"],
                          ["order", "show", "--help"], ["code", "make", "aztec", "--help"]):
            with self.subTest(arguments):
                answer = self.home.velmctl(*arguments)
                self.assertEqual((answer.returncode, answer.stderr), (0, ""))
                self.assertIn("Usage", answer.stdout)
        self.assertRegex(self.home.velmctl("--version").stdout, r"^velmctl \d+\.\d+\.\d+\n$")
        self.assertFalse((self.home.path / "Logs").exists(), "asking for help touches nothing")

    def test_wrong_usage_ends_with_2_and_says_why(self):
        for arguments, words in (([], "required"), (["process"], "ORDER"), (["fly"], "fly"),
                                 (["watch", "--slowly"], "slowly"), (["render", "a.xml"], "output"),
                                 (["render", "a.xml", "-o", "a.bmp"], "a.bmp"),
                                 (["render", "a.xml", "-o", "a.png", "--scale", "nan"], "scale"),
                                 (["template", "format", "a.xml", "-o", ""], "output"),
                                 (["defaults"], "required"), (["template", "check"], "FILE"), (["order", "check"], "ORDER"),
                                 (["defaults", "write", "key"], "VALUE")):
            with self.subTest(arguments):
                answer = self.home.velmctl(*arguments)
                self.assertEqual((answer.returncode, answer.stdout), (2, ""))
                self.assertIn(words, answer.stderr)

    def test_results_that_cannot_be_written_are_a_failure(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            answer = subprocess.run([VELMCTL, "--home", str(self.home.path), "init"], stdout=full,
                                    stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual((answer.returncode, answer.stderr.count("\n")), (1, 1), answer.stderr)

    def test_verbose_shows_the_log_on_standard_error(self):
        order = self.home.bundle("order")
        answer = self.home.velmctl("--verbose", "process", order)
        self.assertEqual(answer.returncode, 0)
        self.assertIn('Package "Simple" render commencing', answer.stderr)
        self.assertIn('Package "Simple" render commencing', self.home.log())

    def test_progress_is_shown_on_a_terminal_and_not_in_a_pipe(self):
        order = self.home.bundle("order")
        piped = self.home.velmctl("process", order)
        self.assertEqual((piped.returncode, piped.stderr), (0, ""))

        ours, theirs = pty.openpty()
        try:
            process = subprocess.Popen([VELMCTL, "--home", str(self.home.path), "process", str(order)],
                                       stdout=subprocess.PIPE, stderr=theirs, text=True)
            os.close(theirs)
            shown = b""
            while True:
                try:
                    piece = os.read(ours, 4096)
                except OSError:  # the terminal's other end is closed
                    break
                if not piece:
                    break
                shown += piece
            results = process.communicate()[0]
        finally:
            os.close(ours)
        self.assertEqual(process.returncode, 0)
        self.assertRegex(shown, rb"order: \d+ %")
        self.assertEqual(len(results.splitlines()), 1, "the results stay free of it")


class InitAndDefaults(CommandLineTest):
    def test_init_makes_all_folders_and_prints_where_they_are(self):
        for _ in range(2):  # a second time it finds them all
            answer = self.home.velmctl("init")
            self.assertEqual((answer.returncode, answer.stderr), (0, ""))
            places = {line[:20].strip(): line[20:] for line in answer.stdout.splitlines()}
            tree = self.home.path / "VELM"
            for name, folder in (("VELM", tree), ("Templates", tree / "Templates"), ("Nodes", tree / "Nodes"),
                                 ("Packages", tree / "Packages"), ("Graphics", tree / "Graphics"),
                                 ("JobsCompleted", tree / "Jobs/Completed"), ("JobsFailed", tree / "Jobs/Failed"),
                                 ("JobsPending", tree / "Jobs/Pending"),
                                 ("watched (xml)", self.home.path / "Sorrel/Prints")):
                self.assertEqual(places.get(name), str(folder))
                self.assertTrue(folder.is_dir(), folder)
            self.assertTrue(places["watched (velm_job)"].endswith("/Jobs/Pending"))
            self.assertTrue(os.path.isdir(places["watched (velm_job)"]))
        self.assertIn(str(tree / "Packages"), self.home.velmctl("defaults", "read", "key_velmFolderPackages").stdout)

    def test_init_says_which_folder_cannot_be_made(self):
        self.home.write("VELM/Jobs", "a file in the folder's place")
        answer = self.home.velmctl("init")
        self.assertEqual(answer.returncode, 1)
        self.assertIn(str(self.home.path / "VELM/Jobs"), answer.stderr)

    def test_init_runs_no_order_that_waits(self):
        self.home.velmctl("defaults", "write", "velmProcessorIsRunning", "yes")
        places = dict(line.split(" /", 1) for line in self.home.velmctl("init").stdout.splitlines())
        watched = next("/" + place for name, place in places.items() if name.startswith("watched (velm_job)"))
        order = self.home.bundle("order")
        order.rename(os.path.join(watched, order.name))
        self.assertEqual(self.home.velmctl("init").returncode, 0)
        self.assertTrue(os.path.isdir(os.path.join(watched, order.name)))
        self.assertEqual(self.home.products(), [])

    def test_defaults_keep_what_was_written_in_its_kind(self):
        for value, shown in (("yes", "1"), ("no", "0"), ("42", "42"), ("-2.5", "-2.5"), ("a text", "a text"),
                             ("<array><string>x</string><integer>3</integer></array>", None)):
            with self.subTest(value):
                wrote = self.home.velmctl("defaults", "write", "aKey", "--", value)
                self.assertEqual((wrote.returncode, wrote.stdout, wrote.stderr), (0, "", ""))
                answer = self.home.velmctl("defaults", "read", "aKey")
                self.assertEqual(answer.returncode, 0)
                if shown is not None:
                    self.assertEqual(answer.stdout, shown + "\n")
                else:
                    self.assertIn("x", answer.stdout)
        self.assertIn("aKey = ", self.home.velmctl("defaults", "read").stdout)

        self.assertEqual(self.home.velmctl("defaults", "delete", "aKey").returncode, 0)
        missing = self.home.velmctl("defaults", "read", "aKey")
        self.assertEqual((missing.returncode, missing.stdout), (1, ""))
        self.assertIn("aKey", missing.stderr)

    def test_defaults_of_another_suite_stand_apart(self):
        self.home.velmctl("defaults", "write", "aKey", "theirs", "--suite", "another.suite")
        self.assertEqual(self.home.velmctl("defaults", "read", "aKey").returncode, 1)
        answer = self.home.velmctl("defaults", "read", "aKey", "--suite", "another.suite")
        self.assertEqual(answer.stdout, "theirs\n")
        self.assertTrue((self.home.path / "Settings/another.suite.plist").is_file())

    def test_defaults_report_what_cannot_be_stored(self):
        broken = self.home.velmctl("defaults", "write", "aKey", "<dict><key>cut off")
        self.assertEqual(broken.returncode, 1)
        self.assertNotEqual(broken.stderr, "")
        self.assertEqual(self.home.velmctl("defaults", "read", "aKey").returncode, 1)


class Render(CommandLineTest):
    def test_a_template_becomes_a_picture_of_the_kind_of_its_extension(self):
        from support import Picture, photograph
        photo = photograph(self.home.path / "photo.jpg")
        for name, magic in (("out.png", b"\x89PNG"), ("out.jpg", b"\xff\xd8"), ("OUT.JPEG", b"\xff\xd8"),
                            ("out.tif", b"II"), ("out.pdf", b"%PDF")):
            with self.subTest(name):
                target = self.home.path / name
                answer = self.home.velmctl("render", "Simple.xml", "--image", photo, "-o", name)
                self.assertEqual((answer.returncode, answer.stdout, answer.stderr), (0, f"{target}\n", ""))
                self.assertTrue(target.read_bytes().startswith(magic))
                self.assert_upright(target)
        self.home.velmctl("render", "Simple.xml", "--image", photo, "--scale", "2", "-o", "large.png")
        large = Picture(self.home.path / "large.png")
        self.assertEqual((large.width, large.height), (180, 120))

    def test_an_order_fills_the_template(self):
        order = self.home.bundle("order")
        self.assertEqual(self.home.velmctl("render", "Simple.xml", "--order", order, "-o", "out.png").returncode, 0)
        self.assert_upright(self.home.path / "out.png")

    def test_what_cannot_be_rendered_leaves_no_file(self):
        self.home.write("VELM/Templates/Empty.xml",
                        '<data type="VELM_Template" version="1.0"><layout size="{0, 0}"/></data>')
        bad = self.home.bundle("bad", ticket(image="broken.jpg"), images=())
        (bad / "Images").mkdir()
        (bad / "Images/broken.jpg").write_bytes(b"\xff\xd8\xff\xe0 no picture")
        for arguments, words in ((["Nowhere.xml"], "Nowhere.xml"), (["Empty.xml"], "Empty.xml"),
                                 (["Simple.xml", "--order", bad], "broken.jpg")):
            with self.subTest(words):
                answer = self.home.velmctl("render", *arguments, "-o", "out.png")
                self.assertEqual((answer.returncode, answer.stdout), (1, ""))
                self.assertIn(words, answer.stderr)
                self.assertFalse((self.home.path / "out.png").exists())


if __name__ == "__main__":
    unittest.main()
