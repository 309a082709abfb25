#!/usr/bin/env python3
"""The service's page in a real browser (Debian's chromium, headless, driven through the DevTools
protocol on --remote-debugging-pipe), against `qkp serve` on a fresh demo installation.

    browser_test.py QKP [--artifacts DIR] [--screenshots DIR]

The page must show every department and line with the pending counts the API reports; "send now"
clicked on a line whose scale was down delivers it (its count reaches 0) and the journal view lists
the records delivered; a stopped service is said to be unreachable. Screenshots go to --artifacts
(the test run keeps them) and, for docs/service.md, to --screenshots. Exit 77: no chromium."""

import argparse, base64, json, os, re, shutil, signal, socket, subprocess, sys, tempfile, threading, time
import urllib.request

SKIP = 77


def fail(text):
    print("FAIL: " + text, file=sys.stderr)
    sys.exit(1)


def eventually(what, check, seconds=30):
    until = time.time() + seconds
    while True:
        value = check()
        if value:
            return value
        if time.time() > until:
            fail(what + f" (not within {seconds} s)")
        time.sleep(0.2)


class Browser:
    """Chromium over its DevTools pipe: commands on fd 3, answers and events on fd 4, each a JSON
    text ended by a NUL byte."""

    def __init__(self, program, profile):
        to_chrome_r, self.to_chrome = os.pipe()
        self.from_chrome, from_chrome_w = os.pipe()

        def fds():
            os.dup2(to_chrome_r, 3)
            os.dup2(from_chrome_w, 4)

        self.proc = subprocess.Popen(
            [program, "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run",
             "--remote-debugging-pipe", "--user-data-dir=" + profile, "about:blank"],
            preexec_fn=fds, close_fds=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_chrome_r)
        os.close(from_chrome_w)
        self.answers, self.next_id, self.cond = {}, 0, threading.Condition()
        threading.Thread(target=self._read, daemon=True).start()
        target = self.call("Target.createTarget", {"url": "about:blank"})["targetId"]
        self.session = self.call("Target.attachToTarget", {"targetId": target, "flatten": True})["sessionId"]
        self.call("Page.enable", session=True)
        self.size(1280, 900)

    def _read(self):
        buf = b""
        while True:
            chunk = os.read(self.from_chrome, 65536)
            if not chunk:
                return
            buf += chunk
            while b"\0" in buf:
                text, buf = buf.split(b"\0", 1)
                msg = json.loads(text)
                if "id" in msg:
                    with self.cond:
                        self.answers[msg["id"]] = msg
                        self.cond.notify_all()

    def call(self, method, params=None, session=False, timeout=60):
        with self.cond:
            self.next_id += 1
            n = self.next_id
        msg = {"id": n, "method": method, "params": params or {}}
        if session:
            msg["sessionId"] = self.session
        os.write(self.to_chrome, json.dumps(msg).encode() + b"\0")
        with self.cond:
            if not self.cond.wait_for(lambda: n in self.answers, timeout):
                fail(f"chromium did not answer {method}")
            answer = self.answers.pop(n)
        if "error" in answer:
            fail(f"{method}: {answer['error']}")
        return answer["result"]

    def js(self, expression):
        r = self.call("Runtime.evaluate", {"expression": expression, "returnByValue": True,
                                           "awaitPromise": True}, session=True)
        if "exceptionDetails" in r:
            fail("in the page: " + json.dumps(r["exceptionDetails"])[:300])
        return r["result"].get("value")

    def size(self, width, height, mobile=False):
        self.call("Emulation.setDeviceMetricsOverride", {"width": width, "height": height,
                                                          "deviceScaleFactor": 1, "mobile": mobile}, session=True)

    def go(self, url):
        self.call("Page.navigate", {"url": url}, session=True)

    def screenshot(self, paths):
        data = base64.b64decode(self.call("Page.captureScreenshot", {"format": "png"}, session=True)["data"])
        for p in paths:
            with open(p, "wb") as f:
                f.write(data)

    def close(self):
        self.proc.kill()
        self.proc.wait()


class FakeScale:
    """A scale's TCP side: takes every connection and reads until it is closed."""

    def __init__(self, port):
        self.server = socket.create_server(("127.0.0.1", port))
        self.received = 0
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        while True:
            try:
                conn, _ = self.server.accept()
            except OSError:
                return
            with conn:
                while chunk := conn.recv(65536):
                    self.received += len(chunk)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("qkp")
    ap.add_argument("--artifacts")
    ap.add_argument("--screenshots")
    args = ap.parse_args()
    chromium = shutil.which("chromium") or shutil.which("chromium-browser")
    if not chromium:
        print("SKIPPED: no chromium on this machine (apt-get install chromium)")
        return SKIP
    work = tempfile.mkdtemp(prefix="qk-browser-")
    home = os.path.join(work, "demo")
    qkp = lambda *a: subprocess.run([args.qkp, "--home", home, *a], capture_output=True, text=True)
    if qkp("init", "--demo").returncode != 0:
        fail("qkp init --demo")
    # Department 1 and line 1 of department 3 deliver to files; department 2 has no addresses
    # (its records stay pending); the scale of department 3, line 2 is down until the test starts it.
    down = free_port()
    os.mkdir(os.path.join(home, "out"))
    for l in json.loads(qkp("--format", "json", "lines").stdout):
        if l["dept"] == 2:
            continue
        to = f"tcp://127.0.0.1:{down}?timeout=5" if (l["dept"], l["line"]) == (3, 2) else "file:out/{dept}-{line}.txt"
        qkp("lines", "set", "--dept", str(l["dept"]), "--line", str(l["line"]), "--family", l["family"],
            "--scale", str(l["scale"]), "--to", to)
    for key, value in [("ServiceRetrySeconds", "3600"), ("ServiceRetryMaxSeconds", "3600")]:
        qkp("settings", "set", "Service", key, value)
    log = open(os.path.join(work, "serve.log"), "w+")
    serve = subprocess.Popen([args.qkp, "--home", home, "serve", "--listen", "127.0.0.1:0"], stderr=log)
    browser = None
    try:
        def url_of_page():
            log.seek(0)
            m = re.search(r"the API and page: (http://\S+/)", log.read())
            return m and m.group(1)
        base = eventually("the service says where it listens", url_of_page, 10)
        get = lambda path: json.load(urllib.request.urlopen(base + path.lstrip("/")))
        # Settled: every addressed line delivered, the one whose scale is down failed once.
        def settled():
            lines = get("/api/lines")
            ok = all((l["failures"] > 0) if (l["dept"], l["line"]) == (3, 2) else
                     (l["pending"] == 0 or not l["address"]) and not l["syncing"] for l in lines)
            return ok and lines
        lines = eventually("the service delivers the addressed lines", settled)
        pending = {(l["dept"], l["line"]): l["pending"] for l in lines}
        if pending[(3, 2)] == 0 or pending[(2, 1)] == 0:
            fail(f"the demo should leave records pending on 3/2 and 2/1: {pending}")

        profile = os.path.join(work, "profile")
        browser = Browser(chromium, profile)
        browser.go(base)
        shown_js = """[...document.querySelectorAll('#grid td.cell')].map(c => [+c.dataset.dept, +c.dataset.line,
            +c.querySelector('.pending').textContent, c.dataset.state])"""
        def shown():
            cells = browser.js(shown_js)
            return len(cells) == len(pending) and cells
        cells = eventually("the page shows every line", shown)
        on_page = {(d, l): n for d, l, n, _ in cells}
        if on_page != pending:
            fail(f"the page shows {on_page}, the API {pending}")
        states = {(d, l): s for d, l, _, s in cells}
        if states[(3, 2)] != "failing" or states[(2, 1)] != "unaddressed" or states[(1, 1)] != "ok":
            fail(f"the states shown: {states}")
        outputs = [p for p in [args.artifacts, args.screenshots] if p]
        for p in outputs:
            os.makedirs(p, exist_ok=True)
        shots = lambda name: [os.path.join(p, name) for p in outputs]
        browser.screenshot(shots("network-failing.png"))

        # The scale comes back; a person presses "send now".
        scale = FakeScale(down)
        browser.js("document.querySelector('td.cell[data-dept=\"3\"][data-line=\"2\"] button.send').click()")
        def delivered():
            c = {(d, l): (n, s) for d, l, n, s in browser.js(shown_js)}
            return c.get((3, 2)) == (0, "ok")
        eventually("the line sent now reaches 0 on the page", delivered)
        if scale.received == 0:
            fail("the scale received nothing")
        browser.screenshot(shots("network.png"))

        # The journal view lists what the line received.
        journal = get("/api/journal?dept=3&line=2&limit=1000")["rows"]
        if len(journal) < pending[(3, 2)]:
            fail(f"the journal has {len(journal)} rows for {pending[(3, 2)]} records")
        browser.go(base + "#journal?dept=3&line=2")
        rows_js = """[...document.querySelectorAll('#journal tbody tr')].filter(r => r.cells.length > 1)
            .map(r => [r.cells[5].textContent, +r.cells[6].textContent])"""
        want = [[r["J_KIND"], r["J_ID"]] for r in journal[:50]]
        eventually("the journal view lists the delivered records", lambda: browser.js(rows_js) == want)
        browser.screenshot(shots("journal.png"))

        # A record's history, the pictures, and the page at phone width.
        browser.go(base + "#journal?dept=1&kind=keys&id=1")
        eventually("a record's history", lambda: browser.js(rows_js) and all(
            k == "keys" and i == 1 for k, i in browser.js(rows_js)))
        browser.go(base + "#pictures")
        eventually("the layouts and images are drawn", lambda: browser.js(
            "[...document.querySelectorAll('#pictures img')].filter(i => i.complete && i.naturalWidth > 0).length") >= 4)
        browser.screenshot(shots("pictures.png"))
        browser.size(390, 844, mobile=True)
        browser.go(base + "#network")
        eventually("the page at phone width", lambda: browser.js(
            "document.querySelectorAll('#grid td.cell').length") == len(pending)
            and browser.js("document.documentElement.scrollWidth <= 390"))
        browser.screenshot(shots("network-phone.png"))
        browser.size(1280, 900)

        # The service goes away: the page says so.
        serve.send_signal(signal.SIGTERM)
        serve.wait(30)
        eventually("the page says the service cannot be reached",
                   lambda: browser.js("!document.querySelector('#unreachable').hidden"), 15)
        browser.screenshot([os.path.join(args.artifacts, "unreachable.png")] if args.artifacts else [])
    finally:
        if browser:
            browser.close()
        if serve.poll() is None:
            serve.kill()
            serve.wait()
        if args.artifacts:
            log.seek(0)
            with open(os.path.join(args.artifacts, "serve.log"), "w") as f:
                f.write(log.read())
        shutil.rmtree(work, ignore_errors=True)
    print("page checked in " + chromium)
    return 0


if __name__ == "__main__":
    sys.exit(main())
