"""examples/chain.c does what the command does; RAST and EXAMPLE name the programs."""

import os
import subprocess
import unittest

from test_rast import DONE, RastTest, ppm, ramp

EXAMPLE = os.environ["EXAMPLE"]
PAGE = ppm(40, 31, ramp(40 * 31 * 3))


class Example(RastTest):
    def example(self, *arguments, page=PAGE):
        return subprocess.run(
            [EXAMPLE, *arguments], input=page, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            check=False, timeout=60,
        )

    def test_chains(self):
        for chain in (
            "colgamma invert",
            "satadjust raise : rotate cw",
            "zoom percent=33.3 : gray : expgamma threshold=40 gain=300",
            "shift y=3 size=50x20 : rotate ccw : hueadjust rotate=30 mirror",
        ):
            with self.subTest(chain):
                expected = self.run_rast("chain", chain, input=PAGE)
                self.assertEqual(expected.returncode, DONE)
                done = self.example(chain)
                self.assertEqual((done.returncode, done.stderr), (0, b""))
                self.assert_same(done.stdout, expected.stdout)

    def test_what_is_wrong(self):
        for arguments, page, told in (
            ((), PAGE, b"expected a chain"),
            (("gray",), b"P5 1 1 255 x", b"expected a chain"),
            (("zom 50",), PAGE, b"did you mean 'zoom'"),
            (("expgamma gain=300",), PAGE, b"works on gray pages only"),
            (("rotate cw",), PAGE[:-1], b"the page ends early"),
        ):
            with self.subTest(arguments):
                done = self.example(*arguments, page=page)
                self.assertIn(done.returncode, (1, 2))
                self.assertIn(told, done.stderr)


if __name__ == "__main__":
    unittest.main()
