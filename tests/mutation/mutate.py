#!/usr/bin/env python3
"""Changes the library's sources one token at a time and sees whether the operation tests notice.

A mutant is one change: a comparison moved to its neighbor or turned round, another operator, a
constant one up or down, a statement left out. Mutants that do not compile do not count, nor do
those whose objects come out the same. What no test kills is tried once more with undefined
behavior made to trap. The sources are mutated in a copy below --work; an ARM mutant needs an ARM
machine, since only lines that this one compiles and runs are taken.

  mutate.py --sample 300             a sample over all files, the same for the same --seed
  mutate.py --all --file '*Zoom*'    everything in some files
  mutate.py --all --shard 2/4        a quarter of everything
  mutate.py --sample 300 --list      what would be tried
  mutate.py --report                 a table of all results so far and the survivors

Results gather in mutants.json below --work: a mutant is judged once, until its file changes or, for
a survivor, a test. A survivor that is no fault stands in equivalent.txt with the reason; it is
found there by the text of its line, with a number where a file has several such lines.
"""
import argparse
import collections
import fcntl
import fnmatch
import hashlib
import itertools
import json
import os
import random
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
ACCEPTED = Path(__file__).with_name("equivalent.txt")
COPIED = ("CMakeLists.txt", "cmake", "examples", "include", "packaging", "src", "tests")
LEVELS = ("baseline", "avx2", "avx512", "neon")
FLAGS = {"avx2": "avx2", "avx512": "avx512_?vbmi"}  # of /proc/cpuinfo
TRAPPING = ("-fsanitize=undefined", "-fno-sanitize=vptr", "-fsanitize-undefined-trap-on-error")

TOKEN = re.compile(
    r"""//[^\n]* | /\*.*?\*/ | ^[ \t]*\#(?:\\\n|[^\n])* | "(?:\\.|[^"\\\n])*" | '(?:\\.|[^'\\\n])*'
    | 0[xX][0-9a-fA-F]+\w* | \d[\d.]*\w* | [A-Za-z_]\w*
    | <<= | >>= | -> | :: | \+\+ | -- | << | >> | <= | >= | == | != | && | \|\| | [-+*/%&|^]=
    | \S""",
    re.S | re.M | re.X)
BINARY = {
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
    "==": ("!=",), "!=": ("==",), "&&": ("||",), "||": ("&&",),
    "+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("/",),
    "<<": (">>",), ">>": ("<<",), "&": ("|",), "|": ("&",), "^": ("|",),
    "+=": ("-=",), "-=": ("+=",), "*=": ("/=",), "|=": ("&=",), "&=": ("|=",), "^=": ("|=",),
}
PREFIX = {"!": ("",), "~": ("",), "-": ("",), "++": ("--",), "--": ("++",)}
PAIRS = (("true", "false"), ("min", "max"), ("lesser", "greater"), ("widenLow", "widenHigh"),
         ("zipLow", "zipHigh"), ("wrappingAdd", "wrappingSubtract"))
NAMES = {a: (b,) for pair in PAIRS for a, b in (pair, pair[::-1])}
NO_STATEMENT = set("alignas auto case class const constexpr default do else enum explicit extern"
                   " for friend if inline namespace private protected public static static_assert"
                   " struct switch template typedef typename using void while".split())

Token = collections.namedtuple("Token", "text at")
Mutant = collections.namedtuple("Mutant", "file line column size new name text")


def key_of(mutant):
    return f"{mutant.file}:{mutant.line}:{mutant.column}: {mutant.name}"


def tokens_of(source):
    found = (Token(m.group(), m.start()) for m in TOKEN.finditer(source))
    return [t for t in found if not t.text.startswith(("//", "/*", '"', "'"))
            and not t.text.lstrip().startswith("#")]


def is_name(text):
    return bool(re.match(r"[A-Za-z_]", text))


def declares_array(tokens, i):
    """Whether number i is the size of an array that is being declared."""
    if tokens[i - 1].text != "[" or tokens[i + 1].text != "]":
        return False
    while tokens[i - 1].text == "[":
        i -= 2
        while tokens[i].text == "]":
            i = next(k for k in range(i, 0, -1) if tokens[k].text == "[") - 1
        if is_name(tokens[i].text) or tokens[i].text == ")":
            break
    before = tokens[i - 1].text
    return tokens[i].text == ")" or is_name(before) and before != "return" or before in "*&>"


def neighbors(number):
    digits, suffix = re.fullmatch(r"(0[xX][0-9a-fA-F]+|\d+)(\w*)", number).groups()
    n, form = int(digits, 0), "{:#x}" if digits[:2].lower() == "0x" else "{}"
    return [form.format(m) + suffix for m in (n + 1, n - 1) if m >= 0]


def replacements(source, tokens, i):
    text, at = tokens[i]
    spaced = source[at - 1].isspace() and source[at + len(text)].isspace()
    if text in BINARY and spaced:
        return BINARY[text]
    if text in PREFIX and not source[at + len(text)].isspace() and source[at - 1] in " ([{\n*&!":
        return PREFIX[text]
    if text in NAMES:
        return NAMES[text]
    if re.fullmatch(r"(0[xX][0-9a-fA-F]+|\d+)[uUlL]*", text) and not declares_array(tokens, i):
        return neighbors(text)
    return ()


def statement_end(tokens, start):
    """The index of the ';' that ends the expression or jump at `start`, or None."""
    first = tokens[start].text
    if first in NO_STATEMENT or first in "{};:" or first == ")":
        return None
    depth = 0
    for i in range(start, len(tokens)):
        text = tokens[i].text
        if text in "([{":
            depth += 1
        elif text in ")]}":
            depth -= 1
            after = tokens[i + 1].text if i + 1 < len(tokens) else ""
            if depth < 0 or (text == "}" and depth == 0 and after not in (";", ")", ",", ".")):
                return None
        elif text == ";" and depth == 0:
            return i
    return None


def is_declaration(source, tokens, start, end):
    text = " ".join(source[tokens[start].at:tokens[end].at].split())
    head = re.split(r"[({=;]", text, maxsplit=1)[0].rstrip()
    return not head.startswith("return") and bool(
        re.search(r"^[\w:]+(<.*>)?[*&]*( const)? [*&]*\w+(\[[^]]*\])*$", head) or
        head.endswith(":"))


def statements(source, tokens):
    """(first token, index of the ';') of every statement that can be left out."""
    opening = {}  # of a closing bracket
    opened = []
    for i in range(1, len(tokens)):
        before = tokens[i - 1].text
        if before in "([{":
            opened.append(i - 1)
        elif before in ")]}":
            opening[i - 1] = opened.pop()
        if opened and tokens[opened[-1]].text != "{":
            continue  # the parts of a for
        controlled = before == ")" and tokens[opening[i - 1] - 1].text in ("if", "for", "while",
                                                                         "constexpr")
        labeled = before == ":" and "case" in (tokens[k].text for k in range(max(i - 6, 0), i))
        if before in ("{", "}", ";", "else") or controlled or labeled:
            end = statement_end(tokens, i)
            if end and not is_declaration(source, tokens, i, end):
                yield tokens[i], tokens[end]


def numbered(rows):
    """The rows, with equal ones told apart."""
    total = collections.Counter(rows)
    seen = collections.Counter()
    result = []
    for row in rows:
        seen[row] += 1
        result.append(f"{row} [{seen[row]} of {total[row]}]" if total[row] > 1 else row)
    return result


def mutants_of(file, source, lines):
    """All mutants that begin on one of the given lines, in order."""
    tokens = tokens_of(source)
    changes = []
    for i in range(1, len(tokens) - 1):
        text, at = tokens[i]
        changes += [(at, len(text), new, f"{text} -> {new or 'nothing'}")
                    for new in replacements(source, tokens, i)]
    changes += [(first.at, end.at - first.at, "", "drop") for first, end in
                statements(source, tokens)]
    rows = [row.strip() for row in source.split("\n")]
    texts = numbered(rows)
    mutants = []
    seen = collections.Counter()
    for at, size, new, name in sorted(changes):
        line = source.count("\n", 0, at) + 1
        # A row of a table has nothing that a test could know better.
        if line not in lines or re.fullmatch(r"[\s{}\d,;]+", rows[line - 1]):
            continue
        seen[line, name] += 1
        if seen[line, name] > 1:
            name += f" #{seen[line, name]}"
        column = at - source.rfind("\n", 0, at)
        mutants.append(Mutant(file, line, column, size, new, name, texts[line - 1]))
    return mutants


def mutated(source, mutant):
    at = sum(len(row) + 1 for row in source.split("\n")[:mutant.line - 1]) + mutant.column - 1
    # Lines keep their numbers.
    breaks = "\n" * source.count("\n", at, at + mutant.size)
    return source[:at] + mutant.new + breaks + source[at + mutant.size:]


def read_accepted(path=ACCEPTED):
    """(file, line text, change) of lines of code after `file: ` and the changes indented below."""
    accepted = set()
    place = None
    for row in path.read_text(encoding="utf-8").splitlines() if path.exists() else ():
        found = re.match(r"(\S+\.(?:cpp|h|inl)): (.+)", row)
        if found:
            place = found.groups()
        elif row.startswith("  "):
            accepted.add((*place, row.strip()))
    return accepted


def digest(paths):
    total = hashlib.sha256()
    for path in sorted(paths):
        total.update(path.read_bytes())
    return total.hexdigest()[:16]


class Unit:
    """A source of the library: how it is compiled and which lines of the tree that takes."""

    def __init__(self, entry, tree, work):
        self.source = Path(entry["file"])
        self.name = str(self.source.relative_to(tree))
        self.directory = entry["directory"]
        words = shlex.split(entry["command"])
        at = words.index("-o")
        # Exported, so that the tests reach every entry of a shared library.
        self.command = words[:at] + words[at + 2:] + [
            "-fvisibility=default", "-fno-semantic-interposition", "-Werror=return-type"]
        stem = self.name.replace("/", "_")
        self.object = work / f"{stem}.o"
        self.mutant = work / f"{stem}.mutant.o"
        self.level = next((level for level in LEVELS if f"rows_{level}." in self.name), None)
        self.lines = collections.defaultdict(set)
        text = subprocess.run([w for w in self.command if w != "-c"] + ["-E"], cwd=self.directory,
                              check=True, capture_output=True, text=True).stdout
        file, line = None, 0
        for row in text.split("\n"):
            marker = re.match(r'# (\d+) "([^"]+)"', row)
            if marker:
                line, path = int(marker[1]), os.path.normpath(marker[2])
                file = os.path.relpath(path, tree) if path.startswith(f"{tree}/") else None
                continue
            if file and row.strip():
                self.lines[file].add(line)
            line += 1

    def compile(self, to, *flags):
        if self.source.name == "rows.cpp":
            flags = [flag for flag in flags if "sanitize" not in flag]
        return subprocess.run([*self.command, *flags, "-o", str(to)], cwd=self.directory,
                              stderr=subprocess.DEVNULL).returncode == 0


class Workshop:
    """A copy of the tree, the tests linked to a shared library of the objects, and its mutants."""

    def __init__(self, work):
        self.work = work
        self.tree = work / "tree"
        self.build = work / "build"
        self.objects = work / "objects"
        self.library = work / "librast_mutant.so"
        self.objects.mkdir(parents=True, exist_ok=True)
        self.copy_tree()
        self.run("cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", "-DRAST_TESTS=ON",
                 "-DRAST_TOOL=OFF", "-DRAST_CHAIN=OFF", "-DRAST_MANUALS=OFF", "-DCMAKE_BUILD_TYPE=Release",
                 "-DCMAKE_CXX_FLAGS_RELEASE=-O2",
                 "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON")
        with open(self.build / "compile_commands.json", encoding="utf-8") as file:
            entries = json.load(file)
        self.units = [Unit(entry, self.tree, self.objects) for entry in entries
                      if entry["file"].startswith(f"{self.tree}/src/")
                      and "rast_objects" in entry["command"]]
        self.tests = {Path(entry["file"]): entry for entry in entries
                      if entry["file"].startswith(f"{self.tree}/tests/operations/")}

    def prepare(self):
        print("Building the tests", file=sys.stderr)
        self.run("ninja", "-C", self.build, "-j1", "operations", "level")
        for unit in self.units:
            if not unit.compile(unit.object):
                sys.exit(f"{unit.name} does not compile")
        self.link_library({})
        self.link_program("operations")
        self.link_program("level")
        self.times = self.time_tests()

    def copy_tree(self):
        wanted = set()
        for top in COPIED:
            path = ROOT / top
            files = [path] if path.is_file() else [p for p in path.rglob("*") if p.is_file()]
            for file in files:
                copy = self.tree / file.relative_to(ROOT)
                wanted.add(copy)
                copy.parent.mkdir(parents=True, exist_ok=True)
                # Times are left as they are where nothing changed.
                if not copy.exists() or copy.read_bytes() != file.read_bytes():
                    shutil.copyfile(file, copy)
        for file in [p for p in self.tree.rglob("*") if p.is_file() and p not in wanted]:
            file.unlink()

    @staticmethod
    def run(*command):
        done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True)
        if done.returncode != 0:
            sys.exit(done.stdout)

    def link_library(self, instead):
        """Links all objects, mutants instead of some. Functions are bound within the library, so
        that inline ones of the tests do not take the place of mutants."""
        objects = [instead.get(unit, unit.object) for unit in self.units]
        self.run("g++", "-shared", "-Wl,-Bsymbolic-functions", "-Wl,--wrap=malloc,--wrap=free",
                 "-o", self.library, *objects)

    def link_program(self, name, first=()):
        folder = self.build / "tests" / ("interface" if name == "level" else name)
        objects = sorted((folder / "CMakeFiles" / f"{name}.dir").rglob("*.o"))
        wraps = ["-Wl,--wrap=malloc,--wrap=free"]
        if name == "level":  # which defines neither wrapper and calls nothing that needs one
            wraps = ["-Wl,--allow-shlib-undefined,-z,lazy"]
        kept = [o for o in objects if o.name not in {p.name for p in first}]
        self.run("g++", *wraps, *first, *kept, "-o", self.work / name, self.library,
                 f"-Wl,-rpath,{self.work}", "-lgmock", "-lgtest_main", "-lgtest")

    def time_tests(self):
        seconds, output, _ = self.launch([self.work / "operations"], 300)
        if "[  PASSED  ]" not in output:
            sys.exit(f"The tests fail without any mutation:\n{output[-2000:]}")
        print(f"The tests take {seconds:.1f} s", file=sys.stderr)
        return {name: int(ms) / 1000
                for name, ms in re.findall(r"\[       OK \] (\S+).* \((\d+) ms\)", output)}

    def launch(self, command, limit):
        """Seconds, output and exit status, None for a time-out."""
        start = time.monotonic()
        with open(self.work / "output", "w+", encoding="utf-8", errors="replace") as output:
            try:
                status = subprocess.run(list(map(str, command)), stdin=subprocess.DEVNULL,
                                        stdout=output, stderr=output, timeout=limit).returncode
            except subprocess.TimeoutExpired:
                status = None
            output.seek(0)
            return time.monotonic() - start, output.read(), status

    def killer(self, tests):
        """The first of the tests that fails, or None."""
        if not tests:
            return None
        limit = 2 + 5 * sum(self.times[test] for test in tests)
        command = [self.work / "operations", "--gtest_fail_fast",
                   f"--gtest_filter={':'.join(tests)}"]
        _, output, status = self.launch(command, limit)
        if status == 0:
            return None
        started = re.findall(r"\[ RUN      \] (\S+)", output)
        failed = re.findall(r"\[  FAILED  \] ([^ ,]+),? .*ms\)", output)
        how = "" if failed else " (time-out)" if status is None else " (crash)"
        return (failed or started or ["no test"])[-1] + how

    def named_after(self, file):
        """The tests in files whose names recall that of the source."""
        stem = Path(file).name.lower().split(".")[0]
        suites = set()
        for path in self.tests:
            topic = path.name.lower().removesuffix("test.cpp")
            if topic in stem or topic in str(file).lower().split("/"):
                suites |= set(re.findall(r"TEST(?:_P)?\((\w+),",
                                         path.read_text(encoding="utf-8")))
        return [test for test in self.times if suites & set(re.split(r"[./]", test)[:2])]


class Trial:
    """One mutant in the workshop."""

    def __init__(self, shop, mutant, killers):
        self.shop = shop
        self.mutant = mutant
        self.path = shop.tree / mutant.file
        self.source = self.path.read_text(encoding="utf-8")
        self.units = [u for u in shop.units if mutant.line in u.lines[mutant.file]]
        self.killers = killers  # of mutants of the same file, how often, levels as "*"

    def judge(self):
        """(state, test that killed it)"""
        if not self.units:
            return "same code", None
        try:
            self.path.write_text(mutated(self.source, self.mutant), encoding="utf-8")
            return self.tried()
        finally:
            self.path.write_text(self.source, encoding="utf-8")

    def tried(self):
        kernels = all(unit.level for unit in self.units)
        changed = {}
        for unit in self.units:
            if not unit.compile(unit.mutant):
                return "invalid", None
            if unit.mutant.read_bytes() == unit.object.read_bytes():
                continue
            changed[unit] = unit.mutant
            # The levels share nothing: most mutants fall at the first one.
            if kernels:
                self.shop.link_library(changed)
                killer = self.in_turn(lambda test, level=unit.level: level in test)
                if killer:
                    return "killed", killer
        if not changed:
            return "same code", None
        self.shop.link_library(changed)
        killer = self.in_turn(lambda test: not kernels or not any(l in test for l in LEVELS))
        killer = killer or self.by_level() or self.by_header_tests() or self.by_traps(changed)
        return ("killed", killer) if killer else ("survived", None)

    def in_turn(self, chosen):
        """Past killers first, then what is named after the file, then everything else."""
        times = {test: s for test, s in self.shop.times.items() if chosen(test)}
        past = [test for test in times if any(fnmatch.fnmatch(test, pattern) for pattern, _ in
                                              self.killers.most_common(12))]
        named = [test for test in self.shop.named_after(self.mutant.file)
                 if test in times and test not in past]
        rest = [test for test in times if test not in past and test not in named]
        return next(filter(None, map(self.shop.killer, (past, named, rest))), None)

    def by_level(self):
        return None if self.shop.launch([self.shop.work / "level"], 5)[2] == 0 else "level"

    def by_header_tests(self):
        """What kills once the tests that include the header are compiled with the mutant too."""
        include = f'#include "{self.mutant.file.removeprefix("src/")}"'
        objects = []
        for path, entry in self.shop.tests.items():
            if self.mutant.file.endswith(".h") and include in path.read_text(encoding="utf-8"):
                words = shlex.split(entry["command"])
                at = words.index("-o") + 1
                objects.append(self.shop.objects / Path(words[at]).name)
                words[at] = str(objects[-1])
                if subprocess.run(words, cwd=entry["directory"], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL).returncode != 0:
                    return f"{path.name} (does not compile)"
        if not objects:
            return None
        try:
            self.shop.link_program("operations", objects)
            return self.shop.killer(list(self.shop.times))
        finally:
            self.shop.link_program("operations")

    def by_traps(self, changed):
        for unit, to in changed.items():
            if not unit.compile(to, *TRAPPING):
                return None
        self.shop.link_library(changed)
        killer = self.in_turn(lambda test: True)
        return f"{killer}, sanitized" if killer else None


class Results:
    def __init__(self, path):
        self.path = path
        self.tests = digest((ROOT / "tests" / "operations").glob("*.cpp"))
        self.files = {}
        self.states = {}
        if path.exists():
            old = json.loads(path.read_text(encoding="utf-8"))
            for key, state in old["states"].items():
                file = key.split(":")[0]
                current = self.hash_of(file)
                if old["files"].get(file) == current and (
                        state["state"] != "survived" or state["tests"] == self.tests):
                    self.states[key] = state
        self.unsaved = 0

    def hash_of(self, file):
        if file not in self.files:
            path = ROOT / file
            self.files[file] = digest([path]) if path.exists() else ""
        return self.files[file]

    def record(self, mutant, state, killer, seconds):
        self.hash_of(mutant.file)
        entry = {"state": state, "seconds": round(seconds, 2)}
        if killer:
            entry["by"] = killer
        if state == "survived":
            entry["tests"] = self.tests
        self.states[key_of(mutant)] = entry
        self.unsaved += 1
        if self.unsaved == 20:
            self.save()

    def save(self):
        self.unsaved = 0
        new = self.path.with_suffix(".new")
        new.write_text(json.dumps({"files": self.files, "states": self.states}, indent=1),
                       encoding="utf-8")
        new.replace(self.path)

    def killers(self, file):
        killers = collections.Counter()
        for key, state in self.states.items():
            if key.startswith(f"{file}:") and "by" in state:
                killers[pattern_of(state["by"])] += 1
        return killers


def pattern_of(killer):
    return re.sub("|".join(LEVELS), "*", re.split("[ ,]", killer)[0])


def choose(mutants, arguments):
    """The mutants of the files and the sample that were asked for, file by file."""
    by_file = collections.defaultdict(list)
    for mutant in mutants:
        if fnmatch.fnmatch(mutant.file, arguments.file):
            by_file[mutant.file].append(mutant)
    if arguments.sample is not None:
        total = sum(map(len, by_file.values()))
        for file, of_file in by_file.items():
            # A larger sample holds the smaller ones of the same seed.
            order = random.Random(f"{arguments.seed} {file}").sample(of_file, len(of_file))
            share = max(1, round(arguments.sample * len(of_file) / max(total, 1)))
            by_file[file] = sorted(order[:share], key=lambda m: (m.line, m.column, m.name))
    index, count = arguments.shard
    return list(itertools.chain(*by_file.values()))[index - 1::count]


def all_mutants(lines):
    mutants = []
    for path in sorted((ROOT / "src").rglob("*")):
        file = str(path.relative_to(ROOT))
        if path.suffix in (".cpp", ".h", ".inl") and lines[file]:
            mutants += mutants_of(file, path.read_text(encoding="utf-8"), lines[file])
    return mutants


def try_all(shop, mutants, results, accepted):
    waiting = [m for m in mutants if key_of(m) not in results.states
               and (m.file, m.text, m.name) not in accepted]
    start = time.monotonic()
    counts = collections.Counter()
    file, killers = None, None
    for i, mutant in enumerate(waiting, 1):
        if mutant.file != file:
            file, killers = mutant.file, results.killers(mutant.file)
        before = time.monotonic()
        state, killer = Trial(shop, mutant, killers).judge()
        results.record(mutant, state, killer, time.monotonic() - before)
        counts[state] += 1
        if killer:
            killers[pattern_of(killer)] += 1
        if state == "survived":
            print(f"{mutant.file}:{mutant.line}: {mutant.name}: {mutant.text}", file=sys.stderr)
        if i % 20 == 0 or i == len(waiting):
            each = (time.monotonic() - start) / i
            said = ", ".join(f"{n} {s}" for s, n in sorted(counts.items()))
            print(f"{i} of {len(waiting)}: {said}; {each:.2f} s each, "
                  f"{each * (len(waiting) - i) / 60:.0f} min left", file=sys.stderr, flush=True)


def report(mutants, results, accepted):
    """Prints the table and the survivors; returns the percentage killed."""
    columns = ("mutants", "not compiling", "same code", "accepted", "killed", "survived")
    table = collections.defaultdict(collections.Counter)
    survivors = []
    seconds = []
    for mutant in mutants:
        state = results.states.get(key_of(mutant))
        if (mutant.file, mutant.text, mutant.name) in accepted:
            column = "accepted"
        elif not state:
            continue
        else:
            column = "not compiling" if state["state"] == "invalid" else state["state"]
            seconds.append(state["seconds"])
        if column == "survived":
            survivors.append(mutant)
        for file in (mutant.file, "all"):
            table[file]["mutants"] += 1
            table[file][column] += 1
    print("| file | " + " | ".join(columns) + " | score |")
    print("|---|" + "---:|" * (len(columns) + 1))
    for file in sorted(table, key=lambda file: (file == "all", file)):
        row = table[file]
        judged = row["killed"] + row["survived"]
        score = f"{100 * row['killed'] / judged:.1f} %" if judged else ""
        print(f"| {file} | " + " | ".join(str(row[c]) for c in columns) + f" | {score} |")
    if seconds:
        print(f"\n{sum(seconds) / len(seconds):.2f} s per mutant")
    if survivors:
        print("\nSurvivors:\n")
    for mutant in survivors:
        print(f"- {mutant.file}:{mutant.line}: `{mutant.name}` in `{mutant.text}`")
    known = {(m.file, m.text, m.name) for m in mutants}
    for file, text, name in sorted(accepted - known):
        print(f"\nequivalent.txt: no such mutant: {file}: {text}: {name}")
    judged = table["all"]["killed"] + table["all"]["survived"]
    return 100 * table["all"]["killed"] / judged if judged else 100


def shard(text):
    index, count = map(int, text.split("/"))
    if not 1 <= index <= count:
        raise ValueError
    return index, count


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--sample", type=int, metavar="N", help="about N mutants over all files")
    parser.add_argument("--seed", default="1", help="of the sample (default 1)")
    parser.add_argument("--all", action="store_true", help="every mutant")
    parser.add_argument("--file", default="*", metavar="GLOB", help="only of these files")
    parser.add_argument("--shard", type=shard, default=(1, 1), metavar="I/N",
                        help="the I-th of N equal parts")
    parser.add_argument("--list", action="store_true", help="print the mutants, try none")
    parser.add_argument("--report", action="store_true", help="print a table of the results")
    parser.add_argument("--work", type=Path, default=ROOT / "build" / "mutation", metavar="FOLDER",
                        help="where to build (default build/mutation)")
    parser.add_argument("--least", type=float, metavar="PERCENT",
                        help="with --report: fail below this score")
    arguments = parser.parse_args()
    if not (arguments.all or arguments.sample is not None or arguments.report):
        parser.error("one of --sample, --all and --report is needed")
    # A mutant may loop, allocating or printing.
    for limit, most in ((resource.RLIMIT_CORE, 0), (resource.RLIMIT_FSIZE, 1 << 28),
                        (resource.RLIMIT_AS, 1 << 33)):
        resource.setrlimit(limit, (most, most))

    signal.signal(signal.SIGTERM, lambda *_: sys.exit("Stopped; the results are kept"))

    work = arguments.work.resolve()
    work.mkdir(parents=True, exist_ok=True)
    with open(work / "lock", "w", encoding="ascii") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            sys.exit(f"Another run works in {work}; its mutant in trial must not be undone.")
        work_in(work, arguments)


def lacking():
    """The levels that this processor does not run."""
    flags = Path("/proc/cpuinfo").read_text(encoding="ascii", errors="replace")
    return [level for level, flag in FLAGS.items() if not re.search(rf"\b{flag}\b", flags)]


def work_in(work, arguments):
    shop = Workshop(work)
    lines = collections.defaultdict(set)
    left_out = lacking()
    for unit in shop.units:
        if unit.level not in left_out:
            for file, of_file in unit.lines.items():
                lines[file] |= of_file
    every = all_mutants(lines)
    results = Results(work / "mutants.json")
    accepted = read_accepted()
    chosen = choose(every, arguments) if arguments.all or arguments.sample is not None else []
    if arguments.list:
        for mutant in chosen:
            print(f"{mutant.file}:{mutant.line}: {mutant.name}: {mutant.text}")
        print(f"{len(chosen)} of {len(every)} mutants", file=sys.stderr)
        return
    if chosen:
        shop.prepare()
        try:
            try_all(shop, chosen, results, accepted)
        finally:
            results.save()
    if arguments.report:
        score = report(every, results, accepted)
        for level in left_out:
            print(f"\nThis processor does not run {level}: what it alone compiles is left out")
        if arguments.least is not None and score < arguments.least:
            sys.exit(f"{score:.1f} % killed; {arguments.least:g} % wanted")


if __name__ == "__main__":
    main()
