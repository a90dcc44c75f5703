"""The log of velmctl: one file for many processes, and never in the work's way."""

import os
import re
import signal
import subprocess

from support import VELMCTL, CommandLineTest, Watch

LIMIT = 10_485_760


class Log(CommandLineTest):
    def logs(self):
        return self.home.path / "Logs" / "velmctl.log", self.home.path / "Logs" / "velmctl.old.log"

    def test_processes_side_by_side_lose_no_line_when_one_turns_the_file_over(self):
        log, old = self.logs()
        log.parent.mkdir()
        with open(log, "wb") as file:  # a hole: no disk is taken
            file.truncate(LIMIT - 3000)
            file.seek(0, os.SEEK_END)
            file.write(b"\n")
        running = [subprocess.Popen([VELMCTL, "--home", str(self.home.path), "init"], stdout=subprocess.DEVNULL)
                   for _ in range(12)]
        self.assertEqual([process.wait(120) for process in running], [0] * len(running))
        self.assertGreaterEqual(old.stat().st_size, LIMIT)
        self.assertLess(log.stat().st_size, LIMIT // 2)
        with open(old, "rb") as file:
            file.seek(LIMIT - 4000)
            text = (file.read() + log.read_bytes()).decode(errors="replace")
        for process in running:
            lines = re.findall(rf"velmctl\[{process.pid}:\d+\] (.*)", text)
            self.assertIn("+[Logger setLogFile:]", lines[0])
            self.assertIn("not overwritting forced pref...", lines, "the last word of a launch")
        self.assertEqual(text.count("| Physical memory: "), len(running), "each run's report")

    def test_a_log_that_takes_nothing_stops_nothing(self):
        log, _ = self.logs()
        log.parent.write_text("a file in the folder's place")
        self.assertIn("cannot write the log", self.home.velmctl("process", self.home.bundle("order")).stderr)
        log.parent.unlink()
        log.parent.mkdir()
        for name, make, told in (("a full disk", lambda: log.symlink_to("/dev/full"), "No space left"),
                                 ("a FIFO that nobody reads", lambda: os.mkfifo(log), "")):
            with self.subTest(name):
                make()
                answer = self.home.velmctl("process", self.home.bundle(f"order {name}"))
                self.assertEqual(answer.returncode, 0)
                self.assertEqual(answer.stderr.count("cannot write the log"), 1 if told else 0)
                self.assertIn(told, answer.stderr)
                log.unlink()
        self.assertEqual(len(self.home.products()), 3)

    def test_a_running_engine_goes_on_in_a_new_file_and_its_last_words_reach_the_terminal(self):
        log, _ = self.logs()
        watch = Watch(self.home)
        watch.wait_for_log("remotely set")
        log.rename(log.with_name("taken away"))
        watch.drop(self.home.bundle("first"))
        watch.wait_for_lines("completed first")
        watch.wait_for_log('Package "Simple" render commencing')
        watch.signal(signal.SIGABRT)
        self.assertEqual(watch.end(), -signal.SIGABRT)
        told = "\n".join(watch.diagnostics)
        self.assertIn("The process ends by a fault", told)
        self.assertIn(self.home.log().splitlines()[-1], told)

    def test_a_second_engine_names_the_first_also_after_a_violent_end(self):
        first = Watch(self.home)
        first.kill()
        second = Watch(self.home)
        answer = self.home.velmctl("watch")
        self.assertEqual(answer.returncode, 1)
        self.assertIn(f"another velmctl watch (process {second.process.pid})", answer.stderr)
        self.assertEqual(second.stop(), 0)
