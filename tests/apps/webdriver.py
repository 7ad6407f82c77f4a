# SPDX-License-Identifier: MIT
"""A headless Chromium, steered by its driver over the W3C WebDriver protocol, with nothing but the standard library."""

import base64
import json
import re
import shutil
import subprocess
import tempfile
import time
import urllib.error
import urllib.request
from pathlib import Path

CHROMIUM = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
            "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--disable-background-timer-throttling", "--disable-renderer-backgrounding",
            "--autoplay-policy=no-user-gesture-required", "--window-size=1360,1000", "--remote-debugging-port=0"]
KEYS = {"space": " ", "left": "\ue012", "right": "\ue014", "up": "\ue013", "down": "\ue015", "home": "\ue011",
        "end": "\ue010", "escape": "\ue00c", "shift": "\ue008", "tab": "\ue004", "enter": "\ue007"}


class Browser:
    """One browser with one window and a profile of its own. To be closed by `close`."""

    def __init__(self):
        self.profile = tempfile.mkdtemp(prefix="tonwerk-browser-")
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True)
        # The driver itself would look for a browser on "localhost", a name that a system need not know.
        self.chromium = subprocess.Popen(["chromium", *CHROMIUM, f"--user-data-dir={self.profile}", "about:blank"],
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.session = ""
        try:
            self.address = f"http://127.0.0.1:{self._port()}"
            options = {"debuggerAddress": f"127.0.0.1:{self._debugging_port()}"}
            capabilities = {"goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}
            session = self._send("POST", "/session", {"capabilities": {"alwaysMatch": capabilities}})
            self.session = f"/session/{session['sessionId']}"
        except BaseException:
            self.close()
            raise

    def _port(self):
        for line in self.driver.stdout:
            found = re.search(r"started successfully on port (\d+)", line)
            if found:
                return int(found[1])
        raise RuntimeError("chromedriver did not start")

    def _debugging_port(self):
        told = Path(self.profile) / "DevToolsActivePort"
        for _ in range(300):
            if told.exists() and "\n" in told.read_text():
                return int(told.read_text().split()[0])
            if self.chromium.poll() is not None:
                break
            time.sleep(0.1)
        raise RuntimeError("chromium did not start")

    def _send(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.address + path, data, {"Content-Type": "application/json"},
                                         method=method)
        direct = urllib.request.build_opener(urllib.request.ProxyHandler({}))
        try:
            with direct.open(request, timeout=60) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from None

    def close(self):
        try:
            if self.session:
                self._send("DELETE", self.session)
        finally:
            for process in (self.driver, self.chromium):
                process.terminate()
                process.wait()
            self.driver.stdout.close()
            shutil.rmtree(self.profile, ignore_errors=True)

    def open(self, path):
        self._send("POST", f"{self.session}/url", {"url": path.resolve().as_uri()})

    def run(self, script, *arguments):
        """The value of an expression; a promise is awaited."""
        return self._send("POST", f"{self.session}/execute/sync", {"script": f"return {script}", "args": arguments})

    def wait(self, script, seconds=20):
        """Waits until an expression is true, and returns it."""
        end = time.monotonic() + seconds
        while not (value := self.run(script)):
            if time.monotonic() > end:
                raise AssertionError(f"not true after {seconds} s: {script}")
            time.sleep(0.02)
        return value

    def press(self, *names):
        """Presses keys together: names of KEYS or characters."""
        keys = [KEYS.get(name, name) for name in names]
        actions = [{"type": "keyDown", "value": key} for key in keys]
        actions += [{"type": "keyUp", "value": key} for key in reversed(keys)]
        self._act({"type": "key", "id": "keyboard", "actions": actions})

    def drag(self, selector, start, end):
        """Presses the mouse over an element and releases it elsewhere on it, both as fractions of its width."""
        places = self.run("""((selector, ...fractions) => {
            const element = document.querySelector(selector);
            element.scrollIntoView({block: 'center'});
            const {left, top, width, height} = element.getBoundingClientRect();
            return fractions.map((fraction) => [left + width * fraction, top + height / 2].map(Math.round));
        })(...arguments)""", selector, start, end)
        moves = [{"type": "pointerMove", "x": x, "y": y, "duration": 50} for x, y in places]
        self._act({"type": "pointer", "id": "mouse", "parameters": {"pointerType": "mouse"}, "actions": [
            moves[0], {"type": "pointerDown", "button": 0}, moves[1], {"type": "pointerUp", "button": 0}]})

    def _act(self, source):
        self._send("POST", f"{self.session}/actions", {"actions": [source]})

    def errors(self):
        """What the console has shown since the last call, but for plain messages."""
        entries = self._send("POST", f"{self.session}/se/log", {"type": "browser"})
        return [entry["message"] for entry in entries if entry["level"] in ("SEVERE", "WARNING")]

    def devtools(self, command, parameters):
        """A command of Chromium's own protocol."""
        return self._send("POST", f"{self.session}/goog/cdp/execute", {"cmd": command, "params": parameters})

    def screenshot(self, path):
        path.write_bytes(base64.b64decode(self._send("GET", f"{self.session}/screenshot")))
