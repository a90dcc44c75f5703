"""The archives of print pages, judged by Python's own reader of property lists; and archives that others wrote."""

import datetime
import json
import plistlib
from plistlib import UID

from keyed import DNP, EPOCH, HUE, Boxed, Made, keyed, page, url
from support import SOURCE, CommandLineTest, photograph


class Archive(CommandLineTest):
    def read(self, path):
        """Root and the reader of references of one of our archives."""
        archive = plistlib.loads(path.read_bytes(), fmt=plistlib.FMT_BINARY)
        self.assertEqual(set(archive), {"$archiver", "$version", "$top", "$objects"})
        self.assertEqual((archive["$archiver"], archive["$version"]), ("NSKeyedArchiver", 100000))
        self.assertEqual(archive["$objects"][0], "$null")
        self.objects = archive["$objects"]
        return self.value(archive["$top"]["root"])

    def value(self, node):
        """What stands under a reference, with the class's ancestry under "$class"."""
        if not isinstance(node, UID):
            return node  # a number in its place, or a list of references
        found = self.objects[node.data]
        if not isinstance(found, dict):
            return None if found == "$null" else found
        described = self.objects[found["$class"].data]
        self.assertEqual(described["$classname"], described["$classes"][0])
        entries = {key: self.value(entry) for key, entry in found.items() if key != "$class"}
        for key in ("NS.keys", "NS.objects"):
            if key in entries:
                entries[key] = [self.value(each) for each in entries[key]]
        kind = described["$classname"]
        if kind == "NSMutableArray":
            self.assertEqual(described["$classes"], ["NSMutableArray", "NSArray", "NSObject"])
            return entries["NS.objects"]
        if kind == "NSMutableDictionary":
            self.assertEqual(described["$classes"], ["NSMutableDictionary", "NSDictionary", "NSObject"])
            return dict(zip(entries["NS.keys"], entries["NS.objects"]))
        entries["$class"] = " ".join(described["$classes"])
        return entries

    def velmctl_page(self, *arguments):
        result = self.home.velmctl("page", *arguments)
        self.assertEqual(result.returncode, 0, result.stderr)
        return result.stdout

    def test_others_read_ours(self):
        images = [photograph(self.home.path / f"{name} ä.jpg") for name in ("one", "two")]
        profile = SOURCE / "fuzz/corpus/profile/gamma.icc"
        path = self.home.path / "a.printpage"
        before = datetime.datetime.utcnow()
        self.velmctl_page("make", "--model", "DNP DS80", "--paper", "8x10", "--quality", "10", "--gravity", "resize",
                          "--adjust", "Hue=0.5", "--adjust", "Red=2", "--profile", profile, *images, "-o", path)
        root = self.read(path)
        self.assertEqual(root.pop("$class"), DNP)

        urls = root.pop("self.inputImages")
        self.assertEqual([each["$class"] for each in urls], ["NSURL NSObject"] * 2)
        self.assertEqual([each["NS.base"] for each in urls], [None] * 2)
        self.assertEqual([each["NS.relative"] for each in urls], [each.as_uri() for each in images])
        self.assertEqual(root.pop("self.printerProfileICC")["NS.relative"], profile.as_uri())

        first = root.pop("self.imageFilters")[0]
        filters = {each.pop("$class"): each for each in first}
        vector = "CIVector NSObject"
        components = {"$class": vector, "CICount": 4, "CI_0": 0, "CI_1": 0, "CI_2": 0, "CI_3": 0}
        self.assertEqual(filters, {
            HUE: {"CIName": "CIHueAdjust", "CI_inputAngle": 0.5},
            "CIColorMatrix CIFilter NSObject": {
                "CIName": "CIColorMatrix", "CI_inputRVector": {**components, "CI_0": 2},
                "CI_inputGVector": {**components, "CI_1": 1}, "CI_inputBVector": {**components, "CI_2": 1},
                "CI_inputAVector": {**components, "CI_3": 1}, "CI_inputBiasVector": components}})
        hue = next(each for each in self.objects if isinstance(each, dict) and "CI_inputAngle" in each)
        self.assertIsInstance(hue["CI_inputAngle"], UID, "a filter's numbers are objects")

        properties = root.pop("self.properties")
        date = properties.pop("dateInit")
        self.assertEqual(date.pop("$class"), "NSDate NSObject")
        made = EPOCH + datetime.timedelta(seconds=date["NS.time"])
        self.assertLess(abs((made - before).total_seconds()), 300)
        self.assertEqual(properties, {"autoRotate": True, "gravity": "resize", "paperName": "8x10"})

        node = next(each for each in self.objects if isinstance(each, dict) and "self.properties" in each)
        order = ["inputImages", "fileURLs", "imageFilters", "properties", "printerProfileICC", "requiredModel",
                 "destinationLabel"]
        numbers = [node["self." + key].data for key in order]
        self.assertEqual([each for each in numbers if each], sorted(each for each in numbers if each))
        multicut = root.pop("self.multicut")
        self.assertEqual(root, {"self.fileURLs": None, "self.requiredModel": "DNP DS80", "self.destinationLabel": None,
                                "self.colorManagement": 1, "self.printerModel": 0, "self.mediaSize": 50,
                                "self.overcoat": 0, "self.cutMode": 0, "self.quality": 10, "self.sheetFed": False,
                                "self.overcoatBackside": False})
        shown = json.loads(self.velmctl_page("show", "--json", path))
        self.assertEqual((shown["multicut"], shown["gravity"]), (multicut, "resize"))

    def show(self, archive):
        path = self.home.write("given.printpage",
                               archive if isinstance(archive, bytes) else plistlib.dumps(archive, fmt=plistlib.FMT_BINARY))
        return self.home.velmctl("page", "show", "--json", path)

    def test_others_pages_are_read(self):
        folder = url(self.home.path.as_uri() + "/")
        photograph(self.home.path / "b c.jpg")
        date = datetime.datetime(2020, 2, 3, 4, 5, 6)
        nested = {"list": [Boxed(1), "two", {"three": Boxed(3.5)}], "data": b"\0\1", "none": Boxed(False)}
        result = self.show(keyed(page(
            inputImages=[url("b%20c.jpg", folder), url((self.home.path / "b c.jpg").as_uri()),
                         url("../b%20c.jpg", url("d/e.jpg", folder))], fileURLs=None,
            imageFilters=[[Made(HUE, {"CI_inputAngle": Boxed(2), "CI_inputImage": None, "CIEnabled": True,
                                      "CIName": "CIHueAdjust", "CIVersion": Boxed(1)}),
                           Made("CIColorMatrix CIFilter NSObject",
                                {"CI_inputRVector": Made("CIVector NSObject", {"CICount": 2, "CI_0": 0.5, "CI_1": 3.0})}),
                           Made("CIFilter NSObject", {"CIName": "CIGammaAdjust", "CI_inputPower": Boxed(0.5)})], []],
            properties={"dateInit": date, "gravity": "b c", "reason": "b c", **nested}, requiredModel="DNP DS80",
            colorManagement=2, printerModel=45, mediaSize=31, multicut=4, cutMode=120, quality=10, sheetFed=True,
            future=url("http://example.com"))))
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        shown = json.loads(result.stdout)
        self.assertEqual([each["path"] for each in shown["images"]], [str(self.home.path / "b c.jpg")] * 3)
        self.assertNotIn("problem", shown["images"][0])
        self.assertEqual([each["name"] for each in shown["filters"][0]],
                         ["CIHueAdjust", "CIColorMatrix", "CIGammaAdjust"])
        inputs = [each["inputs"] for each in shown["filters"][0]]
        self.assertEqual(inputs[0], {"inputAngle": 2})
        self.assertEqual((inputs[1]["inputRVector"], inputs[1]["inputGVector"]), ([0.5, 3, 0, 0], [0, 1, 0, 0]))
        self.assertEqual(inputs[2], {"inputPower": 0.5})
        self.assertEqual(shown["filters"][1], [])
        self.assertEqual((shown["gravity"], shown["reason"], shown["colorManagement"], shown["printerModel"]),
                         ("b c", "b c", 2, 45))
        self.assertEqual(shown["properties"]["list"], [1, "two", {"three": 3.5}])
        self.assertEqual((shown["mediaSize"], shown["multicut"], shown["quality"], shown["sheetFed"]), (31, 4, 10, True))
        self.assertEqual(shown["cutMode"], 0, "written under another name than it is read")

    def test_what_is_no_page_is_refused(self):
        whole = plistlib.dumps(keyed(page(inputImages=[url("file:///a")])), fmt=plistlib.FMT_BINARY)
        cycle = keyed(page(properties={"a": "b"}))
        properties = next(each for each in cycle["$objects"] if "NS.keys" in each)
        properties["NS.objects"] = [UID(cycle["$objects"].index(properties))]
        outside = keyed(page(requiredModel="a"))
        outside["$objects"][1]["self.requiredModel"] = UID(999)
        classless = keyed(page())
        del classless["$objects"][1]["$class"]
        many = keyed(page(inputImages=[]))
        next(each for each in many["$objects"] if "NS.objects" in each)["NS.objects"] = [UID(0)] * 1_100_000
        bomb = keyed(page(properties={}))
        bomb["$objects"].append("x" * 1_000_000)
        held = next(each for each in bomb["$objects"] if "NS.keys" in each)
        held["NS.keys"] = held["NS.objects"] = [UID(len(bomb["$objects"]) - 1)] * 20_000
        wide = keyed(page(properties={"a": ["b"]}))
        wide["$objects"].append({"$class": UID(0), **{str(i): 1 for i in range(20_000)}})
        target = next(each for each in wide["$objects"] if "NS.objects" in each and "NS.keys" not in each)
        wide["$objects"][-1]["$class"] = target["$class"]
        wide["$objects"][-1]["NS.objects"] = []
        target["NS.objects"] = [UID(len(wide["$objects"]) - 1)] * 400_000
        for name, archive, message in (
                ("cut off", whole[:-1], "property list"),
                ("in the text form", plistlib.dumps({}), "binary form"),
                ("no archive", {}, "no keyed archive"),
                ("another root", keyed(["a"]), "NSArray; expected: KLARON_PrintPage"),
                ("null", keyed(None), "no page"),
                ("one picture for a list", keyed(page(inputImages=url("file:///a"))), "self.inputImages"),
                ("texts among the pictures", keyed(page(inputImages=["a"])), "no URL"),
                ("a URL as a property", keyed(page(properties={"a": url("file:///a")})), "unexpected class NSURL"),
                ("filters not in lists", keyed(page(imageFilters=[Made(HUE, {})])), "no list of filters"),
                ("a filter from elsewhere", keyed(page(imageFilters=[[Made("CISepiaTone CIFilter NSObject", {})]])),
                 "CISepiaTone"),
                ("a filter's name from elsewhere",
                 keyed(page(imageFilters=[[Made("CIFilter NSObject", {"CIName": "CISepiaTone"})]])), "CISepiaTone"),
                ("a text as an angle", keyed(page(imageFilters=[[Made(HUE, {"CI_inputAngle": "a"})]])),
                 "CI_inputAngle"),
                ("an endless vector", keyed(page(imageFilters=[[Made("CIColorMatrix CIFilter NSObject", {
                    "CI_inputRVector": Made("CIVector NSObject", {"CICount": 1 << 40})})]])), "CIVector of"),
                ("a dictionary within itself", cycle, "contains itself"),
                ("a reference to nowhere", outside, "outside"),
                ("no class", classless, "no class"),
                ("a million references", many, "too many"),
                ("one text very often", bomb, "too many bytes"),
                ("one wide object very often", wide, "too many")):
            with self.subTest(name):
                result = self.show(archive)
                self.assertEqual((result.returncode, result.stdout), (1, ""), result.stderr)
                self.assertIn("given.printpage: ", result.stderr)
                self.assertIn(message, result.stderr)
