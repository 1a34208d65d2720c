#!/usr/bin/env python3
"""Installs the built library into an empty folder and builds C and C++ programs against it."""
import argparse
import os
import shlex
import subprocess
import sys
import tempfile


def run(*command, **extra):
    print("+", shlex.join(command), flush=True)
    return subprocess.run(command, check=True, text=True, **extra)


class Consumers:
    def __init__(self, options, prefix, work):
        self.options, self.prefix, self.work = options, prefix, work
        found = [d for d, _, files in os.walk(prefix) if "rast.pc" in files]
        assert len(found) == 1, f"rast.pc is in {found}"
        self.library_dir = os.path.dirname(found[0])
        self.environment = dict(os.environ, PKG_CONFIG_PATH=found[0])

    def start(self, program):
        run(program, env=dict(os.environ, LD_LIBRARY_PATH=self.library_dir))

    def pkg_config(self, compiler, source, kind, link):
        """`link` turns the library's own linker words into those of one way of linking."""
        program = os.path.join(self.work, f"pkg-{kind}-{source}")
        words = {}
        for what in ("--cflags", "--libs"):
            found = run("pkg-config", what, "rast", env=self.environment, stdout=subprocess.PIPE)
            words[what] = shlex.split(found.stdout)
        path = os.path.join(self.options.consumer, source)
        run(compiler, *words["--cflags"], path, "-o", program, *link(words["--libs"]))
        self.start(program)

    def cmake(self, language):
        build = os.path.join(self.work, f"cmake-{language}")
        run(self.options.cmake, "-S", self.options.consumer, "-B", build,
            f"-DCONSUMER_LANGUAGE={language}", f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_C_COMPILER={self.options.cc}", f"-DCMAKE_CXX_COMPILER={self.options.cxx}",
            "-DCMAKE_BUILD_TYPE=Release", "--no-warn-unused-cli", "-G", "Ninja")
        run(self.options.cmake, "--build", build)
        for kind in ("shared", "static", "whole"):
            self.start(os.path.join(build, f"consumer_{kind}"))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cmake", default="cmake")
    parser.add_argument("--cc", default="cc")
    parser.add_argument("--cxx", default="c++")
    parser.add_argument("build", help="the configured and built tree")
    parser.add_argument("consumer", help="the folder of the consumer programs")
    options = parser.parse_args()

    with tempfile.TemporaryDirectory() as work:
        prefix = os.path.join(work, "prefix")
        run(options.cmake, "--install", options.build, "--prefix", prefix, stdout=subprocess.DEVNULL)
        consumers = Consumers(options, prefix, work)
        for compiler, source in ((options.cc, "consumer.c"), (options.cxx, "consumer.cpp")):
            consumers.pkg_config(compiler, source, "shared", lambda libs: libs)
            consumers.pkg_config(compiler, source, "static",
                                 lambda libs: ["-Wl,-Bstatic", *libs, "-Wl,-Bdynamic"])
            consumers.pkg_config(compiler, source, "whole", lambda libs: ["-static", *libs])
        consumers.cmake("C")
        consumers.cmake("CXX")
    return 0


if __name__ == "__main__":
    sys.exit(main())
