"""What the tests of velmctl share: a home folder of their own, photographs, orders, and a running watch."""

import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import threading
import time
import unittest

VELMCTL = os.environ["VELMCTL"]
SOURCE = pathlib.Path(os.environ["VELM_SOURCE"])

# The four quarters of every test photograph, as a person sees it upright: a turn or a mirroring shows at once.
RED, GREEN, BLUE, YELLOW = (220, 30, 30), (30, 170, 40), (30, 40, 200), (230, 210, 30)
QUARTERS = ((RED, GREEN), (BLUE, YELLOW))

# What ImageMagick does to an upright picture to store it under an EXIF orientation.
STORED = {1: [], 2: ["-flop"], 3: ["-rotate", "180"], 4: ["-flip"], 5: ["-transpose"], 6: ["-rotate", "-90"],
          7: ["-transverse"], 8: ["-rotate", "90"]}


def run(*command, data=None):
    """A helper program; its standard output."""
    return subprocess.run(command, input=data, stdout=subprocess.PIPE, check=True).stdout


def photograph(path, width=90, height=60, orientation=1):
    """Writes a JPEG that is seen upright as four coloured quarters of width by height in all."""
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    rows = []
    for y in range(height):
        left, right = QUARTERS[0] if y < height // 2 else QUARTERS[1]
        rows.append(bytes(left) * (width // 2) + bytes(right) * (width - width // 2))
    picture = b"P6 %d %d 255\n" % (width, height) + b"".join(rows)
    path.write_bytes(run("convert", "ppm:-", *STORED[orientation], "-sampling-factor", "1x1", "-quality", "95",
                         "jpg:-", data=picture))
    if orientation != 1:
        run("exiftool", "-q", "-overwrite_original", "-n", f"-Orientation={orientation}", str(path))
    return path


def decoded(path):
    """A picture file as the bytes of an upright PNG; of several pictures the first, of PDF at a pixel a point."""
    if str(path).endswith(".pdf"):
        return run("pdftocairo", "-png", "-singlefile", "-r", "72", str(path), "-")
    return run("convert", f"{path}[0]", "-auto-orient", "-strip", "png:-")


class Picture:
    """The pixels of a file, upright as its orientation says."""

    def __init__(self, path):
        data = run("convert", "-", "-depth", "8", "ppm:-", data=decoded(path))
        kind, width, height, depth, self.pixels = self.split(data)
        assert kind == b"P6" and depth == b"255"
        self.width, self.height = int(width), int(height)

    @staticmethod
    def split(data):
        fields, position = [], 0
        for _ in range(4):
            end = position
            while data[end:end + 1] not in (b" ", b"\n"):
                end += 1
            fields.append(data[position:end])
            position = end + 1
        return (*fields, data[position:])

    def at(self, x, y):
        """The colour at parts of the width and height."""
        column, row = int(x * self.width), int(y * self.height)
        start = (row * self.width + column) * 3
        return tuple(self.pixels[start:start + 3])


def near(one, other, limit=40):
    return all(abs(a - b) <= limit for a, b in zip(one, other))


def simple_template(width=90, height=60, extra=""):
    return (f'<data type="VELM_Template" version="1.0"><layout size="{{{width}, {height}}}">'
            f'<layer type="image" frame="{{{{0, 0}}, {{{width}, {height}}}}}"><key>image1</key></layer>{extra}'
            "</layout></data>")


def simple_package(name, output, template="Simple.xml", more=""):
    return (f'<data type="VELM_Package" version="1.0" name="{name}">'
            f'<template name="print"><filepath>{template}</filepath></template>'
            f'<output>{more}<print type="node"/><destination type="filepath"><filepath>{output}</filepath>'
            "<filename>originalimagename</filename></destination></output></data>")


def ticket(package="Simple", image="photo.jpg", more=""):
    return (f'<data type="VELM_Job" version="1.0"><package name="{package}"><image1>{image}</image1></package>{more}'
            "</data>")


class Home:
    """A folder of one test that velmctl takes as its home, with a package Simple that writes to `output`."""

    def __init__(self, case):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="velmctl-test-")).resolve()
        case.addCleanup(shutil.rmtree, self.path, ignore_errors=True)
        self.case = case
        self.output = self.path / "Output"
        self.orders = self.path / "Orders"
        self.write("VELM/Templates/Simple.xml", simple_template())
        self.write("VELM/Packages/Simple.xml", simple_package("Simple", self.output))

    def write(self, relative, content):
        path = self.path / relative
        path.parent.mkdir(parents=True, exist_ok=True)
        if isinstance(content, str):
            content = content.encode()
        path.write_bytes(content)
        return path

    def velmctl(self, *arguments):
        return subprocess.run([VELMCTL, "--home", str(self.path), *map(str, arguments)], capture_output=True,
                              text=True, timeout=300, cwd=self.path)

    def bundle(self, name, content=None, images=("photo.jpg",), folder=None):
        """A job bundle in Orders (or elsewhere); answers its path."""
        path = (folder or self.orders) / f"{name}.velm_job"
        path.mkdir(parents=True)
        for image in images:
            photograph(path / "Images" / image)
        (path / "job.xml").write_text(content if content is not None else ticket())
        return path

    def products(self):
        """The files in the output folder, oldest first."""
        found = []
        for path in self.output.rglob("*"):
            try:
                if path.is_file():
                    found.append((path.stat().st_mtime_ns, path))
            except FileNotFoundError:  # renamed meanwhile
                pass
        return [path for _, path in sorted(found)]

    def log(self):
        path = self.path / "Logs" / "velmctl.log"
        return path.read_text(errors="replace") if path.exists() else ""


class Watch:
    """A running `velmctl watch`, ended with the test at the latest."""

    def __init__(self, home, *arguments):
        self.home = home
        self.lines, self.diagnostics = [], []
        # In a session of its own, so that only this test's signals reach it.
        self.process = subprocess.Popen([VELMCTL, "--home", str(home.path), "watch", *arguments],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, cwd=home.path,
                                        start_new_session=True)
        self.readers = [threading.Thread(target=self.read, args=(stream, lines), daemon=True)
                        for stream, lines in ((self.process.stdout, self.lines),
                                              (self.process.stderr, self.diagnostics))]
        for reader in self.readers:
            reader.start()
        home.case.addCleanup(self.kill)
        folders = self.wait_for_lines("watching ", 2)
        self.bundles = pathlib.Path(next(line for line in folders if line.endswith("/Jobs/Pending"))[9:])
        self.tickets = pathlib.Path(next(line for line in folders if line.endswith("/Sorrel/Prints"))[9:])

    @staticmethod
    def read(stream, lines):
        with stream:
            for line in stream:
                lines.append(line.rstrip("\n"))

    def wait_until(self, condition, what, limit=120):
        end = time.monotonic() + limit
        while True:
            answer = condition()
            if answer:
                return answer
            if time.monotonic() > end:
                self.home.case.fail(f"{what} did not come; output {self.lines}, {self.diagnostics}; "
                                    f"log {self.home.log()[-4000:]}")
            time.sleep(0.02)

    def wait_for_lines(self, prefix, count=1):
        def found():
            lines = [line for line in self.lines if line.startswith(prefix)]
            return lines if len(lines) >= count else None
        return self.wait_until(found, f"{count} line(s) beginning with '{prefix}'")

    def wait_for_log(self, text, count=1):
        self.wait_until(lambda: self.home.log().count(text) >= count, f"{count} times '{text}' in the log")

    def drop(self, source):
        """Moves an order into the watched folder, whole at once."""
        target = (self.bundles if source.is_dir() else self.tickets) / source.name
        source.rename(target)
        return target

    def signal(self, number):
        self.process.send_signal(number)

    def end(self, limit=120):
        """The exit status, when all output has been read."""
        status = self.process.wait(limit)
        for reader in self.readers:
            reader.join()
        return status

    def stop(self):
        self.signal(signal.SIGTERM)
        return self.end()

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.end()


class CommandLineTest(unittest.TestCase):
    def setUp(self):
        self.home = Home(self)

    def assert_upright(self, path):
        """The four quarters stand where they belong."""
        picture = Picture(path)
        for row, y in ((0, 0.2), (1, 0.8)):
            for column, x in ((0, 0.2), (1, 0.8)):
                self.assertTrue(near(picture.at(x, y), QUARTERS[row][column]),
                                f"{path}: {picture.at(x, y)} at {x}, {y}, not {QUARTERS[row][column]}")
