"""velmctl watch: the engine on real folders."""

import os
import signal
import time
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
        watch.drop(self.home.bundle("next"))
        watch.wait_for_lines("completed next ")
        self.assertTrue(growing.is_dir() and empty.is_dir(), "what can't be parsed stays where it is")
        with open(growing / "job.xml", "a") as ticket_file:
            ticket_file.write(whole[50:])
        watch.wait_for_lines("completed growing ")
        self.assertTrue(empty.is_dir())

    def test_a_bundle_that_is_copied_in_slowly(self):
        watch = Watch(self.home)
        target = watch.bundles / "slow.velm_job"
        target.mkdir()
        time.sleep(1.5)
        (target / "Images").mkdir()
        photograph(target / "Images/photo.jpg")
        time.sleep(1.5)
        (target / "job.xml").write_text(ticket())
        watch.wait_for_lines("completed slow ")
        self.assertEqual(len(self.home.products()), 1)

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
        first = watch.drop(self.home.bundle("first"))
        watch.wait_for_log("change to jobs in")
        time.sleep(1.5)
        self.assertTrue(first.is_dir(), "while paused nothing runs")
        self.home.velmctl("defaults", "write", "velmProcessorIsRunning", "yes")
        watch.wait_for_lines("completed first ")
        self.home.velmctl("defaults", "write", "velmProcessorIsRunning", "no")
        # The first order's going is one change of the list, the second one's coming another.
        second = watch.drop(self.home.bundle("second"))
        watch.wait_for_log("Lets rescan", 3)
        time.sleep(1.5)
        self.assertTrue(second.is_dir())
        self.home.velmctl("defaults", "write", "velmProcessorIsRunning", "yes")
        watch.wait_for_lines("completed second ")

    def test_a_listed_order_that_is_removed_does_not_run(self):
        watch = Watch(self.home, "--paused")
        gone = watch.drop(self.home.bundle("gone"))
        watch.wait_for_log("Lets rescan")
        gone.rename(self.home.path / "taken-away.velm_job")
        watch.drop(self.home.bundle("stays"))
        self.home.velmctl("defaults", "write", "velmProcessorIsRunning", "yes")
        watch.wait_for_lines("completed stays ")
        self.assertEqual(watch.stop(), 0)
        self.assertFalse(any(" gone " in line for line in watch.lines), watch.lines)


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

    def test_an_order_that_was_cut_off_runs_again_and_leaves_only_whole_files(self):
        watch = Watch(self.home)
        order = watch.drop(self.long_order("long"))
        self.wait_for_first_product(watch)
        watch.kill()
        self.assertTrue(order.is_dir())
        for product in self.home.products():
            if product.suffix == ".jpeg":
                self.assert_whole_jpeg(product)
        before = len([path for path in self.home.products() if path.suffix == ".jpeg"])
        again = Watch(self.home)
        again.wait_for_lines("completed long ")
        whole = [path for path in self.home.products() if path.suffix == ".jpeg"]
        self.assertEqual(len(whole), before + 24, "nothing is overwritten")
        for product in whole:
            self.assert_whole_jpeg(product)

    def test_the_run_flag_outlives_the_process(self):
        watch = Watch(self.home)
        self.assertEqual(watch.stop(), 0)
        self.assertEqual(self.home.velmctl("defaults", "read", "velmProcessorIsRunning").stdout, "1\n")


class Surroundings(WatchTest):
    def test_a_second_watch_on_the_same_home_is_refused(self):
        watch = Watch(self.home)
        answer = self.home.velmctl("watch")
        self.assertEqual((answer.returncode, answer.stdout), (1, ""))
        self.assertIn("another velmctl watch", answer.stderr)
        watch.drop(self.home.bundle("order"))
        watch.wait_for_lines("completed order ")

    def test_an_order_that_cannot_be_moved_blocks_until_it_is_removed(self):
        watch = Watch(self.home)
        self.completed.rmdir()
        stuck = watch.drop(self.home.bundle("stuck"))
        line = watch.wait_for_lines("completed stuck ")[0]
        self.assertEqual(line, f"completed stuck -> {stuck}")
        watch.wait_until(lambda: watch.diagnostics, "a word about the stuck order")
        self.assertIn(str(stuck), watch.diagnostics[0])
        listed = self.home.log().count("Lets rescan")
        waiting = watch.drop(self.home.bundle("waiting"))
        watch.wait_for_log("Lets rescan", listed + 1)
        time.sleep(1.5)
        self.assertTrue(stuck.is_dir() and waiting.is_dir())
        self.completed.mkdir()
        stuck.rename(self.home.path / "taken-away.velm_job")
        watch.wait_for_lines("completed waiting ")
        self.assertEqual(watch.stop(), 0)
        self.assertEqual(len([line for line in watch.lines if "stuck" in line]), 1, "it ran once")

    def test_the_engine_goes_on_after_each_bad_order(self):
        watch = Watch(self.home)
        self.home.write("VELM/Packages/Occupied.xml", simple_package("Occupied", self.home.path / "occupied/inner"))
        self.home.write("occupied", "a file")
        corrupt = self.home.bundle("corrupt", ticket(image="bad.jpg"), images=())
        (corrupt / "Images").mkdir()
        (corrupt / "Images/bad.jpg").write_bytes(b"")
        for order in (corrupt, self.home.bundle("occupied", ticket("Occupied")),
                      self.home.bundle("missing", ticket("Nowhere"))):
            watch.drop(order)
        watch.wait_for_lines("failed ", 3)
        watch.drop(self.home.bundle("good"))
        watch.wait_for_lines("completed good ")
        self.assertEqual(len(self.home.products()), 1)
        self.assertEqual(len(list(self.failed.iterdir())), 3)


if __name__ == "__main__":
    unittest.main()
