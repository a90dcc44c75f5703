"""velmctl folders: the list of watched folders."""

import json

from support import CommandLineTest, Watch, photograph


class Folders(CommandLineTest):
    def folders(self, *arguments, status=0):
        result = self.home.velmctl("folders", *arguments)
        self.assertEqual(result.returncode, status, result.stdout + result.stderr)
        return result.stdout if status == 0 else result.stderr

    def listed(self):
        return json.loads(self.folders("list", "--json"))["folders"]

    def test_each_change_is_in_the_list_of_the_next_process(self):
        fixed, prints = (folder["name"] for folder in self.listed())
        self.assertFalse((self.home.path / "VELM/Jobs").exists(), "listing makes nothing")
        lab = self.home.path / "In/Lab"
        self.assertEqual(self.folders("add", "Lab", "In/Lab", "--settle", "2.5", "--disabled"),
                         f"disabled  Lab -> {lab} (XML tickets, still for 2.5 s)\n")
        self.assertIn(" lab 1 -> ", self.folders("add", "lab", "Other"))
        for command, *arguments in (("enable", "LAB"), ("disable", "lab 1"), ("set", "Lab", "--settle", "4"),
                                    ("disable", fixed), ("remove", prints)):
            self.folders(command, *arguments)
        found = {folder.pop("name"): folder for folder in self.listed()}
        self.assertEqual(list(found), [fixed, "Lab", "lab 1"])
        self.assertEqual(found["Lab"], {"enabled": True, "type": "public.xml", "folder": str(lab), "watched": str(lab),
                                        "settleSeconds": 4})
        self.assertFalse(found["lab 1"]["enabled"] or found[fixed]["enabled"])
        self.assertTrue(found[fixed]["watched"].endswith("/Jobs/Pending"))

    def test_what_is_refused_changes_nothing(self):
        fixed = self.listed()[0]["name"]
        self.folders("add", "Lab", "In")
        self.home.write("file", "")
        (self.home.path / "In").mkdir()
        (self.home.path / "link").symlink_to("In")
        before = self.listed()
        for arguments, status, reason in (
                (("add", "Other", "link"), 1, "is the folder of Lab already"),
                (("add", "Other", "file"), 1, "is not a folder"),
                (("add", "", "New"), 1, "needs a name"),
                (("remove", fixed), 1, "can't be removed"),
                (("enable", "Nobody"), 1, "no folder of the name Nobody"),
                (("set", "Lab", "--settle", "nan"), 2, "SECONDS"),
                (("set", "Lab", "--settle", "-1"), 2, "SECONDS"),
                (("set", "Lab"), 2, "--settle")):
            with self.subTest(arguments):
                self.assertIn(reason, self.folders(*arguments, status=status))
        self.assertEqual(self.listed(), before)
        self.home.velmctl("defaults", "write", "VELM_savedJobFolders", "<data>AAAA</data>")
        for arguments in (("list",), ("add", "New", "New")):
            self.assertIn("can't be read", self.folders(*arguments, status=1))

    def test_a_running_engine_keeps_its_list_and_the_next_one_has_the_new(self):
        watch = Watch(self.home)
        self.assertIn("while an engine runs", self.folders("add", "Lab", "In", status=1))
        watch.stop()
        self.folders("add", "Lab", "In")
        watch = Watch(self.home)
        photo = photograph(self.home.path / "photo.jpg")
        ticket = self.home.write("sorrel.xml",
                                 f"<print><plucode>Simple</plucode><imagepath>{photo}</imagepath></print>")
        ticket.rename(self.home.path / "In/sorrel.xml")
        watch.wait_for_lines("completed sorrel ")
