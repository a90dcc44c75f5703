"""velmctl template show, check and format, and the layout of a render: judged by Python's JSON, xmllint and pixels."""

import json
import os
import re
import subprocess
import unittest

from support import VELMCTL, CommandLineTest, photograph, run


def template(*layers, size="{600, 400}", more="", version=' version="1.0"'):
    """A template file with each layer on a line of its own, the first on line 3."""
    return "\n".join([f'<data type="VELM_Template"{version}>', f'<layout size="{size}">{more}', *layers,
                      "</layout>", "</data>", ""])


def layer(kind, children="", frame="{{0, 0}, {100, 50}}", attributes=""):
    return f'<layer type="{kind}" frame="{frame}"{attributes}>{children}</layer>'


HOLE = layer("image", "<key>image1</key>")
TEXT = layer("textbox", '<string>Größe &amp; "so"</string><font size="20">DejaVu Sans</font>', attributes=' zindex="3"')
DATE = template(layer("stamp", "<key>date</key><string>shortDate</string>", frame="{{0, 0}, {400, 60}}"),
                size="{400, 60}")


class TemplateTest(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.home.write("VELM/Nodes/Date.xml", DATE)
        photograph(self.home.path / "photo.jpg")

    def write(self, content, name="a.xml"):
        return self.home.write(name, content)

    def template(self, *arguments, status=0):
        answer = self.home.velmctl("template", *arguments)
        self.assertEqual(answer.returncode, status, answer)
        self.assertNotRegex(answer.stdout + answer.stderr, "[\x00-\x09\x0b-\x1f\x7f]", "a terminal would obey it")
        return answer

    def assert_refused(self, action, name, words):
        answer = self.template(action, name, status=1)
        self.assertEqual(answer.stdout, "")
        self.assertIn(words, answer.stderr)
        self.assertEqual(answer.stderr.count("\n"), 1, "one line says why")


class Show(TemplateTest):
    def show(self, path):
        return json.loads(self.template("show", path, "--json").stdout)

    def test_json_has_each_stored_value_as_text_or_number(self):
        shadow = '<shadow blur="4.5" color="#123" offset="{1, 2}">no</shadow><overflowx>x</overflowx>'
        shown = self.show(self.write(template(
            layer("node", "<filepath>Date.xml</filepath><key>when</key>", "{{1.5, 2}, {30, 40}}", ' zindex="9"'),
            layer("image", f'<croprect normal="no">{{{{0, 0}}, {{1, 1}}}}</croprect>{shadow}'), TEXT,
            layer("canvas", frame=""), more="<backgroundEnabled>yes</backgroundEnabled>")))
        self.assertEqual([shown[key] for key in ("name", "type", "size", "version", "backgroundEnabled")],
                         ["layout", "container", [600, 400], "1.0", "yes"])
        image, canvas, text, node = shown["layers"]
        self.assertEqual(image, {
            "type": "image", "zindex": "100", "frame": [0, 0, 100, 50], "croprect": "{{0, 0}, {1, 1}}", "normal": "no",
            "blur": 4.5, "shadowcolor": "#123", "offset": "{1, 2}", "shadowEnabled": "no", "overflowx": "x"})
        self.assertEqual(canvas, {"type": "canvas", "zindex": "200", "frame": [0, 0, 0, 0]})
        self.assertEqual((text["string"], text["font"], text["size"]), ('Größe & "so"', "DejaVu Sans", "20"))
        self.assertEqual([node[key] for key in ("type", "filepath", "key", "frame")],
                         ["container", "Date.xml", "when", [1.5, 2, 30, 40]])
        self.assertEqual([inner["string"] for inner in node["layers"]], ["shortDate"])

    def test_lines_tell_from_where_each_value_is(self):
        self.home.velmctl("defaults", "write", "velmTemplateLastUsedColorBorder", "#ABCDEF")
        self.write(template(layer("image", '<key>image1</key>\n<border width="7">yes</border>', attributes=' key="no"'),
                            layer("node", "<filepath>Date.xml</filepath>")), "VELM/Templates/Page.xml")
        shown = [re.split(r"  +", line.strip()) for line in self.template("show", "Page.xml").stdout.splitlines()]
        for words in (["key", "image1", "Page.xml:3 element key"],
                      ["frame", "{{0, 0}, {100, 50}}", "Page.xml:3 attribute frame of layer"],
                      ["borderWidth", "7", "Page.xml:4 attribute width of border"],
                      ["bordercolor", "#ABCDEF", "setting velmTemplateLastUsedColorBorder"],
                      ["gravity", "resizeAspectFill", "default"],
                      ["string", "shortDate", "Date.xml:3 element string"]):
            self.assertIn(words, shown)

    def test_strange_files_are_read_or_refused_in_one_line(self):
        wide = self.write(template(TEXT).encode("utf-16"), "wide.xml")
        self.assertEqual(self.show(wide)["layers"][0]["string"], 'Größe & "so"')
        odd = os.fsdecode(b"odd \xff\x1b[31m.xml")
        (self.home.path / odd).write_text(template(layer("te\u0085xt", "<string>a\nb</string>")))
        self.template("show", odd)
        self.template("check", odd, status=1)
        self.write("", "empty.xml")
        self.write(bytes(range(256)) * 64, "rubbish.xml")
        self.write("<data><output/></data>", "package.xml")
        (self.home.path / "folder.xml").mkdir()
        os.mkfifo(self.home.path / "pipe.xml")
        for name in ("empty.xml", "rubbish.xml", "package.xml", "folder.xml", "pipe.xml", "missing.xml"):
            with self.subTest(name):
                for action in ("show", "format") if name == "package.xml" else ("show", "check", "format"):
                    self.assert_refused(action, name, name)

    def test_large_files_and_readers_that_go_away(self):
        large = self.write(template(*[layer("textbox", f"<string>{'word ' * 100}{number}</string>")
                                      for number in range(9000)]))
        self.assertGreater(large.stat().st_size, 5_000_000)
        self.assertEqual(len(self.show(large)["layers"]), 9000)
        for options in ([], ["--json"]):
            process = subprocess.Popen([VELMCTL, "--home", str(self.home.path), "template", "show", str(large), *options],
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            process.stdout.read(100)
            process.stdout.close()
            self.assertEqual(process.stderr.read(), b"")
            process.stderr.close()
            process.wait(60)


class Check(TemplateTest):
    def test_each_fault_is_told_with_its_line(self):
        self.write(b"\xff\xd8\xff\xe0 no picture", "Images/broken.jpg")
        whole = photograph(self.home.path / "Images/photo.jpg", 900, 600).read_bytes()
        self.write(whole[:len(whole) // 2], "Images/cut.jpg")
        font = '<font size="20">DejaVu Sans</font>'
        faults = [
            (layer("image", "<key>a</key>", attributes=' colour="red"'), "colour"),
            (layer("image", "<key>a</key><colour>red</colour>"), "colour"),
            (layer("image", '<key>a</key><border colour="red">yes</border>'), "colour"),
            (layer("image", "<key>a</key>", frame="nonsense"), "frame"),
            (layer("picture"), '"picture"'),
            (layer("image"), "no key"),
            (layer("image", "<key>a</key><filepath>nowhere.jpg</filepath>"), '"nowhere.jpg" is missing'),
            (layer("graphic", "<filepath>broken.jpg</filepath>"), '"broken.jpg" can\'t be read'),
            (layer("graphic", "<filepath>cut.jpg</filepath>"), '"cut.jpg" can\'t be read'),
            (layer("graphic", "<filepath>photo.jpg</filepath><croprect>{{2, 2}, {0, 5}}</croprect>"), "crop.*empty"),
            (layer("graphic", "<filepath>photo.jpg</filepath><croprect>{{999, 0}, {5, 5}}</croprect>"), "crop.*misses"),
            (layer("node", "<filepath>Nowhere.xml</filepath>"), '"Nowhere.xml" can\'t be read'),
            (layer("node"), "no file"),
            (layer("textbox", '<string>x</string><font size="9">No Such Font</font>'), '"No Such Font".*Helvetica'),
            (layer("textbox", f"<string>1\n2\n3\n4\n5</string>{font}".replace("\n", "&#10;")), "2 of 5 lines"),
            (layer("textbox", f"<string>x</string>{font}<color>red</color>"), '"red"'),
            (layer("textbox", f"<string>x</string>{font}<textAlignment>middle</textAlignment>"), '"middle"'),
            (layer("stamp", f"<key>weather</key><string>x</string>{font}"), '"weather" is unknown'),
            (layer("stamp", f"<key>date</key>{font}"), "date has no format"),
            (layer("edittextbox", f"<stringnumber>99</stringnumber><string>x</string>{font}"), 'stored text "99"'),
            (layer("node", "<filepath>Date.xml</filepath>", "{{900, 0}, {400, 60}}"), "outside the canvas"),
            (layer("image", "<key>a</key><gravity>middle</gravity>"), '"middle"'),
            (layer("image", "<key>a</key>", frame="{{700, 0}, {10, 10}}"), "outside the canvas"),
            (layer("image", "<key>a</key>", frame="{{590, 0}, {20, 10}}"), "beyond the canvas.*10 pixels"),
        ]
        self.write(template(*[xml for xml, _ in faults], HOLE, TEXT,
                            layer("textbox", f"<string>x</string>{font}", frame="{{0, 0}, {3000, 50}}"),
                            layer("stamp", f"<key>filename</key><string>x</string>{font}"),
                            layer("image", "<filepath>ImageFile</filepath>")))
        answer = self.template("check", "a.xml", status=1)
        self.assertEqual(answer.stderr, "")
        found = [re.fullmatch(r"a\.xml:(\d+): (\S.*)", line) for line in answer.stdout.splitlines()]
        self.assertEqual([int(match[1]) for match in found], sorted(int(match[1]) for match in found))
        for line, (xml, words) in enumerate(faults, 3):
            with self.subTest(xml):
                told = [match[2] for match in found if int(match[1]) == line]
                self.assertEqual(len(told), 1, told)
                self.assertRegex(told[0], words)
        self.assertEqual(len(found), len(faults), answer.stdout)

    def test_documents_and_nested_files(self):
        for name, content, words in (("none.xml", template(HOLE, size="{0, 0}"), "no size"),
                                     ("huge.xml", template(HOLE, size="{40000, 10}"), "too large"),
                                     ("bare.xml", template(), "no layers"),
                                     ("damaged.xml", template(HOLE).replace("</layout>", ""), ":"),
                                     ("two.xml", template(HOLE).replace("</data>", "<square/></data>"), ":")):
            with self.subTest(name):
                self.assertRegex(self.template("check", self.write(content, name), status=1).stdout,
                                 rf"(?m)^{re.escape(str(self.home.path / name))}:\d+: .*{words}")
        nested = self.write(DATE.replace("shortDate", "a" * 99), "VELM/Nodes/Date.xml")
        self.write(template(layer("node", "<filepath>Date.xml</filepath>", "{{0, 0}, {400, 60}}")))
        self.write(DATE.replace('type="stamp"', 'type="node"').replace("<key>", "<filepath>Loop.xml</filepath><key>"),
                   "VELM/Nodes/Loop.xml")
        self.write(template(layer("node", "<filepath>Loop.xml</filepath>")), "loop.xml")
        self.assertIn("Loop.xml:3: template file", self.template("check", "loop.xml", status=1).stdout)
        self.template("show", "loop.xml")
        self.write(template(layer("node", "\n<filepath>Nowhere.xml</filepath>")), "lines.xml")
        self.assertRegex(self.template("check", "lines.xml", status=1).stdout, r'^lines.xml:4: nested file.*\n$')
        order = self.home.bundle("order")
        self.write(DATE, order / "Nodes/Own.xml")
        self.write(template(layer("node", "<filepath>Own.xml</filepath>", "{{0, 0}, {400, 60}}"),
                            layer("graphic", "<filepath>photo.jpg</filepath>")), "own.xml")
        self.assertEqual(self.template("check", "own.xml", "--order", order).stdout, "own.xml: no findings\n")
        self.assertEqual(self.template("format", "own.xml", "--order", order).stderr, "")
        self.write(template(HOLE), "fine.xml")
        answer = self.template("check", "a.xml", "fine.xml", status=1).stdout.splitlines()
        self.assertTrue(answer[0].startswith(f"{nested}:3: "), answer)
        self.assertEqual(answer[-1], "fine.xml: no findings")


class Format(TemplateTest):
    def test_a_formatted_file_is_valid_stable_and_draws_the_same(self):
        source = self.write(template(TEXT, layer("image", '<key>image1</key><border width="4">yes</border>'),
                                     layer("node", "<filepath>Date.xml</filepath>", "{{0, 200}, {400, 60}}")))
        once, twice = self.home.path / "once.xml", self.home.path / "twice.xml"
        for origin, target in ((source, once), (once, twice)):
            answer = self.template("format", origin, "-o", target)
            self.assertEqual((answer.stdout, answer.stderr), (f"{target}\n", ""))
            run("xmllint", "--noout", str(target))
        self.assertEqual(once.read_bytes(), twice.read_bytes())
        pictures = []
        for path in (source, once):
            self.home.velmctl("render", path, "--image", "photo.jpg", "-o", "out.png")
            pictures.append((self.home.path / "out.png").read_bytes())
        self.assertEqual(*pictures)
        self.assertEqual(self.template("format", source).stderr, "", "in place")
        self.write(template(layer("node", "<filepath>Nowhere.xml</filepath>"), layer("textbox", "<rotation>x</rotation>")),
                   "odd.xml")
        self.assertEqual(self.template("format", "odd.xml").stderr, "", "what is wrong in both is not lost")
        self.assertEqual(source.read_bytes(), once.read_bytes())

    def test_nothing_is_lost_in_silence(self):
        background = layer("textbox", "<string>x</string>", attributes=' backgroundcolor="#FFF"')
        for content, words in ((template(background), "3: .*backgroundcolor.*background"),
                               (template(layer("textbox", '<string>x</string><overflowx>1</overflowx>')), "3: .*overflowx"),
                               (template(layer("graphic", "<filename>photo.jpg</filename>")), "3: .*filename"),
                               (template(layer("edittextbox", "<stringnumber>3</stringnumber>")), "3: .*stamp"),
                               (template(HOLE, "<!-- why -->"), "4: .*comment"),
                               (template(HOLE, more="<backgroundEnabled>yes</backgroundEnabled>"), "2: .*backgroundEnabled"),
                               (template(layer("image", attributes=' colour="red"')), "3: .*colour"),
                               (template(HOLE).replace("</data>", ""), r"\d: ."),
                               (template(HOLE).replace("</data>", "<square/></data>"), r"\d: .")):
            with self.subTest(words):
                path = self.write(content)
                for options in ([], ["-o", "a.xml"]):
                    refused = self.template("format", path, *options, status=1)
                    self.assertEqual(refused.stdout, "")
                    self.assertRegex(refused.stderr, rf"(?m)^{path}:{words}")
                    self.assertEqual(path.read_text(), content)
                for options in (["-o", "other.xml"], ["--force"]):
                    self.assertRegex(self.template("format", path, *options).stderr, words)
                self.assertEqual(path.read_bytes(), (self.home.path / "other.xml").read_bytes())

    def test_an_old_file_is_moved_aside_and_a_failure_leaves_it(self):
        old = template(HOLE, version="")
        path = self.write(old, "photo.xml")
        self.template("format", "photo.xml")
        self.assertEqual((self.home.path / "photo.oldVELM.xml").read_text(), old)
        self.assertIn('version="1.0"', path.read_text())
        answer = self.template("format", "photo.xml", "-o", "no/folder.xml", status=1)
        self.assertIn("no/folder.xml", answer.stderr)


class Layout(TemplateTest):
    def test_a_render_tells_where_its_layers_lie(self):
        self.write(template(TEXT, HOLE))
        arguments = ["render", "a.xml", "--image", "photo.jpg", "-o", "a.png", "--layout"]
        answer = self.home.velmctl(*arguments, "a.txt")
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        layout = (self.home.path / "a.txt").read_text()
        for words in ("photo.jpg", "DejaVu Sans", "100.00", "Größe"):
            self.assertIn(words, layout)
        refused = self.home.velmctl(*arguments, "no/folder.txt")
        self.assertEqual(refused.returncode, 1)
        self.assertIn("no/folder.txt", refused.stderr)


if __name__ == "__main__":
    unittest.main()
