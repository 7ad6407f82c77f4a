# SPDX-License-Identifier: MIT
"""A headless Chromium of its own profile, steered by Selenium, and what a person does with a page."""

import shutil
import subprocess
import tempfile
import time
from pathlib import Path
from typing import Any

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

CHROMIUM = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--disable-background-timer-throttling", "--disable-renderer-backgrounding",
            "--autoplay-policy=no-user-gesture-required", "--window-size=1360,1000", "--remote-debugging-port=0"]
KEYS = {"space": Keys.SPACE, "left": Keys.LEFT, "right": Keys.RIGHT, "up": Keys.UP, "down": Keys.DOWN,
        "home": Keys.HOME, "end": Keys.END, "escape": Keys.ESCAPE, "shift": Keys.SHIFT, "tab": Keys.TAB,
        "enter": Keys.ENTER}


class Browser:
    """One browser with one window. To be closed by `close`."""

    def __init__(self) -> None:
        self.profile = tempfile.mkdtemp(prefix="tonwerk-browser-")
        self.driver: Any = None
        # The driver itself would look for a browser on "localhost", a name that a system need not know.
        self.chromium = subprocess.Popen(["chromium", *CHROMIUM, f"--user-data-dir={self.profile}", "about:blank"],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            options = webdriver.ChromeOptions()
            options.debugger_address = f"127.0.0.1:{self._debugging_port()}"
            options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
            service = Service(shutil.which("chromedriver") or "chromedriver")
            self.driver = webdriver.Chrome(service=service, options=options)
        except BaseException:
            self.close()
            raise

    def _debugging_port(self) -> int:
        told = Path(self.profile) / "DevToolsActivePort"
        for _ in range(300):
            if told.exists() and "\n" in told.read_text():
                return int(told.read_text().split()[0])
            if self.chromium.poll() is not None:
                break
            time.sleep(0.1)
        raise RuntimeError("chromium did not start")

    def close(self) -> None:
        try:
            if self.driver:
                self.driver.quit()
        finally:
            self.chromium.terminate()
            self.chromium.wait()
            shutil.rmtree(self.profile, ignore_errors=True)

    def open(self, path: Path) -> None:
        self.driver.get(path.resolve().as_uri())

    def run(self, script: str, *arguments: Any) -> Any:
        """The value of an expression; a promise is awaited."""
        return self.driver.execute_script(f"return {script}", *arguments)

    def wait(self, script: str, seconds: float = 20) -> Any:
        """Waits until an expression is true, and returns it."""
        end = time.monotonic() + seconds
        while not (value := self.run(script)):
            if time.monotonic() > end:
                raise AssertionError(f"not true after {seconds} s: {script}")
            time.sleep(0.02)
        return value

    def press(self, *names: str) -> None:
        """Presses keys together: names of KEYS or characters."""
        keys = [KEYS.get(name, name) for name in names]
        chain = ActionChains(self.driver, duration=0)
        for key in keys:
            chain.key_down(key)
        for key in reversed(keys):
            chain.key_up(key)
        chain.perform()

    def drag(self, selector: str, start: float, end: float) -> None:
        """Presses the mouse over an element and releases it elsewhere on it, both as fractions of its width."""
        element = self.driver.find_element(By.CSS_SELECTOR, selector)
        self.driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", element)
        width = self.driver.execute_script("return arguments[0].getBoundingClientRect().width", element)
        first, last = (round(width * (fraction - 0.5)) for fraction in (start, end))
        chain = ActionChains(self.driver, duration=50)
        chain.move_to_element_with_offset(element, first, 0).click_and_hold()
        chain.move_to_element_with_offset(element, last, 0).release().perform()

    def errors(self) -> list[str]:
        """What the console has shown since the last call, but for plain messages."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] in ("SEVERE", "WARNING")]

    def devtools(self, command: str, parameters: dict[str, Any]) -> Any:
        """A command of Chromium's own protocol."""
        return self.driver.execute_cdp_cmd(command, parameters)
