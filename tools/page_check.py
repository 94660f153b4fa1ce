#!/usr/bin/env python3
"""Opens the page of fa-report in a real browser, Debian's headless Chromium, and checks it.

usage: tools/page_check.py FA-REPORT             checks a page of reports with hostile names
       tools/page_check.py --picture PAGE PNG [WIDTH [HEIGHT]]
                                                 a picture of the begin of a page, in pixels
       tools/page_check.py --print PAGE PDF      a page as it is printed

The check: nothing is said on the console and nothing is fetched; every chart is drawn; the table of
items is sorted by keyboard; whatever stands in a report is shown as text and is nothing else; the
page fits the width of a phone.
"""
import base64
import collections
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import time

PATIENCE = 120  # seconds, for any one answer

HOSTILE = [
    "</script><script>window.hit = 1</script>", "<img src=x onerror=window.hit=2>", "<!--<script>", "-->",
    "\"'><b>", "&lt;b&gt; &amp;", "{data}{script}", "javascript:window.hit=3", "${window.hit = 4}",
    "line\u2028and\u2029paragraph", "\u202egnitrevni", "\x1b[2J\x07", "a\x00b", b"\xff\xfe\xc3".decode("utf-8", "surrogateescape"),
    "__proto__", "constructor", "\\u003c/script>", "]]>", "\ud83d\udcfa".encode("utf-16", "surrogatepass").decode("utf-16"),
    "W" * 200,
]


class Browser:
    """A Chromium that is told what to do through a pipe, and what it has told."""

    def __init__(self, profile):
        there, mine = os.pipe(), os.pipe()
        # Root has no sandbox; what is shown is our own page.
        sandbox = ["--no-sandbox"] if os.getuid() == 0 else []
        command = ["chromium", "--headless=new", "--remote-debugging-pipe", f"--user-data-dir={profile}",
                   "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run", "--disable-background-networking",
                   "--hide-scrollbars", *sandbox, "about:blank"]
        self.process = subprocess.Popen(
            ["bash", "-c", f"exec \"$@\" 3<&{there[0]} 4>&{mine[1]}", "bash", *command],
            pass_fds=(there[0], mine[1]), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(there[0])
        os.close(mine[1])
        self.input, self.output = there[1], mine[0]
        self.unread, self.number, self.session = b"", 0, None
        self.events = collections.deque()
        target = self.tell("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.tell("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.tell(domain + ".enable")

    def read(self):
        while b"\0" not in self.unread:
            piece = os.read(self.output, 1 << 20)
            if not piece:
                sys.exit("page_check: the browser has ended")
            self.unread += piece
        message, self.unread = self.unread.split(b"\0", 1)
        return json.loads(message)

    def tell(self, method, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.input, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.read()
            if answer.get("id") == self.number:
                if "error" in answer:
                    sys.exit(f"page_check: {method}: {answer['error']['message']}")
                return answer["result"]
            self.events.append(answer)

    def evaluate(self, expression):
        """The value of an expression in the page, which may be a promise."""
        answer = self.tell("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in answer:
            sys.exit(f"page_check: {expression}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def press(self, key, code, text=""):
        for kind in ("keyDown", "keyUp"):
            self.tell("Input.dispatchKeyEvent", type=kind, key=key, code=key, windowsVirtualKeyCode=code,
                      **({"text": text} if text and kind == "keyDown" else {}))

    def open(self, page, width=1200, height=900):
        self.tell("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=width < 600)
        self.tell("Page.navigate", url=pathlib.Path(page).resolve().as_uri())
        deadline = time.monotonic() + PATIENCE
        while self.evaluate("document.readyState") != "complete" or not self.evaluate("location.href").startswith("file:"):
            if time.monotonic() > deadline:
                sys.exit("page_check: the page does not get ready")
        self.evaluate("new Promise(done => requestAnimationFrame(() => setTimeout(done, 500)))")

    def close(self):
        self.session = None
        self.tell("Browser.close")
        self.process.wait(PATIENCE)


def report(serial, start, result, items, version):
    """A raw report of items (name, result, specification, measured values, detail)."""
    text = (f"[summary]\nstarttime={start}\nduration=420\nresult={result}\npelko=uart\ntestnum={len(items) + 3}\n"
            f"retrycount=0\n\n[information]\ns/n={serial}\nmodel=M\noption=O\nmm={version}\nsm=2\nss=3\nmt=4\nbt=5\n"
            "ld1=6\nld2=7\n\n\n\n")
    for position, (name, outcome, spec, measure, detail) in enumerate(items, 1):
        text += (f"[{position:03}]\nname={name}, 0x10 {position:02x}\nimqs=I\nresult={outcome}\nduration={position}\n"
                 f"retrycount=0\nspec={spec}\nmeasure={measure}\ninsptype=auto\ntid=1\nstarttime=0\n"
                 f"failed=auto;0;0;0^{detail}^\n\n")
    return text


def write_reports(folder):
    """Each hostile text as serial number, version, item, specification, value and detail."""
    for n, text in enumerate(HOSTILE):
        items = [(name, "fail" if place == n else "pass", "4~6", str(5 + place % 2), "") for place, name in enumerate(HOSTILE)]
        items[n] = (text, "fail", text, text, text)
        content = report(text, f"202611{n % 9 + 1:02}080000", "fail", items, text)
        (folder / f"{n:02} <b>&.txt").write_bytes(content.encode("utf-8", "surrogateescape"))
    (folder / "cut <i>.txt").write_text("[summary]\n")


def shown(text):
    """A text of a report as outputs show it."""
    valid = text.encode("utf-8", "surrogateescape").decode("utf-8", "replace")
    return "".join("\ufffd" if ord(c) < 32 or 127 <= ord(c) < 160 else c for c in valid)


class Checks:
    def __init__(self):
        self.failed = 0

    def __call__(self, what, holds, told=""):
        if not holds:
            self.failed += 1
            print(f"page_check: {what}{': ' if told else ''}{told}", file=sys.stderr)


def check(program):
    checks = Checks()
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        (folder / "reports").mkdir()
        write_reports(folder / "reports")
        page = folder / "page.html"
        done = subprocess.run([program, "page", "-o", page, folder / "reports"], stderr=subprocess.DEVNULL)
        checks("the exit status", done.returncode == 3, str(done.returncode))
        browser = Browser(folder / "profile")
        browser.open(page)

        canvases = browser.evaluate("document.querySelectorAll('canvas').length")
        checks("charts", canvases == 3 + len(HOSTILE), str(canvases))
        blank = browser.evaluate("""(async () => {
            const blank = [];
            for (const canvas of document.querySelectorAll("canvas")) {
                canvas.scrollIntoView();
                for (let frame = 0; frame < 100 && !(canvas.width > 300); ++frame) {
                    await new Promise(done => setTimeout(done, 50));
                }
                const pixels = new Uint32Array(canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data.buffer);
                if (new Set(pixels).size < 10) {
                    blank.push(canvas.getAttribute("aria-label"));
                }
            }
            return blank;
        })()""")
        checks("charts that are not drawn", not blank, str(blank))

        text = browser.evaluate("document.body.textContent")
        for name in HOSTILE:
            checks("a text that is not shown", text.count(shown(name)) > 4, repr(name))
        checks("a file's name that is not shown", "00 <b>&.txt" in text and "cut <i>.txt:" in text)
        elements = browser.evaluate("Array.from(document.body.querySelectorAll('*'), element => element.localName)")
        wrong = set(elements) - set("a body button canvas caption dd details div dl dt figcaption figure h1 h2 h3 header li "
                                    "main nav noscript p script section summary table tbody td th thead tr ul".split())
        checks("elements that no text may make", not wrong and elements.count("script") == 3, str(wrong))
        attributes = browser.evaluate("""Array.from(document.body.querySelectorAll("*"), element =>
            Array.from(element.attributes, attribute => attribute.name)).flat()""")
        wrong = set(attributes) - set("aria-label aria-labelledby aria-sort class height href id role scope style tabindex type "
                                      "width".split())
        checks("attributes that no text may make", not wrong and attributes.count("href") == 7, str(wrong))
        checks("a script of a report has run", browser.evaluate("window.hit") is None)

        order = "Array.from(document.querySelectorAll('#items tbody tr'), row => row.cells[%d].textContent)"
        state = "Array.from(document.querySelectorAll('#items th'), head => head.getAttribute('aria-sort'))"
        begin = browser.evaluate(order % 0)
        checks("the order at the begin", browser.evaluate(state)[2] == "descending")
        browser.evaluate("document.querySelector('#items .scroll').focus()")
        for column, key, code, kind in [(0, "Enter", 13, "ascending"), (7, " ", 32, "descending"), (7, "Enter", 13, "ascending")]:
            for _ in range(20):
                if browser.evaluate(f"document.activeElement === document.querySelectorAll('#items button')[{column}]"):
                    break
                browser.press("Tab", 9)
            browser.press(key, code, "\r" if key == "Enter" else " ")
            sort = browser.evaluate(state)
            checks(f"column {column}, sorted by {key}", sort[column] == kind and sort.count("none") == 8, str(sort))
            cells = browser.evaluate(order % column)
            numbers = [float(cell) for cell in cells] if column else []
            checks(f"rows by column {column}", numbers == sorted(numbers, reverse=kind == "descending"), str(numbers))
        checks("all rows are left after sorting", sorted(begin) == sorted(browser.evaluate(order % 0)))

        browser.open(page, width=360, height=740)
        width = browser.evaluate("document.documentElement.scrollWidth")
        checks("wider than a phone", width <= 360, f"{width} pixels")
        for event in browser.events:
            method, parameters = event.get("method"), event.get("params", {})
            if method in ("Runtime.consoleAPICalled", "Runtime.exceptionThrown", "Log.entryAdded", "Page.javascriptDialogOpening"):
                checks("said on the console", False, json.dumps(parameters)[:600])
            elif method == "Network.requestWillBeSent" and parameters["request"]["url"] != page.resolve().as_uri():
                checks("fetched", False, parameters["request"]["url"])
        browser.close()
    if checks.failed == 0:
        print(f"The page: {canvases} charts drawn, {len(HOSTILE)} hostile texts shown as text, sorted by keyboard, "
              "nothing on the console, nothing fetched")
    return min(checks.failed, 1)


def picture(page, png, width=1200, height=900):
    with tempfile.TemporaryDirectory() as profile:
        browser = Browser(profile)
        browser.open(page, int(width), int(height))
        data = browser.tell("Page.captureScreenshot", format="png")["data"]
        pathlib.Path(png).write_bytes(base64.b64decode(data))
        browser.close()


def printed(page, pdf):
    with tempfile.TemporaryDirectory() as profile:
        browser = Browser(profile)
        browser.open(page)
        data = browser.tell("Page.printToPDF", printBackground=False, paperWidth=8.27, paperHeight=11.69)["data"]
        pathlib.Path(pdf).write_bytes(base64.b64decode(data))
        browser.close()


def main():
    words = sys.argv[1:]
    if len(words) == 1 and words[0] not in ("--help", "-h"):
        return check(os.path.abspath(words[0]))
    if len(words) in (3, 4, 5) and words[0] == "--picture":
        return picture(*words[1:])
    if len(words) == 3 and words[0] == "--print":
        return printed(*words[1:])
    print(__doc__.strip())
    return 0 if words in (["--help"], ["-h"]) else 2


if __name__ == "__main__":
    sys.exit(main())
