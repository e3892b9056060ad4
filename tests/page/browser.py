"""A headless Chromium that is driven by WebDriver: plain HTTP, as Debian's chromedriver speaks it."""
import base64
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

FLAGS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--hide-scrollbars",
         "--disable-background-networking", "--disable-component-update", "--disable-sync"]
KEYS = {"Enter": "\ue007", "Escape": "\ue00c", "Down": "\ue015", "Up": "\ue013", "Tab": "\ue004"}


class Browser:
    def __init__(self, *, width=1240, height=1000):
        self.home = tempfile.mkdtemp(prefix="page-test-")
        # A home of its own, also for what the browser keeps outside of its profile; a group, so that all of it ends.
        environment = {**os.environ, "HOME": self.home, "XDG_CONFIG_HOME": self.home, "XDG_CACHE_HOME": self.home}
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                       text=True, env=environment, start_new_session=True)
        try:
            port = None
            for line in self.driver.stdout:
                if found := re.search(r"started successfully on port (\d+)", line):
                    port = found[1]
                    break
            assert port, "chromedriver did not start"
            self.base = f"http://127.0.0.1:{port}"
            flags = [*FLAGS, f"--window-size={width},{height}", f"--user-data-dir={self.home}/profile"]
            options = {"args": flags}
            session = self.call("POST", "/session", {"capabilities": {"alwaysMatch": {
                "browserName": "chrome", "goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL"}}}})
            self.base += f"/session/{session['sessionId']}"
            self.tool("Performance.enable", timeDomain="threadTicks")
        except BaseException:
            self.close()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        try:
            if "/session/" in getattr(self, "base", ""):
                self.call("DELETE", "")
        finally:
            try:
                os.killpg(self.driver.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            self.driver.wait()
            self.driver.stdout.close()
            shutil.rmtree(self.home, ignore_errors=True)

    def call(self, method, path, body=None):
        data = None if method in ("GET", "DELETE") else json.dumps(body or {}).encode()
        request = urllib.request.Request(self.base + path, data, {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=90) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as fault:
            raise AssertionError(f"{method} {path}: {json.load(fault)['value']['message']}") from None

    def open(self, url):
        self.call("POST", "/url", {"url": url})

    def run(self, script, *arguments):
        """What the script returns, or what the promise that it returns comes to."""
        return self.call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def type(self, *keys):
        """Each is typed; "Enter" and its like are that key."""
        actions = []
        for text in keys:
            for key in [KEYS[text]] if text in KEYS else text:
                actions += [{"type": "keyDown", "value": key}, {"type": "keyUp", "value": key}]
        self.call("POST", "/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": actions}]})

    def text(self, where="main"):
        return self.run("return document.querySelector(arguments[0])?.innerText ?? null", where)

    def until(self, what, script, *arguments, seconds=30):
        """Waits until the script returns something true, and returns that."""
        end = time.monotonic() + seconds
        while not (found := self.run(script, *arguments)):
            if time.monotonic() > end:
                raise AssertionError(f"not within {seconds} s: {what}\n--- the page says\n{self.text('body')}")
            time.sleep(0.03)
        return found

    def sees(self, text, where="body", seconds=30):
        return self.until(f"{where} says {text!r}",
                          "return document.querySelector(arguments[1])?.innerText.includes(arguments[0])", text, where,
                          seconds=seconds)

    def press(self, name, where="body"):
        """The button, the link or the summary of that name."""
        self.until(f"there is something called {name!r} in {where}", """
            const found = [...document.querySelectorAll(`${arguments[1]} :is(button, a, summary)`)]
               .find((one) => one.innerText.trim() === arguments[0] && one.checkVisibility() && !one.disabled);
            found?.click();
            return found !== undefined""", name, where)

    def tool(self, command, **parameters):
        """Of those that developers have."""
        return self.call("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def scheme(self, name):
        self.tool("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": name}])

    def size(self, width, height):
        self.tool("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)

    def processor(self):
        """s of the processor's time that the page's own thread has taken: since it was opened, or earlier."""
        metrics = self.tool("Performance.getMetrics")["metrics"]
        return next(one["value"] for one in metrics if one["name"] == "TaskDuration")

    def picture(self, file):
        with open(file, "wb") as out:
            out.write(base64.b64decode(self.call("GET", "/screenshot")))

    def complaints(self):
        """What the browser's console has noted since the last call: errors of scripts, and breaches of the policy."""
        return [entry["message"] for entry in self.call("POST", "/se/log", {"type": "browser"})
                if entry["level"] == "SEVERE"]
