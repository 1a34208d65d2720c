"""The guide to print queues, walked with PPD files and drivers of packages, by the interpreters
alone and through a scheduler; RAST names the binary."""

import os
import re
import shlex
import shutil
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

from raster import pages_of
from test_print_filter import FILTERS, GUIDE, pdf
from test_rast import RAST, RUN_TIME

SOURCES = Path("/usr/share/cups/drv")
GUTENPRINT = sorted(Path("/usr/lib/cups/driver").glob("gutenprint.*"))
SCHEDULER = shutil.which("cupsd", path="/usr/sbin:/usr/bin")
RASTERIZERS = ("gstoraster", "pdftoraster")
OPTION = re.sub("^    ", "", re.search(r"(    \*OpenUI[^$]*?\*CloseUI.*\n)", GUIDE)[1], flags=re.M)
CHAINS = dict(re.findall(r'\*rast-chain (\w+).*"(?:% )?(.*)"', OPTION))
DOCUMENT = pdf([b"1 0 0", b"0 0.5 1"])


def inside(pattern):
    """Of a line of the guide that stands by itself."""
    return re.search(rf"^    {pattern}$", GUIDE, re.MULTILINE)[1]


def ppd_files():
    """Those of a driver with all kinds of raster, of drivers of 1 bit, and of driverless printers."""
    with tempfile.TemporaryDirectory() as folder:
        for source in ("sample.drv", "cupsfilters.drv"):
            subprocess.run(["ppdc", "-d", folder, SOURCES / source], check=True,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        names = {"deskjet": "deskjet", "matrix": "epson24", "plotter": "dsgnjt1050cpcl",
                 "driverless": "pwgrast"}
        texts = {name: Path(folder, f"{file}.ppd").read_text(encoding="latin-1")
                 for name, file in names.items()}
    driver = GUTENPRINT[0]
    made = subprocess.run([driver, "cat", f"{driver.name}://escp2-xp240/expert"], check=True,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    return texts | {"inkjet": made.stdout.decode("latin-1")}


@unittest.skipUnless(GUTENPRINT and shutil.which("ppdc") and SCHEDULER
                     and all((FILTERS / name).exists() for name in RASTERIZERS),
                     "needs a scheduler, drivers and the filters of a print queue")
class QueueTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.ppds = ppd_files()

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        # Filters run as another user.
        self.folder.chmod(0o755)

    def file(self, name, content):
        path = self.folder / name
        path.write_bytes(content if isinstance(content, bytes) else content.encode("latin-1"))
        return path

    def run_filters(self, ppd, options, *filters, content=DOCUMENT, **environment):
        environment = os.environ | {"PPD": str(ppd), "CONTENT_TYPE": "application/pdf"} | environment
        for name in filters:
            done = subprocess.run(
                ["queue", "1", "u", "t", "1", options], executable=name, input=content,
                stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment, timeout=120,
                check=False,
            )
            self.assertEqual(done.returncode, 0, done.stderr.decode()[-1000:])
            content = done.stdout
        return content


class Interpreters(QueueTest):
    """What they make of the guide's option in a PPD file."""

    SMALL = "PageSize=A6"

    def rendered(self, ppd, rasterizer, options=""):
        path = self.file("queue.ppd", ppd)
        filters = (FILTERS / "pdftopdf", FILTERS / rasterizer)
        return self.run_filters(path, f"{self.SMALL} {options}", *filters)

    def test_option_changes_no_page(self):
        for name, ppd in self.ppds.items():
            for rasterizer in RASTERIZERS:
                plain = self.rendered(ppd, rasterizer)
                self.assertEqual(len(pages_of(plain)), 2)
                for options in ("", *(f"rast-chain={choice}" for choice in CHAINS)):
                    with self.subTest(ppd=name, rasterizer=rasterizer, options=options):
                        other = self.rendered(ppd + OPTION, rasterizer, options)
                        for (fields, samples), (before, same) in zip(
                            pages_of(other), pages_of(plain), strict=True
                        ):
                            self.assertEqual(fields, before)
                            self.assertTrue(samples == same)

    def test_chain_as_code_is_noticed(self):
        """It changes pages, and the filter rejects the PPD file."""
        code = OPTION.replace('"% ', '"')
        shape = ("cupsWidth", "cupsHeight", "cupsBitsPerColor", "cupsColorSpace", "HWResolution")
        for name, ppd in self.ppds.items():
            for rasterizer in RASTERIZERS:
                with self.subTest(ppd=name, rasterizer=rasterizer):
                    shapes = [
                        [fields[field] for field in shape]
                        for text in (ppd, ppd + code)
                        for fields, _ in pages_of(self.rendered(text, rasterizer))[:1]
                    ]
                    self.assertNotEqual(*shapes)
            done = subprocess.run(
                ["queue", "1", "u", "t", "1", ""], executable=self.filter(), input=b"",
                env=os.environ | {"PPD": str(self.folder / "queue.ppd")}, stdout=subprocess.PIPE,
                stderr=subprocess.PIPE, check=False,
            )
            self.assertEqual(done.returncode, RUN_TIME, done.stderr)
            self.assertIn(b'"% gray"', done.stderr)

    def filter(self):
        path = self.folder / "rasttoraster"
        if not path.exists():
            path.symlink_to(RAST)
        return path

    def test_chain_behind_an_interpreter(self):
        """The page is what the command makes of it, in the raster that the queue takes."""
        for name in ("inkjet", "driverless"):
            for rasterizer in RASTERIZERS:
                with self.subTest(ppd=name, rasterizer=rasterizer):
                    plain = self.rendered(self.ppds[name] + OPTION, rasterizer)
                    made = self.run_filters(self.folder / "queue.ppd", "", self.filter(),
                                            content=plain)
                    self.assertEqual(made[:4], plain[:4])
                    chain = CHAINS[re.search("Defaultrast-chain: (.*)", OPTION)[1]]
                    kind = "pwg" if plain.startswith(b"RaS2") else "cups"
                    expected = subprocess.run(
                        [RAST, "chain", chain, "--format", kind], input=plain, check=True,
                        stdout=subprocess.PIPE,
                    ).stdout
                    self.assertTrue(made == expected)
                    self.assertFalse(made == plain)


class Scheduler(QueueTest):
    """Of the test's own, in folders of its own, that listens to a socket in them alone."""

    def setUp(self):
        super().setUp()
        for name in ("etc", "bin/filter", "data", "spool/tmp", "cache", "run", "log"):
            (self.folder / name).mkdir(parents=True)
        for known in Path("/usr/lib/cups").iterdir():
            if known.name != "filter":
                (self.folder / "bin" / known.name).symlink_to(known)
        for known in FILTERS.iterdir():
            (self.folder / "bin/filter" / known.name).symlink_to(known)
        # Not a link: the scheduler starts no filter from a folder that others may write.
        shutil.copy(RAST, self.folder / "bin/filter/rasttoraster")
        for known in Path("/usr/share/cups").iterdir():
            (self.folder / "data" / known.name).symlink_to(known)
        for name in ("local.types", "local.convs"):
            line = re.search(rf"# /etc/cups/{re.escape(name)}\n *(.*\n)", GUIDE)[1]
            self.file(f"etc/{name}", line)
        self.file("etc/cupsd.conf", f"""Listen {self.folder}/run/socket
LogLevel debug
MaxLogSize 0
PageLogFormat %p %j %P %C
<Location />
  Order allow,deny
  Allow all
</Location>
<Policy default>
  <Limit All>
    Order allow,deny
  </Limit>
</Policy>
""")
        folders = {"ServerRoot": "etc", "ServerBin": "bin", "DataDir": "data", "CacheDir": "cache",
                   "RequestRoot": "spool", "TempDir": "spool/tmp", "StateDir": "run",
                   "ErrorLog": "log/error_log", "AccessLog": "log/access_log",
                   "PageLog": "log/page_log", "Printcap": "run/printcap"}
        lines = [f"{key} {self.folder / value}\n" for key, value in folders.items()]
        self.file("etc/cups-files.conf", "FileDevice Yes\nSystemGroup root\n" + "".join(lines))
        self.environment = os.environ | {"CUPS_SERVER": str(self.folder / "run/socket")}
        settings = self.folder / "etc"
        scheduler = subprocess.Popen(
            [SCHEDULER, "-f", "-c", settings / "cupsd.conf", "-s", settings / "cups-files.conf"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        )
        self.addCleanup(scheduler.wait, 20)
        self.addCleanup(scheduler.terminate)
        self.wait_for(lambda: (self.folder / "run/socket").exists())
        self.document = self.file("document.pdf", DOCUMENT)

    def wait_for(self, condition):
        end = time.monotonic() + 120
        while not condition():
            if time.monotonic() > end:
                self.fail(self.log()[-3000:])
            time.sleep(0.1)

    def log(self):
        return (self.folder / "log/error_log").read_text(encoding="utf-8", errors="replace")

    def call(self, *command):
        done = subprocess.run(
            list(map(str, command)), stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
            env=self.environment, cwd=self.folder, timeout=60,
        )
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.decode()

    def add_queue(self, name, ppd):
        self.call("lpadmin", "-p", name, "-E", "-v", f"file://{self.folder}/{name}.printed",
                  "-P", self.file(f"{name}.ppd", ppd))

    def printed(self, queue, *options):
        """What the printer gets, and the log of the job."""
        # Small and coarse, for a test's sake.
        common = ("-o", "PageSize=A6", "-o", "Resolution=360x180dpi", "-o", "StpQuality=Economy")
        path = self.folder / f"{queue}.printed"
        path.unlink(missing_ok=True)
        job = self.call("lp", "-d", queue, *common, *options, self.document).split()[3]
        lines = re.compile(rf"^.*\[Job {job.rsplit('-', 1)[1]}\] (.*\n)", re.MULTILINE)
        log = lambda: "".join(lines.findall(self.log()))
        self.wait_for(lambda: re.search("^Job (completed|stopped)", log(), re.MULTILINE))
        return path.read_bytes() if path.exists() else b"", log()

    def pages_logged(self):
        lines = (self.folder / "log/page_log").read_text(encoding="utf-8").splitlines()
        return [line.split(maxsplit=2)[::2] for line in lines]

    def filtered_ppd(self, name):
        """With the guide's lines."""
        old = inside(r'(\*cupsFilter: "application/vnd.*?) 0 .*')
        new = inside(r'(\*cupsFilter: "application/x-filtered.*?) 0 .*')
        ppd, count = re.subn(
            re.escape(old).replace(r":\ ", r":\s*") + r"(?= \d+ raster)", new, self.ppds[name]
        )
        if count == 0:
            old = inside(r'(\*cupsFilter2: "application/vnd.*)')
            new = inside(r'(\*cupsFilter2: "application/x-filtered.*)')
            count = ppd.count(old)
            ppd = ppd.replace(old, new)
        self.assertEqual(count, 1)
        return ppd + OPTION

    def check_queue(self, name):
        self.add_queue("plain", self.ppds[name])
        self.add_queue("queue", self.filtered_ppd(name))
        untouched, _ = self.printed("plain")
        self.assertGreater(len(untouched), 1000)
        made = {}
        for choice, chain in CHAINS.items():
            made[choice], log = self.printed("queue", "-o", f"rast-chain={choice}")
            self.assertIn(f"chain: {chain or 'none'}\n", log)
            self.assertIn("pages done: 2\n", log)
        self.assertTrue(made["None"] == untouched)
        self.assertEqual(len(set(made.values())), len(made))
        default, _ = self.printed("queue")
        self.assertTrue(default == made[re.search("Defaultrast-chain: (.*)", OPTION)[1]])
        self.call("lpadmin", "-p", "queue", "-o", "rast-chain=Light")
        self.assertTrue(self.printed("queue")[0] == made["Light"])

        command = shlex.split(inside("(lp -d queue .*) document.pdf"))
        short, log = self.printed("queue", *command[3:])
        self.assertNotIn(short, made.values())
        chain = command[-1].split("=", 1)[1]
        self.assertIn(f"chain: {chain}\n", log)
        spaced = re.search(r'`(-o "rast-chain=.*?)`', GUIDE)[1]
        self.assertTrue(self.printed("queue", *shlex.split(spaced))[0] == short)
        # Each page is counted once, as without the filter.
        self.assertEqual({tuple(job) for job in self.pages_logged()},
                         {("plain", "total 2"), ("queue", "total 2")})

    def test_inkjet(self):
        self.check_queue("inkjet")
        other, log = self.printed("queue", "-o", "ColorModel=KCMY")
        self.assertEqual(other, b"")
        choice = re.search(r"KCMY.* is not supported; .*: (-o \S+)", log)[1]
        self.assertTrue(self.printed("queue", *shlex.split(choice))[0]
                        == self.printed("queue")[0])

    def test_driverless(self):
        self.check_queue("driverless")
        self.assertTrue(self.printed("queue")[0].startswith(b"RaS2"))

    def test_by_hand(self):
        """The guide's commands that need no scheduler."""
        self.add_queue("queue", self.filtered_ppd("driverless"))
        (self.folder / "programs").mkdir()
        (self.folder / "programs/rast").symlink_to(RAST)
        environment = self.environment | {
            "HOME": str(self.folder), "PATH": f"{self.folder}/programs:{os.environ['PATH']}",
        }
        lines = re.search(r"(    export PPD=[^#]*?rast info\n)", GUIDE)[1]
        for place, own in (("/etc/cups", "etc"), (str(FILTERS), "bin/filter")):
            self.assertIn(place, lines)
            lines = lines.replace(place, str(self.folder / own))
        done = subprocess.run(["sh", "-c", f"set -e\n{lines}"], env=environment, check=True,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertRegex(done.stdout.decode(), r"\A(page \d: PWG raster.*\n){2}2 pages\n\Z")
        command = shlex.split(re.search("`(cupsfilter .*?)`", GUIDE)[1])
        command[1:1] = ["-c", self.folder / "etc/cups-files.conf"]
        done = subprocess.run(command, env=environment, cwd=self.folder, check=False, timeout=60,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(done.returncode, 0, done.stderr.decode()[-3000:])
        self.assertEqual(len(pages_of(done.stdout)), 2)

    def test_one_bit(self):
        self.add_queue("queue", self.filtered_ppd("matrix"))
        _, log = self.printed("queue")
        self.assertIn("1-bit raster is not supported; render it with 8 bits a color\n", log)


if __name__ == "__main__":
    unittest.main()
