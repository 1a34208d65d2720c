"""The playground in Chromium, from a file, as visitors use it; RAST names the command and
PLAYGROUND the page. Screenshots are left beside the page."""

import io
import os
import random
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

from PIL import Image
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

from browser import start

RAST = os.path.abspath(os.environ["RAST"])
PLAYGROUND = Path(os.environ["PLAYGROUND"]).resolve()


def ppm(width, height, samples):
    return b"P6\n%d %d\n255\n" % (width, height) + samples


def pgm(width, height, samples):
    return b"P5\n%d %d\n255\n" % (width, height) + samples


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.saved = cls.folder / "saved"
        (cls.folder / "bin").mkdir()
        (cls.folder / "bin" / "rast").symlink_to(RAST)
        cls.browser = start(folder.name, "--window-size=1400,1000")
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        self.browser.get(PLAYGROUND.as_uri())
        self.source = random.Random(self.id())
        self.messages = []
        self.saved.mkdir(exist_ok=True)
        for path in self.saved.iterdir():
            path.unlink()
        self.settle()

    def tearDown(self):
        self.read_console()
        self.assertEqual([m for m in self.messages if m["level"] in ("WARNING", "SEVERE")], [])

    def read_console(self):
        self.messages += self.browser.get_log("browser")

    def at(self, name):
        return self.browser.find_element(By.ID, name)

    def wait(self, condition):
        return WebDriverWait(self.browser, 20, 0.05).until(lambda _: condition())

    def settle(self):
        self.wait(lambda: self.at("result").get_attribute("aria-busy") == "false")

    def file(self, name, content):
        (self.saved / name).write_bytes(content)
        return str(self.saved / name)

    def random_page(self, width, height):
        return ppm(width, height, self.source.randbytes(3 * width * height))

    def choose(self, name, content):
        self.at("file").send_keys(self.file(name, content))
        self.wait(lambda: self.at("page-note").text.startswith(name.rsplit(".", 1)[0]))
        self.settle()

    def steps(self):
        return self.browser.find_elements(By.CSS_SELECTOR, "#steps > li")

    def clear(self):
        while self.steps():
            self.steps()[0].find_element(By.CSS_SELECTOR, '[data-is="remove"]').click()
        self.settle()

    def add(self, operation):
        Select(self.at("operation")).select_by_value(operation)
        self.at("add").click()
        self.settle()

    def control(self, parameter, selector="input, select", step=-1):
        place = f'[data-parameter="{parameter}"]'
        inside = self.steps()[step].find_element(By.CSS_SELECTOR, place)
        return inside.find_elements(By.CSS_SELECTOR, selector)

    def pick(self, parameter, value):
        Select(self.control(parameter, "select")[0]).select_by_visible_text(value)
        self.settle()

    def write(self, parameter, *values):
        inputs = self.control(parameter, 'input[type="number"], textarea')
        self.assertEqual(len(inputs), len(values))
        for field, value in zip(inputs, values):
            field.send_keys(Keys.CONTROL, "a")
            field.send_keys(str(value))
        self.settle()

    def save(self, label):
        """What the button of this text saves."""
        name = label.split(" ", 1)[1] if " as " not in label else f"out.{label[-3:].lower()}"
        (self.saved / name).unlink(missing_ok=True)
        xpath = f'//button[normalize-space()="{label}"]'
        self.browser.find_element(By.XPATH, xpath).click()
        self.wait(lambda: (self.saved / name).exists())
        self.wait(lambda: not list(self.saved.glob("*.crdownload")))
        return (self.saved / name).read_bytes()

    def command(self):
        """What the printed command writes."""
        text = self.at("command").text
        path = f"{self.folder / 'bin'}:{os.environ['PATH']}"
        done = subprocess.run(
            ["bash", "-c", text], cwd=self.saved, env=os.environ | {"PATH": path}, timeout=60,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False,
        )
        self.assertEqual(done.returncode, 0, (text, done.stderr.decode()))
        out = self.saved / text.split()[-1]
        content = out.read_bytes()
        out.unlink()
        return content

    def assert_same_as_command(self, kind="PPM"):
        expected = self.command()
        self.assertTrue(self.save(f"Save as {kind}") == expected, self.at("command").text)
        with Image.open(io.BytesIO(self.save("Save as PNG"))) as image:
            made = image.convert("RGB" if kind == "PPM" else "L")
            self.assertEqual(image.mode, made.mode)
        write = ppm if kind == "PPM" else pgm
        self.assertTrue(write(*made.size, made.tobytes()) == expected, "the PNG differs")

    def test_chain_of_a_file(self):
        self.choose("page.ppm", self.random_page(61, 43))
        self.clear()
        self.assertFalse(self.at("as-command").is_displayed())
        self.add("satadjust")
        self.pick("mode", "raise")
        self.add("colgamma")
        self.pick("curve", "gamma …")
        self.write("curve", 1.85)
        self.add("hueadjust")
        self.pick("matrix", "sepia")
        self.control("mirror")[0].click()
        self.add("colbalance")
        self.write("curve", 2)
        self.write("level", 7, 3, 5, 6)
        self.add("shift")
        self.write("x", 4)
        self.write("size", 70, 50)
        self.pick("fill", "black")
        self.add("zoom")
        self.write("percent", 66.7)
        self.add("rotate")
        self.pick("turn", "ccw")
        self.assertEqual(
            self.at("command").text,
            "rast chain 'satadjust mode=raise : colgamma curve=gamma=1.85 : "
            "hueadjust matrix=sepia mirror : colbalance curve=2 level=7,3,5,6 : "
            "shift x=4 size=70x50 fill=black : zoom percent=66.7 : rotate turn=ccw' "
            "page.ppm out.ppm",
        )
        self.assertRegex(self.at("figures").text, r"^61 × 43 → 33 × 47, color, [\d.]+ ms$")
        self.assert_same_as_command()

    def test_overlays_and_numbers_of_one_s_own(self):
        self.choose("it's a page.ppm", self.random_page(50, 40))
        self.clear()
        self.add("overlay")
        logo = self.file('odd "name\'s" logo.ppm', self.random_page(20, 10))
        self.control("with", 'input[type="file"]')[0].send_keys(logo)
        self.wait(lambda: "odd" in self.at("command").text)
        self.write("at", 15, 12)
        self.pick("mode", "max")
        self.write("density", 55)
        self.control("white")[0].click()
        self.add("overlayrgb")
        self.pick("with", "stamp.png")
        self.add("colgamma")
        self.pick("curve", "own numbers …")
        self.write("curve", " ".join(str(255 - i // 2) for i in range(256)))
        self.add("hueadjust")
        self.pick("matrix", "own numbers …")
        self.write("matrix", "200 9 9 1 2, 5 220 7 0 3, 1 2 251 -3 -4 # mine")
        saves = [b.text for b in self.browser.find_elements(By.CSS_SELECTOR, "#saves button")][1:]
        self.assertEqual(len(saves), 3)
        for label in saves:
            self.save(label)
        self.assert_same_as_command()

    def test_samples_are_exact(self):
        for name, kind in (("page.png", "PPM"), ("page-gray.png", "PGM")):
            Select(self.at("sample")).select_by_value(name)
            self.wait(lambda: self.at("page-note").text.startswith(f"{name}:"))
            self.settle()
            self.save(f"Save {name}")
            self.assert_same_as_command(kind)

    def test_what_only_the_browser_reads(self):
        image = Image.frombytes("RGB", (40, 30), self.source.randbytes(3600))
        for kind in ("JPEG", "WEBP", "GIF"):
            content = io.BytesIO()
            image.save(content, kind)
            name = f"photo-{kind}"
            self.choose(f"{name}.{kind.lower()}", content.getvalue())
            self.assertIn(f" {name}.ppm ", self.at("command").text)
            saved = self.save(f"Save {name}.ppm")
            self.assertTrue(saved.startswith(b"P6\n40 30\n"))
            self.assert_same_as_command()

    def test_transparent_page(self):
        image = Image.frombytes("RGBA", (40, 30), self.source.randbytes(4800))
        content = io.BytesIO()
        image.save(content, "PNG")
        self.choose("clear.png", content.getvalue())
        self.assertIn("laid on white", self.at("page-note").text)
        self.save("Save clear-on-white.ppm")
        self.assert_same_as_command()

    def test_refusals_are_told_at_their_step(self):
        self.clear()
        self.add("rotate")
        self.add("expgamma")
        fault = self.steps()[1].find_element(By.CSS_SELECTOR, ".error")
        self.assertEqual(
            fault.text,
            "expgamma works on gray pages only and this page is color; "
            "the step 'gray' converts it",
        )
        self.assertEqual(self.at("figures").text, "Step 2, expgamma, refuses the page.")
        self.assertFalse(self.at("save-png").is_enabled())
        self.add("gray")
        up = self.steps()[2].find_element(By.CSS_SELECTOR, '[data-is="up"]')
        up.send_keys(Keys.ENTER)
        self.settle()
        focused = self.browser.switch_to.active_element
        self.assertEqual(focused.accessible_name, "Move step 2, gray up")
        faults = self.browser.find_elements(By.CSS_SELECTOR, ".error")
        self.assertFalse(any(fault.is_displayed() for fault in faults))
        self.assertTrue(self.at("save-png").is_enabled())
        self.save("Save page.png")
        self.assert_same_as_command("PGM")

    def test_values_are_refused_in_the_command_s_words(self):
        self.clear()
        self.add("gray")
        self.add("colgamma")
        self.pick("curve", "gamma …")
        self.write("curve", "1e0")
        fault = self.steps()[1].find_element(By.CSS_SELECTOR, ".error")
        words = "--curve gamma: '1e0' is no decimal number; expected 0.1..10"
        self.assertEqual(fault.text, words)
        self.assertFalse(self.at("save-png").is_enabled())
        done = subprocess.run(
            [RAST, "chain", "gray : colgamma gamma=1e0"], stdin=subprocess.DEVNULL,
            stderr=subprocess.PIPE, check=False,
        )
        self.assertEqual(done.stderr.decode(), f"rast: chain, step 2, colgamma: {words}\n")

    def test_files_that_are_no_images(self):
        before = self.at("page-note").text
        for name, content, word in (
            ("text.png", b"no image", "no image that this browser can read"),
            ("short.ppm", b"P6\n9 9\n255\nabc", "short.ppm: the file ends early"),
        ):
            self.at("file").send_keys(self.file(name, content))
            self.wait(lambda: word in self.at("page-error").text)
            self.assertEqual(self.at("page-note").text, before)

    def test_drop(self):
        content = list(self.random_page(9, 8))
        self.browser.execute_script(
            """const dataTransfer = new DataTransfer();
            dataTransfer.items.add(new File([Uint8Array.from(arguments[0])], "dropped.ppm"));
            document.dispatchEvent(new DragEvent("drop", {dataTransfer, cancelable: true}));""",
            content,
        )
        self.wait(lambda: self.at("page-note").text.startswith("dropped.ppm: 9 × 8, color."))
        self.file("dropped.ppm", bytes(content))
        self.settle()
        self.assert_same_as_command()

    def test_sliders_by_keyboard(self):
        self.clear()
        self.add("binconv")
        self.control("color", 'input[type="range"]')[0].send_keys(Keys.ARROW_RIGHT * 3)
        self.settle()
        self.assertIn("'binconv color=3'", self.at("command").text)
        (number,) = self.control("color", 'input[type="number"]')
        self.assertEqual(number.get_property("value"), "3")

    def test_copy(self):
        permission = {"permissions": ["clipboardReadWrite", "clipboardSanitizedWrite"]}
        self.browser.execute_cdp_cmd("Browser.grantPermissions", permission)
        self.at("copy").click()
        self.wait(lambda: self.at("copied").text == "Copied.")
        read = "navigator.clipboard.readText().then(arguments[0])"
        self.assertEqual(self.browser.execute_async_script(read), self.at("command").text)

    def test_everything_has_a_name(self):
        self.clear()
        for option in Select(self.at("operation")).options:
            self.add(option.get_attribute("value"))
        self.assertEqual(len(self.steps()), 12)
        for field in self.browser.find_elements(By.CSS_SELECTOR, "input, select, textarea, button"):
            self.assertTrue(field.accessible_name, field.get_attribute("outerHTML"))

    def test_nothing_is_fetched(self):
        fetched = self.browser.execute_script(
            "return performance.getEntriesByType('resource').map(({name}) => name)"
        )
        self.assertEqual([name for name in fetched if not name.startswith(("blob:", "data:"))], [])
        fetching = "fetch('data:,').catch(() => 'refused').then(arguments[0])"
        self.assertEqual(self.browser.execute_async_script(fetching), "refused")
        self.read_console()
        self.messages = [m for m in self.messages if "Content Security Policy" not in m["message"]]

    def test_looks(self):
        self.add("shift")
        self.write("x", 60)
        self.add("overlay")
        for width, height in ((1400, 1000), (390, 844)):
            for scheme in ("light", "dark"):
                metrics = {"width": width, "height": height, "deviceScaleFactor": 1}
                self.browser.execute_cdp_cmd(
                    "Emulation.setDeviceMetricsOverride", metrics | {"mobile": width < 500}
                )
                feature = {"name": "prefers-color-scheme", "value": scheme}
                self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [feature]})
                time.sleep(0.2)
                content = "return document.documentElement.scrollWidth"
                self.assertLessEqual(self.browser.execute_script(content), width)
                for part in ("sample", "steps"):
                    self.browser.execute_script("arguments[0].scrollIntoView()", self.at(part))
                    path = PLAYGROUND.parent / f"{scheme}-{width}-{part}.png"
                    self.assertTrue(self.browser.save_screenshot(str(path)))
        self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": []})


if __name__ == "__main__":
    unittest.main()
