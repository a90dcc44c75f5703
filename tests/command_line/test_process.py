"""velmctl process: good orders and bad ones."""

import os
import unittest

from support import CommandLineTest, photograph, simple_package, simple_template, ticket


class Process(CommandLineTest):
    def process(self, *orders):
        return self.home.velmctl("process", *orders)

    def assert_failed(self, answer, order, *words):
        """One clear line, status 1, and no product."""
        self.assertEqual(answer.returncode, 1)
        self.assertEqual(answer.stdout, "")
        self.assertEqual(len(answer.stderr.splitlines()), 1, answer.stderr)
        self.assertTrue(answer.stderr.startswith(f"FAILED {order}: "), answer.stderr)
        for word in words:
            self.assertIn(word, answer.stderr)
        self.assertEqual(self.home.products(), [])


class GoodOrders(Process):
    def test_prints_the_path_of_each_file_and_leaves_the_order(self):
        order = self.home.bundle("order")
        before = sorted(path.name for path in order.rglob("*"))
        answer = self.process(order)
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        self.assertEqual(answer.stdout.splitlines(), [str(path) for path in self.home.products()])
        self.assertRegex(self.home.products()[0].name, r"^photo_\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d\.\d{3}\.jpeg$")
        self.assert_upright(self.home.products()[0])
        self.assertEqual(sorted(path.name for path in order.rglob("*")), before)

    def test_each_image_of_an_order_and_the_originals(self):
        self.home.write("VELM/Packages/All.xml", simple_package("All", self.home.output / "proofs", more="<allimages/>")
                        .replace("</data>", '<output><allimages/><destination type="filepath"><filepath>'
                                 f"{self.home.output / 'originals'}</filepath><filename>originalimagename</filename>"
                                 "<saveoriginalfileasis>yes</saveoriginalfileasis></destination></output></data>"))
        order = self.home.bundle("order", ticket("All", "a.jpg", "<allimages><i>a.jpg</i><i>b.jpg</i></allimages>"),
                                 images=("a.jpg", "b.jpg"))
        answer = self.process(order)
        self.assertEqual(answer.returncode, 0, answer.stderr)
        names = sorted(os.path.relpath(line, self.home.output).split("_")[0] for line in answer.stdout.splitlines())
        self.assertEqual(names, ["originals/a", "originals/b", "proofs/a", "proofs/b"])
        for original in (self.home.output / "originals").iterdir():
            source = order / "Images" / (original.name.split("_")[0] + ".jpg")
            self.assertEqual(scan_data(original), scan_data(source), "an original is copied, not encoded again")

    def test_a_native_ticket_and_a_ticket_of_sorrel_stand_alone(self):
        photo = photograph(self.home.path / "elsewhere/photo.jpg")
        native = self.home.write("native.xml", ticket(image=str(photo)))
        answer = self.process(native)
        self.assertEqual((answer.returncode, len(answer.stdout.splitlines())), (0, 1), answer.stderr)
        self.home.velmctl("defaults", "write", "/", "--suite", "com.apple.java.util.prefs",
                          f"<dict><key>Sorrel/</key><dict><key>searchfolder</key><string>{photo.parent}</string>"
                          "</dict></dict>")
        foreign = self.home.write("foreign.xml",
                                  "<print><plucode>Simple</plucode><imagepath>photo.jpg</imagepath></print>")
        answer = self.process(foreign)
        self.assertEqual((answer.returncode, len(answer.stdout.splitlines())), (0, 1), answer.stderr)
        self.assert_upright(answer.stdout.strip())

    def test_tickets_of_any_encoding(self):
        for encoding in ("utf-8", "utf-8-sig", "utf-16", "utf-16-le", "utf-16-be"):
            with self.subTest(encoding):
                order = self.home.bundle(encoding)
                (order / "job.xml").write_bytes(ticket(more="<note>ƒoto</note>").encode(encoding))
                answer = self.process(order)
                self.assertEqual(answer.returncode, 0, answer.stderr)

    def test_a_good_order_after_a_bad_one_runs(self):
        bad = self.home.bundle("bad", ticket("Nowhere"))
        good = self.home.bundle("good")
        answer = self.process(bad, good)
        self.assertEqual(answer.returncode, 1)
        self.assertEqual(len(answer.stdout.splitlines()), 1)
        self.assertIn(f"FAILED {bad}: could not find package with name Nowhere", answer.stderr)
        self.assertNotIn("good.velm_job", answer.stderr)


class BadTickets(Process):
    def test_each_is_refused_with_its_reason(self):
        whole = ticket()
        cases = {
            "empty": ("", []),
            "cut-off": (whole[:60], []),
            "rubbish": ("\x00\x01\x02 no ticket", []),
            "too-new": (whole.replace('version="1.0"', 'version="2.0"'), ["file version too new 2"]),
            "too-old": (whole.replace('version="1.0"', 'version="0.9"'), ["file version too old 0.9"]),
            "foreign-without-code": ("<print><imagepath>a.jpg</imagepath></print>",
                                     ["Error parsing job; no plucode"]),
            "foreign-without-image": ("<print><plucode>Simple</plucode></print>",
                                      ["Error parsing job; no imagepath"]),
            "no-package": ('<data type="VELM_Job" version="1.0"/>', ["no package"]),
            "missing-package": (ticket("Nowhere"), ["could not find package with name Nowhere"]),
            "entity-bomb": ('<!DOCTYPE d [<!ENTITY a "aaaaaaaaaa">' +
                            "".join(f'<!ENTITY {chr(98 + i)} "{("&" + chr(97 + i) + ";") * 10}">' for i in range(9)) +
                            ']><data type="VELM_Job" version="1.0"><package name="&j;"/></data>', []),
        }
        for name, (content, words) in cases.items():
            with self.subTest(name):
                order = self.home.bundle(name, content)
                self.assert_failed(self.process(order), order, *words)

    def test_what_is_no_order_at_all(self):
        missing = self.home.path / "missing.velm_job"
        self.assert_failed(self.process(missing), missing)
        empty = self.home.path / "empty.velm_job"
        empty.mkdir()
        self.assert_failed(self.process(empty), empty)
        picture = photograph(self.home.path / "picture.jpg")
        self.assert_failed(self.process(picture), picture)


class BadPhotographs(Process):
    def order_with(self, content, name="bad.jpg"):
        order = self.home.bundle(name.replace(".", "-"), ticket(image=name), images=())
        (order / "Images").mkdir()
        (order / "Images" / name).write_bytes(content)
        return order

    def test_each_fails_the_order_and_makes_no_product(self):
        good = photograph(self.home.path / "good.jpg", 900, 600).read_bytes()
        scan = good.rindex(b"\xff\xda")
        cases = {
            "empty.jpg": b"",
            "garbage.jpg": b"this is no photograph" * 100,
            "header-only.jpg": good[:scan],
            "cut-off.jpg": good[:scan + (len(good) - scan) // 3],
            "huge.jpg": with_jpeg_size(good, 60000, 60000),
            "huge.png": png_header(60000, 60000),
        }
        for name, content in cases.items():
            with self.subTest(name):
                order = self.order_with(content, name)
                self.assert_failed(self.process(order), order, name)


class BadSurroundings(Process):
    def test_a_template_that_includes_itself(self):
        self.home.write("VELM/Nodes/Loop.xml", '<data type="VELM_Template" version="1.0"><node size="{90, 60}">'
                        '<layer type="node" frame="{{0, 0}, {90, 60}}"><filepath>Loop.xml</filepath></layer>'
                        "</node></data>")
        self.home.write("VELM/Templates/Simple.xml", simple_template(
            extra='<layer type="node" frame="{{0, 0}, {90, 60}}"><filepath>Loop.xml</filepath></layer>'))
        order = self.home.bundle("order")
        self.assert_failed(self.process(order), order, "Loop.xml")

    def test_an_output_folder_that_cannot_be_written(self):
        # A file in the folder's place keeps even root from writing there.
        self.home.write("occupied", "a file")
        self.home.write("VELM/Packages/Simple.xml", simple_package("Simple", self.home.path / "occupied/inner"))
        order = self.home.bundle("order")
        self.assert_failed(self.process(order), order, "occupied")


def scan_data(path):
    """What stands from the scan's start on: the compressed picture."""
    data = path.read_bytes()
    return data[data.rindex(b"\xff\xda"):]


def with_jpeg_size(data, width, height):
    start = data.index(b"\xff\xc0")
    return data[:start + 5] + height.to_bytes(2, "big") + width.to_bytes(2, "big") + data[start + 9:]


def png_header(width, height):
    import zlib
    body = b"IHDR" + width.to_bytes(4, "big") + height.to_bytes(4, "big") + bytes([8, 2, 0, 0, 0])
    return b"\x89PNG\r\n\x1a\n" + (13).to_bytes(4, "big") + body + zlib.crc32(body).to_bytes(4, "big")


if __name__ == "__main__":
    unittest.main()
