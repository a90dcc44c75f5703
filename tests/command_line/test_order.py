"""velmctl order show and check: judged by Python's own reading of the ticket, and by what a run then writes."""

import json
import os
import pathlib
import re
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree

from support import SOURCE, VELMCTL, CommandLineTest, photograph, simple_package, simple_template, ticket

PHOTOGRAPHS = pathlib.Path(os.environ.get("VELM_PHOTOGRAPHS", ""))
CAPTION = ('<layer type="textbox" frame="{{0, 0}, {90, 12}}"><key>caption</key><string>none</string>'
           '<font size="8">DejaVu Sans</font></layer>')
TABLES = {"filepath": "key", "croprect": "croprect", "rotation": "rotation", "template": "template"}


class OrderTest(CommandLineTest):
    def order(self, *arguments, status=0):
        answer = self.home.velmctl("order", *arguments)
        self.assertEqual(answer.returncode, status, answer)
        self.assertNotRegex(answer.stdout + answer.stderr, "[\x00-\x09\x0b-\x1f\x7f]", "a terminal would obey it")
        return answer

    def show(self, path):
        return json.loads(self.order("show", path, "--json").stdout)

    def check(self, path):
        """The findings as (file, line, sentence)."""
        printed = self.home.velmctl("order", "check", path)
        lines = printed.stdout.splitlines()
        self.assertEqual(printed.stderr, "")
        if lines == [f"{path}: no findings"]:
            self.assertEqual(printed.returncode, 0)
            return []
        self.assertEqual(printed.returncode, 1)
        return [(name, int(line), sentence) for name, line, sentence in
                (re.fullmatch(r"(.*?):(\d+): (.*)", each).groups() for each in lines)]


def slots_of(element):
    """The tables that the children of a ticket's element give, by the rules of the two forms."""
    values = {}
    for child in element:
        if child.tag in ("package", "allimages"):
            continue
        values.setdefault("key", {})
        long = len(child) > 1 or (len(child) == 1 and ((child.text or "") + (child[0].tail or "")))
        if not long:
            values["key"][child.tag] = "".join(child.itertext())
            if "croprect" in child.attrib:
                values.setdefault("croprect", {})[child.tag] = child.attrib["croprect"]
        for inner in child if long else ():
            if inner.tag in TABLES:
                values.setdefault(TABLES[inner.tag], {})[child.tag] = inner.text
    return values


class ShowOrder(OrderTest):
    def test_values_are_those_that_another_reader_finds(self):
        content = ticket(more='<title>Größe &amp; "so"</title><sub><b>deep</b></sub>'
                              "<image2><filepath>b.jpg</filepath><rotation>0.5</rotation>"
                              "<croprect>{{1, 2}, {3, 4}}</croprect><template>T.xml</template></image2>"
                              "<allimages><a>photo.jpg</a><b>b.jpg</b></allimages>"
                              '<package plucode="P1" name="Second"><image1 croprect="{{0,0},{9,9}}">b.jpg</image1>'
                              "</package>")
        order = self.home.bundle("all", content)
        shown, read = self.show(order), ElementTree.fromstring(content)
        self.assertEqual((shown["name"], shown["type"]), ("all", "VELM_Job"))
        values = shown["values"]
        references = values.pop("package")
        pictures = [each.text for each in read.find("allimages")]
        self.assertEqual(values, {**read.attrib, **slots_of(read), "allimages": pictures})
        self.assertEqual(references, [{**e.attrib, **slots_of(e), "job": str(order)} for e in read.findall("package")])
        self.assertEqual([(p["reference"], p["orientedName"], bool(p["found"])) for p in shown["packages"]],
                         [("Simple", "SimpleLS", True), ("P1", "P1LS", False)])

    def test_tells_what_the_run_then_writes(self):
        self.home.write("VELM/Templates/Simple.xml", simple_template(extra=CAPTION))
        self.home.write("VELM/Packages/Twice.xml", simple_package("TwicePRT", self.home.output, more="<allimages/>"))
        inline = ('<package type="inline" name="Own"><layout name="own" size="{9, 9}"/><output><own type="node"/>'
                  f'<destination type="filepath"><filepath>{self.home.output}/own.tif</filepath></destination>'
                  "<destination type='filepath'><filename>OriginalImageName</filename><saveoriginalfileasis>1"
                  f"</saveoriginalfileasis><filepath>{self.home.output}</filepath></destination></output>"
                  "<image1>lying.jpg</image1></package>")
        order = self.home.bundle("o", ticket("Twice", "tall.jpg", inline + "<caption>shared</caption><allimages>"
                                             "<a>tall.jpg</a><a>lying.jpg</a></allimages>"), images=["lying.jpg"])
        photograph(order / "Images/tall.jpg", 40, 60, 6)
        twice, own = self.show(order)["packages"]
        self.assertEqual((twice["orientedName"], twice["found"]),
                         ("TwicePRT", str(self.home.path / "VELM/Packages/Twice.xml")))
        self.assertEqual((own["reference"], own["found"], own["inline"]), ("Own", None, True))
        # A hole turns a picture of the other shape.
        for output, name, size in zip(twice["outputs"], ("tall.jpg", "lying.jpg"), ([60, 40], [90, 60]), strict=True):
            picture, text = output["templates"][0]["holes"]
            self.assertEqual((output["picture"], picture["file"], picture["size"], picture["shown"]),
                             (name, str(order / "Images" / name), size, [0, 0, *size]))
            self.assertEqual(text["text"], "shared")
        planned = [file["path"] for package in (twice, own) for output in package["outputs"]
                   for file in output["files"]]
        answer = self.home.velmctl("process", order)
        self.assertEqual(answer.returncode, 0, answer)
        written = answer.stdout.splitlines()
        self.assertEqual(len(written), len(planned))
        for path in planned:
            pattern = re.escape(path).replace(re.escape("{date}"), r"\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d\.\d{3}")
            self.assertTrue(any(re.fullmatch(pattern, each) for each in written), (path, written))

    def test_looking_changes_nothing(self):
        order = self.home.bundle("o")
        self.home.velmctl("init")
        before = sorted(self.home.path.rglob("*"))
        self.order("show", order)
        self.order("check", order)
        self.assertEqual([path for path in self.home.path.rglob("*") if path not in before], [])

    def test_strange_orders_are_read_or_refused_in_one_line(self):
        wide = self.home.bundle("wide")
        (wide / "job.xml").write_bytes(ticket(more="<title>Größe</title>").encode("utf-16"))
        self.assertEqual(self.show(wide)["values"]["key"], {"title": "Größe"})
        odd = self.home.bundle(os.fsdecode(b"odd \xff\x1b[31m"), ticket(more="<t\u0301>a\x85b</t\u0301>"))
        self.order("show", odd)
        self.order("check", odd, status=1)
        large = self.home.bundle("large", ticket(more="".join(f"<s{n}>{'x' * 500}</s{n}>" for n in range(10_000))))
        self.assertEqual(len(self.show(large)["values"]["key"]), 10_000)
        for options in ("show",), ("show", "--json"), ("check",):
            process = subprocess.Popen([VELMCTL, "--home", str(self.home.path), "order", *options, str(large)],
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            process.stdout.read(100)
            process.stdout.close()
            self.assertLessEqual(process.communicate(timeout=60)[1].count(b"\n"), 1)
        write = self.home.write
        write("folder.xml/file", "")
        os.mkfifo(self.home.path / "pipe.xml")
        bare = self.home.bundle("bare")
        (bare / "job.xml").rename(bare / "job.txt")
        (self.home.bundle("dir", images=()) / "job.xml").unlink()
        (self.home.orders / "dir.velm_job/job.xml").mkdir()
        for name in (write("empty.xml", ""), write("rubbish.xml", bytes(range(256)) * 64), "folder.xml", "pipe.xml",
                     write("old.xml", '<a type="VELM_Job" version="0.9"/>'), write("text.txt", ticket()), bare,
                     "missing.velm_job", self.home.orders / "dir.velm_job", write("receipt 1.xml", ticket())):
            for action in "show", "check":
                with self.subTest(name, action=action):
                    answer = self.order(action, name, status=1)
                    self.assertEqual(answer.stderr.count("\n"), 1, "one line says why")
                    self.assertIn(str(name), answer.stderr)


class CheckOrder(OrderTest):
    def test_sound_orders_have_no_findings(self):
        self.home.write("VELM/Templates/Simple.xml", simple_template(extra=CAPTION))
        self.assertEqual(self.check(self.home.bundle("sound")), [])
        self.assertEqual(self.check(self.home.bundle("texts", ticket(more="<caption>own</caption>"))), [])
        photograph(self.home.path / "photo.jpg")
        foreign = self.home.write("f.xml", f"<p><plucode>Simple</plucode><imagepath>{self.home.path}/photo.jpg"
                                           "</imagepath></p>")
        self.assertEqual(self.check(foreign), [])

    @unittest.skipUnless((PHOTOGRAPHS / ".made").exists(), "the sample photographs are not generated in this build")
    def test_the_sample_orders_have_no_findings(self):
        self.home.velmctl("init")
        subprocess.run([SOURCE / "scripts/sample-order", self.home.path, PHOTOGRAPHS, self.home.output], check=True)
        self.home.velmctl("defaults", "write", "/", "--suite", "com.apple.java.util.prefs",
                          f"<dict><key>Sorrel/</key><dict><key>searchfolder</key><string>{PHOTOGRAPHS}</string>"
                          "</dict></dict>")
        for order in self.home.orders.iterdir():
            self.assertEqual(self.check(order), [])

    def test_each_fault_of_a_ticket_is_told_with_its_line(self):
        self.home.write("VELM/Templates/Post.xml", simple_template())
        holes = "".join(f'<layer type="image" frame="{{{{0, 0}}, {{18, 9}}}}"><key>{key}</key></layer>'
                        for key in ("broken", "cut", "outside", "turned", "posted", "lost", "unnamed"))
        self.home.write("VELM/Templates/Simple.xml", simple_template(extra=CAPTION + holes))
        long = "<{0}><filepath>photo.jpg</filepath><{1}>{2}</{1}></{0}>".format
        faults = [
            ('<package name="Simple">', "no slot fills the hole \"unnamed\""),
            ("<image1>gone.jpg</image1>", '"gone.jpg" of slot "image1" is missing'),
            ("<broken>broken.jpg</broken>", "\"broken.jpg\" of slot \"broken\" can't be read"),
            ('<cut croprect="wide">photo.jpg</cut>', 'the crop "wide"'),
            (long("outside", "croprect", "{{5000, 0}, {9, 9}}"), "misses the picture of {90, 60}"),
            (long("turned", "rotation", "0.2"), "without a template"),
            ("<posted><filepath>photo.jpg</filepath><template>Post.xml</template><rotation>a bit</rotation></posted>",
             '"a bit" of slot "posted" is no number'),
            (long("lost", "template", "No.xml"), 'the template "No.xml" of slot "lost" is missing'),
            ("<Caption>typo</Caption>", 'no hole of package "Simple" has the key "Caption"'),
            (f"<caption>{'far too long ' * 20}</caption>", "does not fit its frame in Simple.xml"),
            ("</package>", None),
            ('<package name="Nowhere"><image1>photo.jpg</image1></package>', "could not find package with name Nowhe"),
            ('<package name="Simple"><image1>photo.jpg</image1></package>', "from another reference"),
        ]
        order = self.home.bundle("faults", "\n".join(['<data type="VELM_Job" version="1.0">',
                                                      *(line for line, _ in faults), "</data>"]))
        (order / "Images/broken.jpg").write_bytes((order / "Images/photo.jpg").read_bytes()[:700])
        found = self.check(order)
        for number, (line, words) in enumerate(faults, 2):
            with self.subTest(line):
                told = [sentence for file, at, sentence in found if (file, at) == (f"{order}/job.xml", number)]
                self.assertEqual([words in sentence for sentence in told], [True] if words else [], told)
        self.assertEqual(len(found), len([words for _, words in faults if words]), found)

    def test_each_fault_of_a_package_is_told_with_its_line(self):
        (self.home.path / "file").touch()
        for number, (content, told) in enumerate((
                ("<output>\n<print type='node'/></output>", {2: "no destination"}),
                ("<output>\n<print type='node'/>\n<destination type='printer'/></output>", {4: "printer"}),
                ("<output>\n<print type='node'/>\n<destination type='fax'/></output>", {4: "neither filepath nor"}),
                (f"<output>\n<print type='node'/>\n<destination type='filepath'><filepath>{self.home.path}/file/x"
                 "</filepath></destination></output>", {4: "is no folder"}),
                ("<output>\n<print type='node'/>\n<destination type='filepath'><itempath>Path 99</itempath>"
                 "</destination></output>", {4: 'no print-to-file set "Path 99"'}),
                ("<output>\n<other type='node'/><destination type='filepath'/></output>", {3: "<other>"}),
                ("<output>\n<print type='node'/><print type='node'><origin>{1, 1}</origin></print>"
                 "<destination type='filepath'/></output>", {2: "has no size"}),
                ("<output>\n<print type='node'><frame>wide</frame></print>\n<destination type='filepath'><resize>maybe"
                 "</resize></destination></output>", {3: "0 of the 4 numbers", 4: "neither yes nor no"}),
                ("<output><allimages/><print type='node'/><destination type='filepath'/></output>", {2: "<allimages>"}),
                ("\n<template name='more'><filepath>No.xml</filepath></template>", {1: "no output", 3: "No.xml"}))):
            with self.subTest(content):
                path = self.home.write("VELM/Packages/Simple.xml", '<data type="VELM_Package" version="1.0" '
                                       "name='Simple'><template name='print'><filepath>Simple.xml</filepath>"
                                       f"</template>\n{content}</data>")
                found = {line: sentence for file, line, sentence in self.check(self.home.bundle(f"o{number}"))
                         if file == str(path)}
                self.assertEqual({line: words in found.get(line, "") for line, words in told.items()},
                                 dict.fromkeys(told, True), found)

    def test_orders_that_make_nothing_and_paths_without_a_folder(self):
        self.home.write("VELM/Templates/Simple.xml", simple_template(extra=CAPTION.replace("<string>none</string>", "")))
        self.assertIn("shows that key", self.check(self.home.bundle("key"))[0][2])
        empty = self.home.bundle("empty", '<data type="VELM_Job" version="1.0"/>')
        self.assertEqual([line for _, line, sentence in self.check(empty) if "nothing to make" in sentence], [0])
        foreign = self.home.write("f.xml", "<p><plucode>Simple</plucode>\n<imagepath>photo.jpg</imagepath></p>")
        self.assertIn((str(foreign), 2), [place[:2] for place in self.check(foreign) if "search folder" in place[2]])


if __name__ == "__main__":
    unittest.main()
