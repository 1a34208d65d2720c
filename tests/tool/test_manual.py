"""Manual pages and completion; RAST names the binary, MANUALS the folder of the pages made."""

import os
import pty
import re
import select
import shlex
import shutil
import signal
import subprocess
import sys
import time
import unittest
from pathlib import Path

from test_rast import DONE, RAST, RastTest, pgm, ppm, ramp

ROOT = Path(__file__).resolve().parent.parent.parent
HEADERS = {"rast.h": ("librast", 12), "rast_chain.h": ("librastchain", 11)}  # functions of each
MANUAL = ROOT / "docs" / "manual" / "manual.py"
COMPLETION = ROOT / "tool" / "completion"
MANUALS = os.environ.get("MANUALS") and Path(os.environ["MANUALS"])
HAS_FILTER_PAGE = bool(MANUALS) and (MANUALS / "rasttoraster.8").exists()


def words(text):
    return " ".join(text.split())


@unittest.skipUnless(shutil.which("mandoc"), "needs mandoc")
class ManualTest(RastTest):
    def rendered(self, source):
        """As one line of words, and without a complaint of the formatter."""
        lint = subprocess.run(
            ["mandoc", "-Tlint", "-W", "warning"], input=source, stdout=subprocess.PIPE, check=False
        )
        complaints = [x for x in lint.stdout.decode().splitlines() if "missing date" not in x]
        self.assertEqual(complaints, [])
        page = subprocess.run(
            ["mandoc", "-Tutf8", "-Owidth=1000"], input=source, stdout=subprocess.PIPE, check=True
        ).stdout.decode()
        return words(re.sub(".\x08", "", page))

    def assert_has(self, page, part):
        self.assertTrue(part in page, f"not there: {part}")

    def made(self, *arguments):
        options = ("--version", "1.2.3", "--folder", self.folder / "man")
        return subprocess.run(
            [sys.executable, MANUAL, *options, *arguments],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False, timeout=20,
        )

    def page(self, name):
        done = self.run_rast("help", "--json")
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        told = self.file("help.json", done.stdout)
        made = self.made("command", told, *(["--filter"] if HAS_FILTER_PAGE else []))
        self.assertEqual((made.returncode, made.stderr), (0, b""))
        (path,) = (self.folder / "man").glob(f"{name}.[17]")
        return path.read_bytes()

    def help(self, *names):
        return self.run_rast("help", *names).stdout.decode()

    def operations(self):
        listed = self.run_rast("ops").stdout.decode()
        return [line.split(":")[0] for line in listed.splitlines()]


class CommandPages(ManualTest):
    def assert_told(self, text, page):
        """Every part of a help text; its columns are another matter."""
        for part in re.split(r"\n\n|\n(?=  )|  +", text):
            part = words(part)
            if part and not part.endswith(":") and "usage:" not in part:
                self.assert_has(page, part)

    def test_operations(self):
        page = self.rendered(self.page("rast-ops"))
        self.assertEqual(len(self.operations()), 12)
        for name in self.operations():
            with self.subTest(name):
                text = self.help(name)
                self.assert_has(page, words(text.split("\n")[0].removeprefix("usage: ")))
                about, _, rest = text.split("\n\n", 1)[1].partition("\nOptions:\n")
                summary, about = about.split("\n", 1)
                self.assert_has(page, words(summary.split(": ", 1)[1]))
                self.assert_told(about.replace("\nParameters:\n", "\n\n"), page)
                self.assert_has(page, words(rest.split("Example:\n")[1].split("\n")[0]))

    def test_command(self):
        page = self.rendered(self.page("rast"))
        usage, about, listed, others, files, exits = self.help().split("\n\n")
        for line in usage.removeprefix("usage:").splitlines():
            self.assert_has(page, words(line))
        for part in (about, listed, others, files, exits):
            self.assert_told(part, page)
        for name in re.findall(r"^  (\w+)", others, re.MULTILINE):
            with self.subTest(name):
                text = self.help(name)
                about, options = text.split("\n\n", 1)[1].split("\nOptions:\n")
                self.assert_told(about.split("\n", 1)[1], page)
                self.assert_told(options.split("\n\nExample:")[0], page)
                self.assert_has(page, words(options.split("Example:\n")[1].split("\n")[0]))

    def test_examples_as_printed(self):
        self.file("in.ppm", ppm(12, 9, ramp(12 * 9 * 3)))
        self.file("in.pgm", pgm(12, 9, ramp(12 * 9)))
        self.file("logo.ppm", ppm(4, 3, ramp(4 * 3 * 3)))
        examples = []
        for name in ("rast-ops", "rast"):
            found = re.findall(r"\.EX\n(.*?)\n\.EE", self.page(name).decode(), re.DOTALL)
            examples += [x.replace("\\-", "-").replace("\\(aq", "'") for x in found]
        self.assertEqual(len(examples), len(self.operations()) + 4)
        for example in examples:
            with self.subTest(example):
                command, *arguments = shlex.split(example)
                self.assertEqual(command, "rast")
                done = self.run_rast(*arguments, cwd=self.folder)
                expected = 1 if arguments[0] == "compare" else DONE
                self.assertEqual((done.returncode, done.stderr), (expected, b""))

    @unittest.skipUnless(MANUALS, "needs RAST_MANUALS")
    def test_pages_made_by_the_build(self):
        version = self.run_rast("--version").stdout.decode().split()[1]
        for name in ("rast.1", "rast-ops.7"):
            built = (MANUALS / name).read_text(encoding="utf-8")
            self.assertIn(f'"rast {version}"', built)
            self.assertEqual(built, self.page(name[:-2]).decode().replace("1.2.3", version))

    @unittest.skipUnless(HAS_FILTER_PAGE, "needs CUPS and lowdown")
    def test_print_filter(self):
        page = self.rendered((MANUALS / "rasttoraster.8").read_bytes())
        guide = (ROOT / "docs" / "print-queue.md").read_text(encoding="utf-8")
        self.assert_has(page, "NAME rasttoraster - raster filters in a print queue")
        self.assertNotIn("rast in a print queue", page.replace("filters in", ""))
        plain = page.replace("’", "'")
        for line in guide.splitlines()[1:]:
            for part in re.split(r"`|\*\*|[<>\[\]]", line.lstrip("#")):
                self.assert_has(plain, words(part))


class FunctionPages(ManualTest):
    def made_of(self, name, text):
        return self.made("functions", self.file(name, text.encode()))

    def text(self, name):
        return (ROOT / "include" / name).read_text(encoding="utf-8")

    def assert_comment(self, page, comment):
        for line in comment.splitlines():
            line = re.sub(r"@param (\w+) |@return |@file|- (?=RAST_)", r"\1 ", line.strip(" *"))
            self.assert_has(page, words(line))

    def test_each_tells_what_its_header_tells(self):
        for name, (library, count) in HEADERS.items():
            shutil.rmtree(self.folder / "man", ignore_errors=True)
            text = self.text(name)
            self.assertEqual(self.made_of(name, text).returncode, 0)
            prototypes = {}
            for block in text.split("\n/**")[1:]:
                comment, declaration = block.split("*/", 1)
                declaration = declaration.strip()
                if re.match(r"(uint32_t|size_t|void) ", declaration):
                    function = re.search(r"(\w+)\(", declaration)[1]
                    prototypes[function] = (comment, declaration.split(";")[0])
            made = {path.stem: path for path in (self.folder / "man").iterdir()}
            self.assertEqual(set(made), {*prototypes, name})
            self.assertEqual(len(prototypes), count)
            for function, (comment, declaration) in prototypes.items():
                with self.subTest(function):
                    page = self.rendered(made[function].read_bytes())
                    self.assert_has(page, words(declaration) + ";")
                    self.assert_has(page, f"{library} 1.2.3")
                    self.assertRegex(page, rf" NAME {function} - [^.]{{10,130}} LIBRARY {library} ")
                    self.assert_comment(page, comment)
                    for record in re.findall(r"Rast\w+", declaration):
                        self.assert_members(page, text, record)

    def assert_members(self, page, text, record):
        _, found, rest = text.partition(f"typedef struct {record} {{")
        if not found:
            self.assert_has(text, f"typedef struct {record} {record};")
        for member in re.findall(r"\b[nps][A-Z]\w+(?=[;\[])", rest.split("\n}")[0]):
            self.assert_has(page, member)

    def test_the_header_has_a_page(self):
        for name in HEADERS:
            with self.subTest(name):
                text = self.text(name)
                self.assertEqual(self.made_of(name, text).returncode, 0)
                page = self.rendered((self.folder / "man" / f"{name}.3").read_bytes())
                _, about, *blocks = ("\n" + text).split("\n/**")
                self.assert_comment(page, about.split("*/")[0].split("\n", 3)[3])
                for block in blocks:
                    comment, declaration = block.split("*/", 1)
                    if declaration.lstrip().startswith(("typedef", "enum", "#define")):
                        self.assert_comment(page, comment)
                        for inner in re.findall(r"/\*\*<?(.*?)\*/", declaration, re.DOTALL):
                            self.assert_comment(page, inner)
                constants = re.findall(r"\b(RAST_\w+) (?:= )?\(?(-?\d\w*)\)?(?:,|$)", text, re.M)
                self.assertGreater(len(constants), 8)
                for constant, value in constants:
                    self.assert_has(page, f"{constant} = {value}")

    def test_a_parameter_without_a_word(self):
        text = self.text("rast.h").replace("@param pCurve ", "@param pCurv ", 1)
        done = self.made_of("rast.h", text)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr.decode(), r"\Amanual.py: rastColGamma: [^\n]+\n\Z")

    def test_a_result_without_a_word(self):
        text = self.text("rast_chain.h").replace("@return length of", "Length of", 1)
        done = self.made_of("rast_chain.h", text)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr.decode(), r"\Amanual.py: rastChainDescribe: [^\n]+\n\Z")


class Completion(RastTest):
    def candidates(self, *given):
        done = self.run_rast("complete", *given)
        self.assertEqual((done.returncode, done.stderr), (DONE, b""))
        return [line.split("\t")[0] for line in done.stdout.decode().splitlines()]

    def test_names(self):
        every = self.candidates("")
        for name in ("expgamma", "gray", "chain", "compare", "help"):
            self.assertIn(name, every)
        self.assertEqual(self.candidates("col"), ["colgamma", "colbalance"])
        self.assertEqual(self.candidates("help", "inf"), ["info"])
        self.assertEqual(self.candidates("nothing", ""), [])
        self.assertEqual(self.candidates(), [])

    def test_options_are_those_of_the_help(self):
        for name in ("zoom", "binconv", "compare", "info", "chain", "ops"):
            with self.subTest(name):
                text = self.run_rast("help", name).stdout.decode()
                told = re.findall(r"^ +(?:-., )?--([a-z]+)", text, re.MULTILINE)
                self.assertEqual(self.candidates(name, "--"), [f"--{option}" for option in told])

    def test_values(self):
        self.assertEqual(self.candidates("satadjust", "--mode", ""), ["lower", "raise"])
        self.assertEqual(self.candidates("satadjust", "--mode=r"), ["--mode=raise"])
        self.assertEqual(self.candidates("colgamma", "--curve", "g"), ["gamma=", ""])
        self.assertEqual(self.candidates("gray", "x", "-f", "pn"), ["pnm", "png"])
        self.assertEqual(self.candidates("zoom", "--percent", ""), [])
        self.assertEqual(self.candidates("rotate", ""), ["cw", "ccw"])
        self.assertEqual(self.candidates("rotate", "cw", ""), [""])
        self.assertEqual(self.candidates("overlay", "--with", ""), [""])
        self.assertEqual(self.candidates("ops", ""), [])

    def test_chains(self):
        self.assertEqual(len(self.candidates("chain", "")), 12)
        self.assertEqual(self.candidates("chain", "gray : zo"), ["gray : zoom"])
        self.assertEqual(self.candidates("chain", "shift x=1 f"), ["shift x=1 fill="])
        self.assertEqual(
            self.candidates("chain", "shift x=1 fill=b"), ["shift x=1 fill=black"]
        )
        self.assertEqual(self.candidates("chain", "hueadjust rev"), ["hueadjust reverse"])
        self.assertEqual(self.candidates("chain", "nothing x"), [])
        self.assertEqual(self.candidates("chain", "gray:zo"), ["gray:zoom"])
        self.assertEqual(
            self.candidates("chain", "satadjust,"),
            ["satadjust,mode=", "satadjust,lower", "satadjust,raise"],
        )
        self.assertEqual(
            self.candidates("chain", "gray:shift,x=1,fill=b"), ["gray:shift,x=1,fill=black"]
        )
        self.assertEqual(self.candidates("chain", "nothing,x"), [])
        self.assertEqual(self.candidates("chain", "gray", ""), [""])

    def assert_completes(self, shell, setup, line, expected):
        """The line is what the shell makes of it when a tab ends it."""
        self.file("page.ppm", b"")
        process, terminal = pty.fork()
        if process == 0:
            os.chdir(self.folder)
            os.environ["PATH"] = f"{Path(RAST).parent}:{os.environ['PATH']}"
            os.environ.update(TERM="dumb", PS1="$ ", HOME=str(self.folder))
            os.execvp(shell[0], shell)
        try:
            os.write(terminal, f"{setup}; echo rea''dy\n".encode())
            self.assert_shows(terminal, "ready")
            os.write(terminal, f"{line}\t".encode())
            self.assert_shows(terminal, expected)
        finally:
            os.close(terminal)
            os.kill(process, signal.SIGKILL)
            os.waitpid(process, 0)

    def assert_shows(self, terminal, expected):
        text = ""
        end = time.monotonic() + 20
        while expected not in text and time.monotonic() < end:
            if select.select([terminal], [], [], 0.1)[0]:
                text += os.read(terminal, 65536).decode(errors="replace").replace("\a", "")
        self.assertIn(expected, text)

    LINES = (
        ("rast sat", "rast satadjust "),
        ("rast satadjust --mo", "rast satadjust --mode "),
        ("rast satadjust --mode=ra", "rast satadjust --mode=raise"),
        ("rast info pa", "rast info page.ppm "),
        ("rast rotate -q cc", "rast rotate -q ccw "),
        ("rast overlay --with=pa", "rast overlay --with=page.ppm"),
        ("rast chain -q 'gra", "rast chain -q 'gray"),
        ("rast chain 'satadjust raise : hu", "rast chain 'satadjust raise : hueadjust"),
        ("rast chain satadjust,raise:hu", "rast chain satadjust,raise:hueadjust"),
    )

    BASH = Path("/usr/share/bash-completion/bash_completion")

    @unittest.skipUnless(BASH.exists(), "needs bash-completion")
    def test_bash(self):
        for line, expected in self.LINES:
            with self.subTest(line):
                setup = f". {self.BASH}; . {COMPLETION}/rast.bash"
                self.assert_completes(["bash", "--norc", "-i"], setup, line, expected)

    @unittest.skipUnless(shutil.which("zsh"), "needs zsh")
    def test_zsh(self):
        for line, expected in self.LINES:
            with self.subTest(line):
                setup = f"fpath=({COMPLETION} $fpath); autoload -U compinit; compinit -u -D"
                self.assert_completes(["zsh", "-f", "-i"], setup, line, expected)


if __name__ == "__main__":
    unittest.main()
