"""velmctl watch: the engine on real folders."""

import json
import os
import signal
import unittest

from support import CommandLineTest, Watch, photograph, simple_package, simple_template, ticket

STAMPED = r"\.\d{8}-\d{6}\."


class WatchTest(CommandLineTest):
    @property
    def completed(self):
        return self.home.path / "VELM/Jobs/Completed"

    @property
    def failed(self):
        return self.home.path / "VELM/Jobs/Failed"

    def long_order(self, name):
        """An order of so many large products that it can be met in the middle of its run."""
        self.home.write("VELM/Templates/Large.xml", simple_template(3000, 3000))
        self.home.write("VELM/Packages/Large.xml", simple_package("Large", self.home.output, "Large.xml",
                                                                  "<allimages/>"))
        images = "<allimages>" + "<i>photo.jpg</i>" * 24 + "</allimages>"
        return self.home.bundle(name, ticket("Large", more=images))

    def list_orders(self, watch, *names):
        """Drops an order for each name, one after the other; each is listed when this returns."""
        for name in names:
            changes = self.home.log().count("Lets rescan")
            order = watch.drop(self.home.bundle(name))
            watch.wait_for_log("Lets rescan", changes + 1)
        return order

    def wait_for_first_product(self, watch):
        watch.wait_until(lambda: [path for path in self.home.products() if path.suffix == ".jpeg"], "a product")


class Orders(WatchTest):
    def test_each_order_ends_in_its_folder_with_a_line(self):
        watch = Watch(self.home)
        watch.drop(self.home.bundle("good"))
        watch.drop(self.home.bundle("bad", ticket("Nowhere")))
        photo = photograph(self.home.path / "photo.jpg")
        watch.drop(self.home.write("sorrel.xml",
                                   f"<print><plucode>Simple</plucode><imagepath>{photo}</imagepath></print>"))
        lines = watch.wait_for_lines("completed ", 2) + watch.wait_for_lines("failed ", 1)
        self.assertEqual(watch.stop(), 0)
        self.assertRegex("\n".join(lines), rf"(?m)^completed good -> {self.completed}/good{STAMPED}velm_job$")
        self.assertRegex("\n".join(lines), rf"(?m)^completed sorrel -> {self.completed}/sorrel{STAMPED}xml$")
        self.assertRegex("\n".join(lines), rf"(?m)^failed bad -> {self.failed}/bad{STAMPED}velm_job: "
                                           "could not find package with name Nowhere$")
        for line in lines:
            self.assertTrue(os.path.exists(line.split(" -> ")[1].split(": ")[0]), line)
        self.assertEqual(len(self.home.products()), 2)
        self.assertEqual(watch.diagnostics, [])
        for key, value in (("velmProcessorJobsCompleted", "2\n"), ("velmProcessorJobsFailed", "1\n")):
            self.assertEqual(self.home.velmctl("defaults", "read", key).stdout, value)


class Tickets(WatchTest):
    def test_an_unreadable_ticket_stays_and_runs_when_it_is_whole(self):
        watch = Watch(self.home)
        whole = ticket()
        growing = self.home.bundle("growing", whole[:50])
        empty = self.home.bundle("empty", "")
        growing, empty = watch.drop(growing), watch.drop(empty)
        for name in ("next", "another"):
            watch.drop(self.home.bundle(name))
            watch.wait_for_lines(f"completed {name} ")
        self.assertTrue(growing.is_dir() and empty.is_dir(), "what can't be parsed stays where it is")
        told = [f"cannot read the order {order}: " for order in sorted((empty, growing))]
        self.assertEqual(sorted(line[:len(start)] for line, start in zip(sorted(watch.diagnostics), told)), told)
        self.assertEqual(len(watch.diagnostics), 2, "each is told of once")
        with open(growing / "job.xml", "a") as ticket_file:
            ticket_file.write(whole[50:])
        watch.wait_for_lines("completed growing ")
        self.assertTrue(empty.is_dir())

    def test_rubbish_is_left_alone(self):
        watch = Watch(self.home)
        (watch.bundles / "a folder").mkdir()
        rubbish = [watch.bundles / "notes.txt", watch.bundles / "picture.jpg", watch.bundles / "ticket.xml",
                   watch.tickets / "Receipt-7.xml", watch.tickets / "unrelated.xml"]
        for path in rubbish:
            path.write_text("<other/>")
        watch.drop(self.home.bundle("good"))
        watch.wait_for_lines("completed good ")
        self.assertTrue(all(path.exists() for path in rubbish))
        self.assertEqual(watch.stop(), 0)
        self.assertEqual([line for line in watch.lines if not line.startswith("watching ")][1:], [])


class Pausing(WatchTest):
    def test_another_process_pauses_and_resumes(self):
        watch = Watch(self.home, "--paused")
        self.list_orders(watch, "first", "second")
        self.assertNotIn("processJob:]", self.home.log(), "while paused nothing is started")
        self.home.velmctl("defaults", "write", "velmProcessorIsRunning", "yes")
        watch.wait_for_lines("completed second ")
        self.home.velmctl("defaults", "write", "velmProcessorIsRunning", "no")
        watch.wait_until(lambda: not any(watch.bundles.iterdir()), "an empty folder")
        watch.wait_for_log("Lets rescan", 4)  # the last order's going is a change too
        started = self.home.log().count("processJob:]")
        self.list_orders(watch, "third", "fourth")
        self.assertEqual(self.home.log().count("processJob:]"), started)
        self.home.velmctl("defaults", "write", "velmProcessorIsRunning", "yes")
        watch.wait_for_lines("completed fourth ")


class Waiting(WatchTest):
    def jobs(self):
        return json.loads(self.home.velmctl("jobs", "list", "--json").stdout)

    def test_jobs_list_looks_and_touches_nothing(self):
        watch = Watch(self.home, "--paused")
        self.assertEqual(watch.stop(), 0)
        self.home.velmctl("defaults", "write", "velmProcessorIsRunning", "yes")
        dated = {"b": 1_600_000_000, "a\nb": 1_500_000_000, "c": 1_400_000_000}
        for name, date in dated.items():
            order = self.home.bundle(name, ticket("Name") if name == "c" else ticket(), folder=watch.bundles)
            os.utime(order / "job.xml", (date, date))
        bad = self.home.bundle("bad", "<data", folder=watch.bundles)
        (watch.tickets / "receipt-1.xml").write_text("<receipt/>")
        before = sorted(self.home.path.rglob("*"))
        lines = self.home.velmctl("jobs", "list").stdout.splitlines()
        self.assertRegex(lines[0], rf"^2014-05-1\d \d\d:\d\d:\d\d  ready     c \(Name\) -> {watch.bundles}/c.velm_job$")
        self.assertTrue(lines[1].endswith(rf"  a\nb (Simple) -> {watch.bundles}/a\nb.velm_job"), lines[1])
        self.assertTrue(lines[3].startswith(f"unreadable {bad}: "), lines[3])
        self.assertEqual(len(lines), 4)
        listed = self.jobs()
        self.assertEqual([job["name"] for job in listed["jobs"]], ["c", "a\nb", "b"])
        self.assertEqual(listed["jobs"][0], {"name": "c", "package": "Name", "date": "2014-05-13T16:53:20.000Z",
                                             "settling": False, "path": str(watch.bundles / "c.velm_job")})
        self.assertEqual([item["path"] for item in listed["unreadable"]], [str(bad)])
        self.assertEqual(sorted(self.home.path.rglob("*")), before)

    def test_an_order_that_is_not_yet_still(self):
        self.home.velmctl("folders", "set", "Old VELM Processor Folder ƒ", "--settle", "3600")
        watch = Watch(self.home)
        order = watch.drop(self.home.bundle("fresh"))
        self.assertEqual(watch.wait_for_lines("waiting "), [f"waiting fresh -> {order}"])
        self.assertEqual([job["settling"] for job in self.jobs()["jobs"]], [True])
        watch.stop()
        self.home.velmctl("folders", "set", "Old VELM Processor Folder ƒ", "--settle", "0.2")
        Watch(self.home).wait_for_lines("completed fresh ")


class Ending(WatchTest):
    def test_the_first_signal_lets_the_running_order_end(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with self.subTest(number):
                watch = Watch(self.home)
                watch.drop(self.long_order(f"running{int(number)}"))
                self.wait_for_first_product(watch)
                waiting = watch.drop(self.home.bundle(f"waiting{int(number)}"))
                watch.signal(number)
                self.assertEqual(watch.end(), 0)
                self.assertTrue(any(line.startswith("completed running") for line in watch.lines), watch.lines)
                self.assertTrue(waiting.is_dir(), "no further order is started")
                waiting.rename(self.home.path / f"taken{int(number)}.velm_job")
                for product in self.home.products():
                    product.unlink()

    def test_the_second_signal_ends_it_at_once_and_the_order_runs_again(self):
        watch = Watch(self.home)
        order = watch.drop(self.long_order("long"))
        self.wait_for_first_product(watch)
        watch.signal(signal.SIGINT)
        watch.wait_until(lambda: watch.diagnostics, "a word about the running order")
        watch.signal(signal.SIGINT)
        self.assertNotEqual(watch.end(), 0)
        self.assertTrue(order.is_dir())
        again = Watch(self.home)
        again.wait_for_lines("completed long ")

    def test_the_run_flag_outlives_the_process(self):
        watch = Watch(self.home)
        self.assertEqual(watch.stop(), 0)
        self.assertEqual(self.home.velmctl("defaults", "read", "velmProcessorIsRunning").stdout, "1\n")


class Surroundings(WatchTest):
    def test_an_order_that_cannot_be_moved_blocks_until_it_is_removed(self):
        watch = Watch(self.home)
        self.completed.rmdir()
        stuck = watch.drop(self.home.bundle("stuck"))
        line = watch.wait_for_lines("completed stuck ")[0]
        self.assertEqual(line, f"completed stuck -> {stuck}")
        watch.wait_until(lambda: watch.diagnostics, "a word about the stuck order")
        self.assertEqual(watch.diagnostics,
                         [f"the order {stuck} stays where it is and blocks the queue until it is removed: "
                          f"cannot move {stuck}: there is no folder {self.completed}"])
        waiting = self.list_orders(watch, "next", "waiting")
        self.assertTrue(stuck.is_dir() and waiting.is_dir())
        self.completed.mkdir()
        stuck.rename(self.home.path / "taken-away.velm_job")
        watch.wait_for_lines("completed waiting ")
        self.assertEqual(watch.stop(), 0)
        self.assertEqual(len([line for line in watch.lines if "stuck" in line]), 1, "it ran once")


if __name__ == "__main__":
    unittest.main()
