"""Runs the examples of the README as they are printed, and compares stored tables to those that
their commands print; RAST names the binary."""

import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from test_chain import is_plain
from test_rast import RAST, RastTest, ppm, ramp

LIBRAST = os.environ.get("LIBRAST")
ROOT = Path(__file__).resolve().parent.parent.parent


def section(document, title):
    """The text under a heading, up to the next one of any level."""
    text = (ROOT / document).read_text(encoding="utf-8")
    return re.split(r"^#+ ", text.split(f"# {title}\n", 1)[1], 1, re.MULTILINE)[0]


def examples(text):
    """Indented blocks."""
    return [
        re.sub(r"^    ", "", block, flags=re.MULTILINE)
        for block in re.findall(r"(?:^    .*\n)+", text, re.MULTILINE)
    ]


class Examples(RastTest):
    def setUp(self):
        super().setUp()
        command = self.folder / "bin" / "rast"
        command.parent.mkdir()
        command.symlink_to(RAST)
        self.environment = os.environ | {"PATH": f"{command.parent}:{os.environ['PATH']}"}
        page = ppm(300, 200, ramp(300 * 200 * 3))
        self.file("page.ppm", page)
        self.file("logo.ppm", ppm(40, 30, ramp(40 * 30 * 3)[::-1]))
        pages = [ppm(31 + i, 20 + i % 3, ramp((31 + i) * (20 + i % 3) * 3)) for i in range(35)]
        self.file("job.ppm", b"".join(pages))

    def shell(self, command, code=0):
        done = subprocess.run(
            ["bash", "-ec", command], cwd=self.folder, env=self.environment, timeout=300,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
        )
        self.assertEqual(done.returncode, code, (command, done.stderr.decode()))
        return done.stdout

    def test_command_line(self):
        (block,) = examples(section("README.md", "Use from the command line"))
        lines = block.splitlines()
        self.assertEqual(len(lines), 11)
        for line in lines:
            with self.subTest(line):
                if "pdftoppm" in line and not shutil.which("pdftoppm"):
                    self.skipTest("needs pdftoppm")
                if "document.pdf" in line:
                    from test_print_filter import pdf

                    self.file("document.pdf", pdf([b"1 0 0", b"0 0 1"]))
                before = set(os.listdir(self.folder))
                printed = self.shell(line, 1 if line.startswith("rast compare") else 0)
                made = set(os.listdir(self.folder)) - before
                last = line.split()[-1]
                if line.startswith(("rast info", "rast help")):
                    self.assertTrue(printed)
                else:
                    self.assertEqual(made, {last})
                    self.assertTrue(self.shell(f"rast info {last}").endswith((b"page\n", b"pages\n")))

    def installation_as_printed(self):
        """Builds everything, so it is no test of every day: the suite of installation names it."""
        text = section("README.md", "Use from C")
        self.file("example.c", re.search("```c\n(.*?)```", text, re.DOTALL)[1].encode())
        for path in ROOT.iterdir():
            if path.name not in ("build", ".git"):
                (self.folder / path.name).symlink_to(path)
        self.environment["HOME"] = str(self.folder / "home")
        (block,) = examples(text)
        self.assertTrue(self.shell(block).endswith(b"\n0\n"))

    @unittest.skipUnless(LIBRAST and is_plain(LIBRAST), "needs a plain library")
    def test_use_from_c(self):
        text = section("README.md", "Use from C")
        self.file("example.c", re.search("```c\n(.*?)```", text, re.DOTALL)[1].encode())
        # As printed, but for where the library is.
        (compiled,) = (line for line in text.splitlines() if line.startswith("    cc "))
        found = f"-I{ROOT}/include {LIBRAST}"
        self.environment["LD_LIBRARY_PATH"] = os.path.dirname(LIBRAST)
        printed = self.shell(re.sub(r"\$\(pkg-config .*?\)", found, compiled.strip()))
        self.assertEqual(printed, b"0\n")

    @unittest.skipUnless(shutil.which("arm-linux-gnueabihf-gcc"), "needs the cross compiler")
    def test_for_a_controller(self):
        (block,) = examples(section("README.md", "For a controller"))
        for name in ("CMakeLists.txt", "cmake", "docs", "examples", "include", "packaging", "src"):
            (self.folder / name).symlink_to(ROOT / name)
        self.shell(block)
        kind = subprocess.run(
            ["readelf", "-h", self.folder / "stamp"], stdout=subprocess.PIPE, check=True
        ).stdout
        self.assertIn(b"ARM", kind)

    @unittest.skipUnless(shutil.which("parallel"), "needs GNU parallel")
    def test_several_cores(self):
        (block,) = examples(section("README.md", "Jobs for several cores or machines"))
        self.shell(block)
        once = self.shell("rast chain 'satadjust raise : rotate cw' job.ppm")
        self.assert_same((self.folder / "turned.ppm").read_bytes(), once)
        self.file("job.ppm", (self.folder / "job.ppm").read_bytes() + ppm(2, 1, b"short"))
        done = subprocess.run(
            ["bash", "-c", block], cwd=self.folder, env=self.environment, timeout=60,
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False,
        )
        self.assertNotEqual(done.returncode, 0)


class Tables(unittest.TestCase):
    def report(self, arguments):
        done = subprocess.run(
            ["bash", "-ec", f"bench/report.py {arguments}"], cwd=ROOT, timeout=60,
            stdout=subprocess.PIPE, check=True,
        )
        return done.stdout.decode()

    def test_operations(self):
        (block,) = examples(section("docs/performance.md", "Operations"))
        commands = re.findall("bench/report.py (.*) >(.*)", block)
        self.assertEqual(len(commands), 3)
        for arguments, document in commands[1:]:  # the first one needs a run
            with self.subTest(document):
                stored = (ROOT / document).read_text(encoding="utf-8")
                self.assertEqual(self.report(arguments), stored)

    def test_summary(self):
        microseconds = {
            "shift/avx2/page": (2, 4), "shift/definition/page": (6, 4), "shift/memcpy/page": (2, 2),
            "shift/opencv/page": (1, 2), "shift/baseline/tile": (0.1, 0.3),
            "shift/definition/tile": (0.2, 0.3), "shift/avx2/band": (5, 5),
        }
        runs = [
            {"name": f"{name}/iterations:1/manual_time", "family_index": i, "run_type": "iteration",
             "repetition_index": k, "real_time": time, "bytes": 8000}
            for i, (name, times) in enumerate(microseconds.items()) for k, time in enumerate(times)
        ]
        run = {"context": {"date": "2026-01-02T03:04:05+00:00"}, "benchmarks": runs[::-1]}
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            json.dump(run, file)
            file.flush()
            text = self.report(f"summary {file.name} --processor 'One (1)' --commit 1234567")
        self.assertEqual(json.loads(text), {
            "processor": "One (1)", "commit": "1234567", "date": "2026-01-02",
            "rows": [
                {"operation": "shift", "level": "baseline", "size": "tile", "ns": 200,
                 "definition": 1.5},
                {"operation": "shift", "level": "avx2", "size": "page", "GB/s": 3.0, "memcpy": 0.75,
                 "definition": 2.0, "opencv": 0.5},
                {"operation": "shift", "level": "avx2", "size": "band"},
            ],
        })
        for row in json.loads(text)["rows"]:
            self.assertIn(f"\n  {json.dumps(row)}", text)


if __name__ == "__main__":
    unittest.main()
