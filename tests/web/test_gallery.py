"""Tests of the gallery in a browser; GALLERY names its folder, RAST the command that made it.

Screenshots are left in the folder.
"""

import base64
import io
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import tomllib
import unittest
from pathlib import Path

from PIL import Image, ImageChops, ImageStat
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from browser import start

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "web/gallery"))
import make  # noqa: E402

GALLERY = Path(os.environ.get("GALLERY", ROOT / "build/gallery")).resolve()
RAST = Path(os.environ.get("RAST", ROOT / "build/demo/tool/rast")).resolve()


def picture(data):
    return Image.open(io.BytesIO(data)).convert("RGB")


def table():
    return tomllib.loads((ROOT / "web/gallery/pictures.toml").read_text(encoding="utf-8"))


def difference(one, other):
    """The mean difference of the samples of two pictures of the same size."""
    assert one.size == other.size, (one.size, other.size)
    return sum(ImageStat.Stat(ImageChops.difference(one, other)).mean) / 3


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        profile = tempfile.TemporaryDirectory()
        cls.addClassCleanup(profile.cleanup)
        cls.browser = start(profile.name)
        cls.addClassCleanup(cls.browser.quit)

    def tearDown(self):
        """Whatever a test did: nothing was loaded but the one file, and nothing complained."""
        entries = self.browser.get_log("performance")
        logs = [json.loads(entry["message"])["message"] for entry in entries]
        requests = {
            log["params"]["request"]["url"].partition("#")[0]
            for log in logs if log["method"] == "Network.requestWillBeSent"
        }
        # The browser's own first page comes from itself.
        others = [url for url in requests if not url.startswith(("data:", "chrome:"))]
        self.assertEqual(others, [(GALLERY / "index.html").as_uri()])
        self.assertEqual(self.browser.get_log("browser"), [])

    def open(self, width=1280, height=900, scheme="light"):
        cdp = self.browser.execute_cdp_cmd
        metrics = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}
        cdp("Emulation.setDeviceMetricsOverride", metrics)
        features = [
            {"name": "prefers-color-scheme", "value": scheme},
            {"name": "prefers-reduced-motion", "value": "reduce"},
        ]
        cdp("Emulation.setEmulatedMedia", {"features": features})
        self.browser.get((GALLERY / "index.html").as_uri())

    def all(self, selector):
        return self.browser.find_elements(By.CSS_SELECTOR, selector)

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def compare(self, section):
        """The slider that a section has first, in view."""
        box = self.browser.find_element(By.CSS_SELECTOR, f"#{section} .compare")
        self.script("arguments[0].scrollIntoView({block: 'center'})", box)
        return box, box.find_element(By.CSS_SELECTOR, "input")

    def look(self, box):
        """The picture as it is shown, without what lies over it."""
        self.script("document.head.insertAdjacentHTML('beforeend', arguments[0])",
                    "<style id=bare>.compare span, .handle { visibility: hidden }</style>")
        shown = picture(box.screenshot_as_png)
        self.script("document.getElementById('bare').remove()")
        return shown

    def source(self, box, side):
        """The embedded picture of one side."""
        uri = box.find_element(By.CSS_SELECTOR, f".{side} img").get_attribute("src")
        return picture(base64.b64decode(uri.partition(",")[2]))


class Sight(Page):
    def test_pictures_load(self):
        self.open()
        loaded = self.script(
            "return [...document.images].map(i => i.complete && i.naturalWidth == i.getAttribute("
            "'width') && i.naturalHeight == i.getAttribute('height'))"
        )
        self.assertGreater(len(loaded), 40)
        self.assertEqual(set(loaded), {True})
        for kind in ("compare", "pair"):
            for box in self.all(f".{kind}"):
                self.assertEqual(len(box.find_elements(By.CSS_SELECTOR, "img")), 2)
        self.assertLess((GALLERY / "index.html").stat().st_size, 6_000_000)

    def test_contents(self):
        self.open()
        listed = subprocess.run([RAST, "ops", "--json"], stdout=subprocess.PIPE, check=True).stdout
        names = [operation["name"] for operation in json.loads(listed)] + ["chain"]
        links = [link.get_attribute("href").partition("#")[2] for link in self.all("nav a")]
        self.assertEqual(links, names)
        self.assertEqual([part.get_attribute("id") for part in self.all("main section")], names)
        self.all("nav a")[-1].click()
        self.assertLess(self.script("return Math.abs(chain.getBoundingClientRect().top)"), 5)
        labels = [slider.accessible_name for slider in self.all(".compare input")]
        self.assertEqual(len(labels), len(set(labels)))
        self.assertTrue(all(len(label) > 30 for label in labels))

    def test_wide_and_narrow(self):
        for width in (1280, 800, 390, 320):
            self.open(width=width, height=844)
            self.assertLessEqual(self.script("return document.documentElement.scrollWidth"), width)
            outside = self.script(
                "const outside = r => r.right > innerWidth + 0.5 || r.left < 0;"
                "return [...document.querySelectorAll('main *')]"
                ".filter(e => outside(e.getBoundingClientRect())).map(e => e.outerHTML)"
            )
            self.assertEqual(outside, [])
            self.browser.save_screenshot(str(GALLERY / f"width-{width}.png"))

    def test_light_and_dark(self):
        brightness = {}
        for scheme in ("light", "dark"):
            self.open(scheme=scheme)
            shown = picture(self.browser.get_screenshot_as_png())
            shown.save(GALLERY / f"{scheme}.png")
            brightness[scheme] = sum(shown.getpixel((5, 5))) / 3
            self.assertEqual(shown.getpixel((5, 5)), shown.getpixel((1275, 5)))
        self.assertGreater(brightness["light"], 200)
        self.assertLess(brightness["dark"], 60)

    def test_text_stands_out(self):
        """Contrast of at least 4.5 to 1, by the formula of the accessibility guidelines."""

        def luminance(color):
            linear = [
                v / 12.92 if v <= 0.04045 else ((v + 0.055) / 1.055) ** 2.4
                for v in (int(part) / 255 for part in re.findall(r"\d+", color)[:3])
            ]
            return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]

        for scheme in ("light", "dark"):
            self.open(scheme=scheme)
            for text, ground in (
                ("header p", "body"), ("footer p", "body"), ("h2 small", "body"), ("h1", "body"),
                ("figcaption p", "figure"), ("nav a", "nav a"), ("code span", ".command"),
                ("button", "button"),
            ):
                pair = self.script(
                    "return [getComputedStyle(document.querySelector(arguments[0])).color,"
                    " getComputedStyle(document.querySelector(arguments[1])).backgroundColor]",
                    text, ground,
                )
                dark, light = sorted(map(luminance, pair))
                self.assertGreaterEqual((light + 0.05) / (dark + 0.05), 4.5, (scheme, text, pair))


class Slider(Page):
    def test_keyboard(self):
        self.open()
        box, slider = self.compare("hueadjust")
        self.script("arguments[0].focus()", slider)
        slider.send_keys(Keys.END)
        before = self.look(box)
        slider.send_keys(Keys.HOME)
        after = self.look(box)
        self.assertGreater(difference(before, after), 30)
        for side, shown in (("before", before), ("after", after)):
            expected = self.source(box, side).resize(shown.size, Image.Resampling.BILINEAR)
            self.assertLess(difference(shown, expected), 6, side)
        seen = [after]
        for _ in range(3):
            slider.send_keys(Keys.ARROW_RIGHT)
            seen.append(self.look(box))
        for earlier, later in zip(seen, seen[1:]):
            self.assertLess(difference(later, before), difference(earlier, before))
        slider.send_keys(Keys.ARROW_LEFT)
        self.assertEqual(difference(self.look(box), seen[-2]), 0)
        self.assertRegex(slider.get_attribute("aria-valuetext"), r"\A\d+ percent before\Z")

    def test_pointer(self):
        for name in ("colgamma", "zoom"):
            self.open()
            box, slider = self.compare(name)
            slider.send_keys(Keys.END)
            before = self.look(box)
            slider.send_keys(Keys.HOME)
            after = self.look(box)
            width, height = before.size
            move = ActionChains(self.browser).move_to_element(box)
            move.click_and_hold().move_by_offset(-10, 40).move_by_offset(width // 4 + 10, 0)
            move.release().perform()
            self.assertAlmostEqual(float(slider.get_attribute("value")), 75, delta=1)
            shown = self.look(box)
            edge = round(width * float(slider.get_attribute("value")) / 100)
            left, right = (0, 0, edge - 2, height), (edge + 2, 0, width, height)
            self.assertEqual(difference(shown.crop(left), before.crop(left)), 0)
            self.assertEqual(difference(shown.crop(right), after.crop(right)), 0)
            self.assertGreater(difference(shown.crop(left), after.crop(left)), 3)
            self.assertGreater(difference(shown.crop(right), before.crop(right)), 3)

    def test_line_stands_where_the_pictures_meet(self):
        self.open()
        _, slider = self.compare("colgamma")
        line, box = self.script(
            "const slider = arguments[0], box = slider.parentElement;"
            "slider.value = 30; slider.dispatchEvent(new Event('input'));"
            "return [box.querySelector('.handle'), box]"
            ".map(e => e.getBoundingClientRect()).map(r => [r.left, r.width])",
            slider,
        )
        self.assertAlmostEqual(line[0] + line[1] / 2, box[0] + 0.3 * box[1], delta=0.6)


class Commands(Page):
    def test_copy(self):
        self.open()
        allowed = {"permissions": ["clipboardReadWrite", "clipboardSanitizedWrite"]}
        self.browser.execute_cdp_cmd("Browser.grantPermissions", allowed)
        command = self.all("#overlay .command")[1]
        self.script("arguments[0].scrollIntoView({block: 'center'})", command)
        command.find_element(By.CSS_SELECTOR, "button").click()
        copied = self.browser.execute_async_script(
            "navigator.clipboard.readText().then(arguments[0], e => arguments[0](String(e)))"
        )
        self.assertEqual(copied, table()["show"]["overlay"][1]["command"])
        self.assertEqual(command.find_element(By.CSS_SELECTOR, "button").text, "Copied")

    def test_each_command_makes_its_picture(self):
        self.open()
        with tempfile.TemporaryDirectory() as temporary, make.rast_in_path(RAST) as environment:
            folder = Path(temporary)
            for package in table()["package"]:
                for name in package["sha256"]:
                    shutil.copy(GALLERY / "pictures" / name, folder)
            prepare = self.script("return document.querySelector('pre').textContent")
            make.run(prepare, folder, environment)
            figures = self.all("figure")
            self.assertGreater(len(figures), 20)
            for figure in figures:
                code = figure.find_element(By.CSS_SELECTOR, "code")
                command = self.script("return arguments[0].textContent", code)
                with self.subTest(command):
                    make.run(command, folder, environment)
                    for side, name in zip(("before", "after"), command.split()[-2:]):
                        image = figure.find_element(By.CSS_SELECTOR, f".{side} img")
                        # Not assertEqual, which would print both.
                        self.assertTrue(image.get_attribute("src") == make.embedded(folder / name))


class Sheet(unittest.TestCase):
    def test_stored_picture_is_current(self):
        with tempfile.TemporaryDirectory() as temporary:
            made = Path(temporary) / "sheet.png"
            subprocess.run([ROOT / "web/gallery/sheet.py", "--rast", RAST, made], check=True)
            stored = (ROOT / "docs/operations.png").read_bytes()
            self.assertEqual(difference(picture(stored), picture(made.read_bytes())), 0)
            self.assertLess(len(stored), 250_000)


class Refusals(unittest.TestCase):
    def assert_fails(self, words, function, *arguments):
        with self.assertRaises(SystemExit) as refusal:
            function(*arguments)
        self.assertIn(words, refusal.exception.code)
        self.assertNotIn("\n", refusal.exception.code)

    def test_operation_without_picture(self):
        zoom = [{"title": "Less", "text": "", "command": "rast zoom --x 500 a b"}]
        turn = [{"title": "Turn", "text": "", "command": "rast chain 'gray : rotate cw' a b"}]
        shown = {"zoom": zoom, "rotate": turn, "chain": turn}
        make.check_table(shown, ["zoom", "rotate"])
        for words, pictures, operations in (
            ("no picture of 'shift'", shown, ["zoom", "rotate", "shift"]),
            ("no picture of 'chain'", shown | {"chain": []}, ["zoom", "rotate"]),
            ("no operation 'rotate'", shown, ["zoom"]),
            ("'Turn' does not show 'zoom'", shown | {"zoom": turn}, ["zoom", "rotate"]),
        ):
            self.assert_fails(words, make.check_table, pictures, operations)

    def test_other_content(self):
        with tempfile.TemporaryDirectory() as temporary:
            folder = Path(temporary)
            control = "Package: a\nVersion: 1\nArchitecture: all\nMaintainer: a\nDescription: a\n"
            for path, text in (("DEBIAN/control", control), ("usr/share/a/one.png", "one")):
                (folder / "root" / path).parent.mkdir(parents=True, exist_ok=True)
                (folder / "root" / path).write_text(text)
            subprocess.run(
                ["dpkg-deb", "--build", folder / "root", folder / "a.deb"],
                stdout=subprocess.DEVNULL, check=True,
            )
            right = "7692c3ad3540bb803c020b3aee66cd8887123234ea0c6e7143c0add73ff431ed"
            package = {"name": "a", "folder": "usr/share/a", "sha256": {"one.png": right}}
            make.unpack(folder / "a.deb", package, folder)
            self.assertEqual((folder / "one.png").read_text(), "one")
            make.fetch(package, folder)  # there is nothing to download
            for name, digest, words in (
                ("one.png", right[::-1], "one.png in a.deb is not the file"),
                ("two.png", right, "two.png is not in a.deb"),
            ):
                package["sha256"] = {name: digest}
                self.assert_fails(words, make.unpack, folder / "a.deb", package, folder)

    def test_no_command(self):
        command = [ROOT / "web/gallery/make.py", "--rast", "/nowhere/rast"]
        done = subprocess.run(command, capture_output=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (1, b""))
        self.assertRegex(done.stderr, rb"\Amake.py: /nowhere/rast: no such command[^\n]*\n\Z")


if __name__ == "__main__":
    unittest.main()
