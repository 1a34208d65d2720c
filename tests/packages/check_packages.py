#!/usr/bin/env python3
"""Builds the Debian packages twice, looks into them, and uses them in a fresh Debian system."""
import argparse
import filecmp
import fnmatch
import gzip
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
GUIDE = (ROOT / "docs/print-queue.md").read_text(encoding="utf-8")
PACKAGES = ("librast1", "librast-dev", "librastchain1", "librastchain-dev", "rast", "rast-cups")
FILTER = "usr/lib/cups/filter/rasttoraster"
DOCUMENTS = {
    "rast": ("*/man1/rast.1.gz", "*/man7/rast-ops.7.gz"),
    "rast-cups": ("*/man8/rasttoraster.8.gz", "*/print-queue.md*"),
    "librast-dev": ("*/man3/rast.h.3.gz", "*/man3/rastColGamma.3.gz"),
    "librastchain-dev": ("*/man3/rast_chain.h.3.gz", "*/man3/rastChainOpen.3.gz"),
}
COMPLETIONS = ("bash-completion/completions/rast", "zsh/vendor-completions/_rast")


def run(*command, **options):
    """What a command has printed."""
    print("+", shlex.join(map(str, command)), flush=True)
    done = subprocess.run(list(map(str, command)), stdout=subprocess.PIPE, check=False, **options)
    if done.returncode:
        sys.stdout.write(done.stdout.decode(errors="replace"))
        sys.exit(f"failed with status {done.returncode}: {shlex.join(map(str, command))}")
    return done.stdout


def expect(found, expected, what):
    if found != expected:
        sys.exit(f"{what}: {found!r} instead of {expected!r}")


def expect_words(text, words, what):
    if words not in text:
        sys.exit(f"{what}: no {words!r} in {text[:300]!r}")


def field(package, name):
    return run("dpkg-deb", "-f", package, name).decode().strip()


def build(folder, options="", umask=0o022, **variables):
    build_options = f"{os.environ.get('DEB_BUILD_OPTIONS', '')} {options}".strip()
    environment = os.environ | {"DEB_BUILD_OPTIONS": build_options} | variables
    run(ROOT / "scripts/packages.sh", folder, env=environment, umask=umask)


def check_lintian(folder):
    (changes,) = folder.glob("*.changes")
    options = ("--allow-root", "--display-info", "--pedantic", "--fail-on=none")
    expect(run("lintian", *options, changes).decode(), "", "lintian")


def check_repeated(folder, again):
    """The same packages come out of another folder, with other habits."""
    build(again, "nocheck", umask=0o077, LC_ALL="C", LANGUAGE="", TZ="Pacific/Kiritimati")
    names = [path.name for path in folder.glob("*.deb")]
    _, differing, missing = filecmp.cmpfiles(folder, again, names, shallow=False)
    expect((differing, missing), ([], []), "packages that differ when built again")
    return len(names)


class System:
    """A Debian system of nothing but its base, in a folder; packages that it was given are kept."""

    def __init__(self, folder, packages, cache):
        self.folder, self.cache = folder, cache
        # The release and the mirror of this machine.
        codename = run("sh", "-c", ". /etc/os-release && echo $VERSION_CODENAME").decode().strip()
        mirrors = run(
            "apt-get", "indextargets", "--format", "$(REPO_URI)", "Created-By: Packages",
            "Origin: Debian", f"Codename: {codename}", "Component: main",
        ).decode().split()
        if not mirrors:
            sys.exit(f"apt knows no mirror of Debian {codename}")
        cache.mkdir(parents=True, exist_ok=True)
        options = ("--variant=minbase", f"--cache-dir={cache}")
        run("debootstrap", *options, codename, folder, mirrors[0])
        for kept in cache.glob("*.deb"):
            shutil.copy(kept, folder / "var/cache/apt/archives")
        (folder / "packages").mkdir()
        for package in packages:
            shutil.copy(package, folder / "packages")
        # No package starts a daemon.
        policy = folder / "usr/sbin/policy-rc.d"
        policy.write_text("#!/bin/sh\nexit 101\n")
        policy.chmod(0o755)
        self.run("apt-get", "-q", "update")

    def run(self, *command, **options):
        environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8"}
        environment["DEBIAN_FRONTEND"] = "noninteractive"
        return run("chroot", self.folder, *command, env=environment, **options)

    def install(self, *packages):
        """The names of the packages that were new."""
        names = [str(p) for p in packages]
        command = ("apt-get", "-q", "-y", "--no-install-recommends", "-o", "DPkg::Use-Pty=false")
        planned = self.run(*command, "--simulate", "install", *names).decode()
        self.run(*command, "install", *names)
        for fetched in (self.folder / "var/cache/apt/archives").glob("*.deb"):
            if not (self.cache / fetched.name).exists():
                shutil.copy(fetched, self.cache)
        return set(re.findall(r"^Inst (\S+)", planned, re.MULTILINE))

    def named_like_ours(self):
        found = self.run(
            "find", "/", "-xdev", "-path", "/packages", "-prune", "-o", "-name", "*rast*", "-print"
        )
        return set(found.decode().splitlines())

    def paths(self, package):
        return self.run("dpkg-query", "-L", package).decode().splitlines()

    def owned(self, path):
        done = subprocess.run(
            ["chroot", self.folder, "dpkg-query", "-S", path], check=False,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        )
        return done.returncode == 0


def check_library(system, package):
    """The library alone needs nothing that is not there yet."""
    depends = field(package, "Depends")
    if not re.fullmatch(r"libc6 \(>= [0-9.]+\)", depends):
        sys.exit(f"librast1 depends on {depends!r}")
    expect(system.install(f"/packages/{package.name}"), {"librast1"}, "installed with librast1")
    (library,) = fnmatch.filter(system.paths("librast1"), "*/librast.so.1")
    loaded = system.run("ldd", "-r", library, stderr=subprocess.STDOUT)
    names = {line.split()[0].split("/")[-1] for line in loaded.decode().splitlines()}
    names = {name for name in names if not name.startswith(("linux-vdso", "ld-linux"))}
    expect(names, {"libc.so.6"}, "loaded with librast.so.1")


def check_chain_library(system, package):
    """The chain library needs librast and what C++ needs."""
    depends = {word.split()[0] for word in field(package, "Depends").split(", ")}
    expect(depends, {"libc6", "libgcc-s1", "librast1", "libstdc++6"}, "needed by librastchain1")
    expect(system.install(f"/packages/{package.name}"), {"librastchain1"},
           "installed with librastchain1")


INVERT = ("rast", "colgamma", "--curve", "invert", "--format")


def check_bare_command(system, package):
    """Without recommended packages the command has PNM, and reports the libraries that it lacks."""
    recommended = {word.split()[0] for word in field(package, "Recommends").split(", ")}
    expect({name.rstrip("0123456789t-") for name in recommended}, {"libcups", "libpng", "libtiff"},
           "recommended by rast")
    new = system.install(f"/packages/{package.name}")
    expect(new & recommended, set(), "installed with rast")
    page = b"P6\n4 2\n255\n" + bytes(range(24))
    inverted = b"P6\n4 2\n255\n" + bytes(range(255, 231, -1))
    expect(system.run(*INVERT, "pnm", input=page), inverted, "the inverted page")
    (system.folder / "tmp/page.ppm").write_bytes(page)
    shown = system.run("sh", "-c", f"{' '.join(INVERT)} png /tmp/page.ppm /tmp/no.png 2>&1 || true")
    expect_words(shown.decode(), "PNG needs a shared library", "the message without libpng")


def check_command(system, version):
    expect_words(system.run("rast", "--version").decode(), version, "rast --version")
    page = (system.folder / "tmp/page.ppm").read_bytes()
    for kind in ("png", "tiff", "cups", "pwg"):
        path = f"/tmp/inverted.{kind}"
        system.run(*INVERT, kind, "/tmp/page.ppm", path)
        expect(system.run(*INVERT, "pnm", path), page, f"{path}, inverted")
    for name in COMPLETIONS:
        expect_words((system.folder / "usr/share" / name).read_text(), "rast", name)


def check_documents(system, package):
    for pattern in DOCUMENTS[package]:
        pages = fnmatch.filter(system.paths(package), pattern)
        if not pages:
            sys.exit(f"{package} has no {pattern}")
        for page in pages:
            text = (system.folder / page[1:]).read_bytes()
            text = gzip.decompress(text) if page.endswith(".gz") else text
            expect_words(text.decode(), "rast", page)


def check_filter(system):
    """Jobs come through a real scheduler and a queue that is set up as the guide says."""
    expect(os.readlink(system.folder / FILTER), "../../../bin/rast", "the link")
    system.install("cups-daemon", "cups-client")
    settings = system.folder / "etc/cups"
    for name in ("local.types", "local.convs"):
        line = re.search(rf"# /etc/cups/{name}\n *(.*\n)", GUIDE)[1]
        (settings / name).write_text(line)
    change(settings / "cups-files.conf", r"\Z", "\nFileDevice Yes\n")
    # A socket of its own alone: the machine's port may be taken.
    change(settings / "cupsd.conf", "\nListen localhost.*", "")
    shutil.copy(ROOT / "tests/tool/queue.ppd", system.folder / "tmp")
    change(system.folder / "tmp/queue.ppd", "vnd.cups-raster", "x-filtered-raster")
    with subprocess.Popen(["chroot", system.folder, "cupsd", "-f"]) as scheduler:
        try:
            wait_for((system.folder / "run/cups/cups.sock").exists, "the scheduler")
            device = ("-v", "file:///tmp/printed", "-P", "/tmp/queue.ppd")
            system.run("lpadmin", "-p", "queue", "-E", *device)
            # The queue inverts pages, if the job does not ask for something else.
            check_print(system, "page.ppm", "lp -d queue")
            command = re.search(r"    (lp -d queue .*) document.pdf\n", GUIDE)[1]
            chain = re.search(r"rast-chain=(\S+)", command)[1]
            system.run("rast", "chain", chain, "/tmp/inverted.cups", "/tmp/chained.pnm")
            check_print(system, "chained.pnm", command)
        finally:
            scheduler.terminate()
            print((system.folder / "var/log/cups/error_log").read_text())


def change(path, pattern, replacement):
    text, count = re.subn(pattern, replacement, path.read_text())
    expect(count, 1, f"{path}: places of {pattern!r}")
    path.write_text(text)


def check_print(system, expected, command):
    """What comes out when the inverted page is sent."""
    printed = system.folder / "tmp/printed"
    system.run(*shlex.split(command), "/tmp/inverted.cups")
    wait_for(lambda: not system.run("lpstat", "-o"), "the end of the job")
    system.run("rast", "compare", f"/tmp/{expected}", "/tmp/printed")
    printed.unlink()


def wait_for(condition, what):
    for _ in range(300):
        if condition():
            return
        time.sleep(0.1)
    sys.exit(f"{what} did not come")


def check_development(system):
    system.install("gcc", "libc6-dev", "pkg-config")
    for way in ("", "-Wl,-Bstatic", "-static"):
        system.run(
            "sh", "-ec",
            f"gcc -O2 /usr/share/doc/librast-dev/examples/reusable_buffer.c -o /tmp/example"
            f" {way} $(pkg-config --cflags --libs rast) {'-Wl,-Bdynamic' if 'B' in way else ''}",
        )
        printed = system.run("/tmp/example").decode()
        expect_words(printed, "gray 190 became 198 190 175", f"the example, linked {way}")


def check_chain_development(system):
    """The C++ run-time library's own files are needed for static programs alone."""
    page = b"P6\n4 2\n255\n" + bytes(range(24))
    inverted = b"P6\n4 2\n255\n" + bytes(range(255, 231, -1))
    for way, needed in (("", ()), ("-static", ("g++",))):
        for package in needed:
            system.install(package)
        system.run(
            "sh", "-ec",
            "gcc -O2 /usr/share/doc/librastchain-dev/examples/chain.c -o /tmp/example"
            f" {way} $(pkg-config {way and '--static'} --cflags --libs rastchain)",
        )
        printed = system.run("/tmp/example", "colgamma invert", input=page)
        expect(printed, inverted, f"the page of the example, linked {way}")


def check_removed(system, before):
    """What other packages have may stay, as the folders that they share with these."""
    installed = {path for package in PACKAGES for path in system.paths(package)} - {"/."}
    system.run("apt-get", "-q", "-y", "purge", *PACKAGES)
    left = [path for path in installed if os.path.lexists(f"{system.folder}{path}")]
    system.run("sh", "-c", "rm -rf /tmp/* /etc/cups/ppd/*")
    left += system.named_like_ours() - before
    expect([path for path in left if not system.owned(path)], [], "left behind")
    return len(installed)


class Parts:
    """Tells what each part has taken."""

    def __init__(self):
        self.started = time.monotonic()

    def done(self, what):
        now = time.monotonic()
        print(f"{what}: {now - self.started:.0f} s", flush=True)
        self.started = now


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", type=Path, help="where the packages are built, and left")
    options = parser.parse_args()
    if os.geteuid() != 0:
        sys.exit("check_packages.py: only root can set up a Debian system and change into it")
    folder = options.folder.resolve()

    parts = Parts()
    build(folder)
    parts.done("packages built and tested")
    check_lintian(folder)
    parts.done("lintian has nothing to say")
    packages = {field(path, "Package"): path for path in folder.glob("*.deb")}
    with tempfile.TemporaryDirectory(dir=folder.parent) as work:
        count = check_repeated(folder, Path(work) / "another" / "folder")
        parts.done(f"{count} packages built again, the same to the byte")
        system = System(Path(work) / "root", [packages[name] for name in PACKAGES],
                        folder.parent / "debian-cache")
        before = system.named_like_ours()
        parts.done("Debian set up")
        check_library(system, packages["librast1"])
        parts.done("librast1 alone needs libc6 alone")
        check_chain_library(system, packages["librastchain1"])
        parts.done("librastchain1 needs librast1 and the C++ run-time library")
        check_bare_command(system, packages["rast"])
        names = re.findall(r"lib\w[^ ,]*", field(packages["rast"], "Recommends"))
        system.install(f"/packages/{packages['rast-cups'].name}", *names)
        check_command(system, field(packages["rast"], "Version"))
        check_documents(system, "rast")
        parts.done("rast works")
        check_filter(system)
        check_documents(system, "rast-cups")
        parts.done("rasttoraster works in a queue")
        system.install(f"/packages/{packages['librast-dev'].name}")
        check_documents(system, "librast-dev")
        check_development(system)
        parts.done("an example is built and runs")
        system.install(f"/packages/{packages['librastchain-dev'].name}")
        check_documents(system, "librastchain-dev")
        check_chain_development(system)
        parts.done("an example of chains is built and runs")
        paths = check_removed(system, before)
        parts.done(f"none of {paths} paths is left after purging")
    return 0


if __name__ == "__main__":
    sys.exit(main())
