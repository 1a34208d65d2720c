#!/usr/bin/env python3
"""Installs the built libraries into an empty folder and builds C and C++ programs against them."""
import argparse
import os
import shlex
import subprocess
import sys
import tempfile

# By the name of the library that they use.
CONSUMERS = {"rast": "consumer", "rastchain": "chain_consumer"}


def run(*command, check=True, **extra):
    print("+", shlex.join(command), flush=True)
    return subprocess.run(command, check=check, text=True, **extra)


def archives(words):
    """The project's own libraries as archives; the others stay as they are."""
    return [f"-l:lib{word[2:]}.a" if word.startswith("-lrast") else word for word in words]


class Consumers:
    def __init__(self, options, prefix, work):
        self.options, self.prefix, self.work = options, prefix, work
        found = [d for d, _, files in os.walk(prefix) if "rast.pc" in files]
        assert len(found) == 1, f"rast.pc is in {found}"
        self.library_dir = os.path.dirname(found[0])
        self.environment = dict(os.environ, PKG_CONFIG_PATH=found[0])

    def start(self, program):
        run(program, env=dict(os.environ, LD_LIBRARY_PATH=self.library_dir))

    def pkg_config(self, library, compiler, suffix, kind):
        program = os.path.join(self.work, f"pkg-{library}-{kind}-{suffix}")
        static = ["--static"] if kind != "shared" else []
        words = {}
        for what in ("--cflags", "--libs"):
            found = run("pkg-config", *static, what, library, env=self.environment,
                        stdout=subprocess.PIPE)
            words[what] = shlex.split(found.stdout)
        link = {"shared": list, "static": archives, "whole": lambda libs: ["-static", *libs]}[kind]
        path = os.path.join(self.options.consumer, f"{CONSUMERS[library]}.{suffix}")
        run(compiler, *words["--cflags"], path, "-o", program, *link(words["--libs"]))
        self.start(program)

    def cmake(self, libraries, language):
        build = os.path.join(self.work, f"cmake-{language}")
        self.configure(build, "chain" if "rastchain" in libraries else "", language)
        run(self.options.cmake, "--build", build)
        for library in libraries:
            for kind in ("shared", "static", "whole"):
                self.start(os.path.join(build, f"{CONSUMERS[library]}_{kind}"))

    def configure(self, build, components, language, **extra):
        return run(
            self.options.cmake, "-S", self.options.consumer, "-B", build,
            f"-DCONSUMER_LANGUAGE={language}", f"-DCONSUMER_COMPONENTS={components}",
            f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_C_COMPILER={self.options.cc}", f"-DCMAKE_CXX_COMPILER={self.options.cxx}",
            "-DCMAKE_BUILD_TYPE=Release", "--no-warn-unused-cli", "-G", "Ninja", **extra)

    def without_chain(self):
        """Nothing of the chain library is there, and CMake reports that."""
        files = [f for _, _, files in os.walk(self.prefix) for f in files]
        left = [f for f in files if "chain" in f.lower()]
        assert not left, f"installed although RAST_CHAIN is off: {left}"
        done = self.configure(os.path.join(self.work, "none"), "chain", "C", check=False,
                              stderr=subprocess.PIPE)
        assert done.returncode != 0 and "chain" in done.stderr, done.stderr


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cmake", default="cmake")
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    parser.add_argument("--chain", action="store_true", help="the chain library is installed")
    parser.add_argument("build", help="the configured and built tree")
    parser.add_argument("consumer", help="the folder of the consumer programs")
    options = parser.parse_args()

    with tempfile.TemporaryDirectory() as work:
        prefix = os.path.join(work, "prefix")
        run(options.cmake, "--install", options.build, "--prefix", prefix, stdout=subprocess.DEVNULL)
        consumers = Consumers(options, prefix, work)
        libraries = ("rast", "rastchain") if options.chain else ("rast",)
        for library in libraries:
            for compiler, suffix in ((options.cc, "c"), (options.cxx, "cpp")):
                for kind in ("shared", "static", "whole"):
                    consumers.pkg_config(library, compiler, suffix, kind)
        for language in ("C", "CXX"):
            consumers.cmake(libraries, language)
        if not options.chain:
            consumers.without_chain()
    return 0


if __name__ == "__main__":
    sys.exit(main())
