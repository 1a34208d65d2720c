"""Headless Chromium for the tests of pages."""

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

# Root cannot have a sandbox; a page that needs the network has a fault.
FLAGS = (
    "--headless=new --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-sync "
    "--disable-background-networking --disable-component-update --hide-scrollbars"
).split()


def start(folder, *flags):
    """A browser whose profile is in the folder, and what it saves in `saved` there; it keeps logs of
    the console and of requests."""
    options = webdriver.ChromeOptions()
    for flag in (*FLAGS, *flags, f"--user-data-dir={folder}/profile"):
        options.add_argument(flag)
    options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    options.add_experimental_option("prefs", {"download.default_directory": f"{folder}/saved"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
