#!/usr/bin/python3
"""Checks `fileinfo report` in a real browser.

Makes the report of the fixture tree, the examples and a few hostile files
with the example device, opens it in headless chromium (driven through the
DevTools protocol over a pipe), and checks:
  - every figure on the page against the per-file lines of `fileinfo --json`;
  - the refusal bars, their links into the table, sorting and filtering;
  - that tag texts such as a </script> title show as text and run nothing;
  - that the page asks for nothing over the network;
  - screenshots at desktop and phone widths, light and dark: not blank, the
    main parts on screen, no sideways overflow.

usage: check_report.py FILEINFO SOURCE_DIR [--size]
With --size it instead writes the report of 10,000 files and checks that
the page stays well under 1 MB and, with chromium, stays responsive.
Exits 77 (skipped) when chromium is not installed.
"""
import base64
import io
import json
import os
import queue
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

SKIP = 77
INJECTED_TITLE = "</script><script>alert(1)</script>"
INJECTED_ARTIST = "<img src=x onerror=alert(2)>"
PAGE_TITLE = 'Fixtures <b>&</b> "examples"'

failures = []


def check(condition, what):
    if condition:
        print("ok:", what)
    else:
        print("FAILED:", what)
        failures.append(what)


def run(command, allowed=(0,)):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if done.returncode not in allowed:
        raise RuntimeError("%s exited with %d: %s" % (command, done.returncode, done.stderr.decode(errors="replace")))
    return done


def find_chromium():
    for name in (os.environ.get("CHROMIUM", ""), "chromium", "chromium-browser"):
        if name and shutil.which(name):
            return shutil.which(name)
    return None


class Browser:
    """Headless chromium, spoken to over --remote-debugging-pipe: commands
    go to its descriptor 3, replies and events come from its descriptor 4,
    each message a JSON text ending in a NUL byte."""

    def __init__(self, exe, profile):
        to_browser_r, self.to_browser = os.pipe()
        self.from_browser, from_browser_w = os.pipe()

        def place_pipes():
            a, b = os.dup(to_browser_r), os.dup(from_browser_w)
            os.dup2(a, 3)
            os.dup2(b, 4)

        flags = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--user-data-dir=" + profile, "--hide-scrollbars", "--remote-debugging-pipe",
                 # No network: any request the page made would fail here.
                 "--proxy-server=127.0.0.1:9", "--proxy-bypass-list=<-loopback>", "about:blank"]
        self.proc = subprocess.Popen([exe] + flags, preexec_fn=place_pipes, pass_fds=(3, 4),
                                     stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser_r)
        os.close(from_browser_w)
        self.messages = queue.Queue()
        self.events = []
        self.next_id = 0
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        buffer = b""
        while True:
            chunk = os.read(self.from_browser, 1 << 16)
            if not chunk:
                self.messages.put(None)
                return
            buffer += chunk
            while b"\0" in buffer:
                message, buffer = buffer.split(b"\0", 1)
                self.messages.put(json.loads(message))

    def _pump(self, timeout):
        message = self.messages.get(timeout=timeout)
        if message is None:
            raise RuntimeError("chromium closed the pipe")
        if "id" not in message:
            self.events.append(message)
        return message

    def send(self, method, params=None, session=None, timeout=30):
        self.next_id += 1
        message = {"id": self.next_id, "method": method, "params": params or {}}
        if session:
            message["sessionId"] = session
        os.write(self.to_browser, json.dumps(message).encode() + b"\0")
        deadline = time.time() + timeout
        while True:
            reply = self._pump(max(0.1, deadline - time.time()))
            if reply.get("id") == self.next_id:
                if "error" in reply:
                    raise RuntimeError(method + ": " + json.dumps(reply["error"]))
                return reply.get("result", {})

    def wait_event(self, name, session, timeout=30):
        deadline = time.time() + timeout
        seen = 0
        while True:
            for event in self.events[seen:]:
                if event.get("method") == name and event.get("sessionId") == session:
                    self.events.remove(event)
                    return event
            seen = len(self.events)
            self._pump(max(0.1, deadline - time.time()))

    def settle(self, seconds):
        deadline = time.time() + seconds
        while time.time() < deadline:
            try:
                self._pump(max(0.01, deadline - time.time()))
            except queue.Empty:
                pass

    def close(self):
        try:
            self.send("Browser.close", timeout=5)
        except Exception:
            pass
        try:
            self.proc.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.proc.kill()


class Page:
    def __init__(self, browser, width, height, mobile, scheme):
        self.b = browser
        target = browser.send("Target.createTarget", {"url": "about:blank"})["targetId"]
        self.session = browser.send("Target.attachToTarget", {"targetId": target, "flatten": True})["sessionId"]
        for domain in ("Page", "Runtime", "Network"):
            self.cmd(domain + ".enable")
        self.cmd("Emulation.setDeviceMetricsOverride",
                 {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": mobile})
        self.cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def cmd(self, method, params=None):
        return self.b.send(method, params, self.session)

    def open(self, url):
        self.cmd("Page.navigate", {"url": url})
        self.b.wait_event("Page.loadEventFired", self.session)
        self.b.settle(0.3)

    def js(self, expression):
        result = self.cmd("Runtime.evaluate", {"expression": expression, "returnByValue": True, "awaitPromise": True})
        if "exceptionDetails" in result:
            raise RuntimeError("script failed: " + json.dumps(result["exceptionDetails"])[:500])
        return result["result"].get("value")

    def screenshot(self):
        size = self.cmd("Page.getLayoutMetrics")["cssContentSize"]
        shot = self.cmd("Page.captureScreenshot", {"format": "png", "captureBeyondViewport": True,
                                                  "clip": {"x": 0, "y": 0, "width": size["width"],
                                                           "height": size["height"], "scale": 1}})
        return base64.b64decode(shot["data"])

    def events(self, name):
        return [e for e in self.b.events if e.get("method") == name and e.get("sessionId") == self.session]


READ_PAGE = r"""(() => {
  const v = id => { const e = document.getElementById(id); return e ? Number(e.getAttribute('data-value')) : null; };
  const bars = id => [...document.querySelectorAll('#' + id + ' .bar-item')].map(g =>
      ({label: g.getAttribute('data-label'), key: g.getAttribute('data-key'), count: Number(g.getAttribute('data-count')),
        href: (g.querySelector('a') || {getAttribute: () => null}).getAttribute('href')}));
  const box = id => { const e = document.getElementById(id); if (!e) return null;
      const r = e.getBoundingClientRect(), s = getComputedStyle(e);
      return {w: r.width, h: r.height, left: r.left, right: r.right, top: r.top + scrollY,
              shown: s.display !== 'none' && s.visibility !== 'hidden' && !e.closest('[hidden]')}; };
  const ids = ['title', 'headline', 'fig-files', 'device', 'verdict-figure', 'fig-playable', 'chart-refusals',
      'chart-types', 'chart-codecs', 'hist-duration', 'hist-bitrate', 'hist-samplerate', 'scatter-size',
      'file-table-wrap', 'filter-text', 'problem-list', 'differs'];
  const boxes = {}; ids.forEach(id => boxes[id] = box(id));
  return {
    ready: document.body.getAttribute('data-ready'), title: document.title, h1: document.getElementById('title').textContent,
    files: v('fig-files'), identified: v('fig-identified'), unidentified: v('fig-unidentified'), failed: v('fig-failed'),
    skipped: v('fig-skipped'), unreachable: v('fig-unreachable'), duration: v('fig-duration'), size: v('fig-size'),
    playable: v('fig-playable'), unplayable: v('fig-unplayable'), matching: v('files-count'),
    refusals: bars('chart-refusals'), types: bars('chart-types'),
    rows: document.querySelectorAll('#file-rows tr').length,
    problems: [...document.querySelectorAll('#problem-list tbody tr')].map(tr => [...tr.cells].map(c => c.textContent)),
    scripts: document.scripts.length, images: document.images.length,
    differsFiles: v('differs-summary'),
    differs: Object.fromEntries([...document.querySelectorAll('#differs-list details')].map(d =>
        [d.getAttribute('data-field'), Number(d.getAttribute('data-count'))])),
    svgs: [...document.querySelectorAll('svg:not([aria-hidden])')].map(s => ({label: s.getAttribute('aria-labelledby'),
        title: (s.querySelector('title') || {}).textContent, desc: (s.querySelector('desc') || {}).textContent})),
    limits: [...document.querySelectorAll('#scatter-size [data-limit]')].map(l => l.getAttribute('data-limit') + '=' + l.getAttribute('data-value')),
    boxes: boxes, viewport: innerWidth, scrollWidth: document.documentElement.scrollWidth,
  };
})()"""

TIMINGS = r"""(() => {
  const t0 = performance.now();
  document.querySelector('th[data-key=duration] button').click();
  const t1 = performance.now();
  const s = document.getElementById('filter-playable'); s.value = 'no'; s.dispatchEvent(new Event('change'));
  const t2 = performance.now();
  return {load: performance.getEntriesByType('navigation')[0].loadEventEnd, sort: t1 - t0, filter: t2 - t1,
          rows: document.querySelectorAll('#file-rows tr').length,
          files: Number(document.getElementById('fig-files').getAttribute('data-value'))};
})()"""

# What a reader sees: columns on screen, texts that fit their boxes, chart
# text at a readable size, points clear of the limits' labels.
LAYOUT = r"""(() => {
  const wrap = document.getElementById('file-table-wrap');
  const wr = wrap.getBoundingClientRect();
  const shown = e => { const s = getComputedStyle(e); const r = e.getBoundingClientRect();
      return s.display !== 'none' && s.visibility !== 'hidden' && r.width > 0 && r.left >= -1; };
  const heads = {};
  document.querySelectorAll('#file-head th').forEach(th => { const r = th.getBoundingClientRect();
      heads[th.getAttribute('data-key')] = shown(th) && r.right <= wr.right + 1 && r.left >= wr.left - 1; });
  const cut = [];
  document.querySelectorAll('td, th, h1, h2, h3, .figure .label, .figure .value, .note, .meta, option').forEach(e => {
      if (e.closest('[hidden]') || getComputedStyle(e).display === 'none' || e.tagName === 'OPTION') return;
      if (e.scrollWidth > e.clientWidth + 1) cut.push(e.tagName + ': ' + e.textContent.slice(0, 60)); });
  const svgText = [], small = [], ellipsis = [];
  document.querySelectorAll('svg:not([aria-hidden])').forEach(svg => {
      const box = svg.getBoundingClientRect(), scale = box.width / svg.viewBox.baseVal.width;
      svg.querySelectorAll('text').forEach(t => {
          const r = t.getBoundingClientRect();
          if (r.left < box.left - 1 || r.right > box.right + 1 || r.top < box.top - 1 || r.bottom > box.bottom + 1)
              svgText.push(t.textContent + ' ' + JSON.stringify([r.left, r.right, box.left, box.right]));
          const px = parseFloat(getComputedStyle(t).fontSize) * scale;
          if (px < 11 - 0.01) small.push(t.textContent + ': ' + px.toFixed(1) + 'px');
          if (t.textContent.indexOf('\u2026') >= 0) ellipsis.push(t.textContent);
      }); });
  const labels = [...document.querySelectorAll('#scatter-size .limit-label tspan')].map(t => t.getBoundingClientRect());
  const covered = [...document.querySelectorAll('#scatter-size circle')].filter(c => { const a = c.getBoundingClientRect();
      return labels.some(b => a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom); }).length;
  const rows = [...document.querySelectorAll('#file-rows tr')];
  const rates = [...document.querySelectorAll('#hist-samplerate .bar-item')].map(g => g.getAttribute('data-label'));
  const whys = [...document.querySelectorAll('#file-rows .why')].map(w => ({text: w.textContent,
      lines: Math.round(w.getBoundingClientRect().height / parseFloat(getComputedStyle(w).lineHeight || 16))}));
  return {heads: heads, tableScroll: wrap.scrollWidth - wrap.clientWidth, cut: cut, svgText: svgText, small: small,
      ellipsis: ellipsis, limitLabels: labels.length, covered: covered,
      cards: rows.length > 0 && rows.every(tr => getComputedStyle(tr).display === 'block' &&
          tr.getBoundingClientRect().right <= innerWidth + 1),
      theadShown: getComputedStyle(document.querySelector('#file-table thead')).position !== 'absolute',
      rates: rates, rateNote: (document.querySelector('#hist-samplerate .note') || {}).textContent || '',
      firstPath: rows.length ? rows[0].cells[0].textContent : '', whys: whys};
})()"""

TABLE = r"""[...document.querySelectorAll('#file-rows tr')].map(tr => [...tr.cells].map(c => c.textContent))"""


def expected_figures(lines, tree_files):
    """The page's figures as the JSON lines give them: counted by the reading
    ("media"), a file being identified when the reading found its type, and
    failed when it was not and the library's load failed."""
    files = len(lines)

    def identified(d):
        return d["media"] is not None and d["media"]["type"] is not None

    ident = [d for d in lines if identified(d)]
    failed = sum(1 for d in lines if not identified(d) and d["status"] != 1)
    by_key, by_why, by_type, differs = {}, {}, {}, {}
    for d in lines:
        if not d["playable"]:
            if d["refused_by"]:
                by_key[d["refused_by"]] = by_key.get(d["refused_by"], 0) + 1
            else:
                why = d["explanation"] or "not playable"
                by_why[why] = by_why.get(why, 0) + 1
        if identified(d):
            t = d["media"]["type"]
            by_type[t] = by_type.get(t, 0) + 1
        for x in d["record_differs"] or []:
            differs[x["field"]] = differs.get(x["field"], 0) + 1
    listed = {d["path"] for d in lines}
    return {
        "files": files, "failed": failed, "identified": len(ident), "unidentified": files - failed - len(ident),
        "skipped": len([p for p in tree_files if p not in listed]), "unreachable": 0,
        "duration": sum(d["media"]["duration_ms"] for d in ident),
        "size": sum(d["media"]["size"] for d in ident),
        "playable": sum(1 for d in lines if d["playable"]),
        "unplayable": sum(1 for d in lines if not d["playable"]),
        "by_key": by_key, "by_why": by_why, "by_type": by_type,
        "differs": differs, "differs_files": sum(1 for d in lines if d["record_differs"]),
    }


def walk_files(roots):
    found = []
    for root in roots:
        for folder, dirs, names in os.walk(root):
            dirs[:] = sorted(d for d in dirs if not d.startswith("."))
            found += [os.path.join(folder, n) for n in sorted(names) if not n.startswith(".")]
    return found


def make_hostile_files(fileinfo, source, folder):
    os.makedirs(folder)
    mp3 = os.path.join(source, "tests", "fixtures", "mp3", "cbr128.mp3")
    injected = os.path.join(folder, "injected.mp3")
    shutil.copy(mp3, injected)
    run([fileinfo, "--set", "title=" + INJECTED_TITLE, "--set", "artist=" + INJECTED_ARTIST, "--no-backup", "--force", injected])
    shutil.copy(mp3, os.path.join(folder, 'a&<b>"name".mp3'))
    with open(os.path.join(folder, "random-bytes.mp3"), "wb") as f:
        f.write(bytes((k * 131 + 17) % 251 for k in range(4096)))
    open(os.path.join(folder, "empty.mp3"), "wb").close()
    # A WAV header whose sample rate reads as 4,076,822,644 Hz.
    with open(os.path.join(source, "examples", "tone-mono.wav"), "rb") as f:
        wav = bytearray(f.read())
    wav[24:28] = (4076822644).to_bytes(4, "little")
    with open(os.path.join(folder, "odd-rate.wav"), "wb") as f:
        f.write(bytes(wav))
    with open(os.path.join(folder, "notes.txt"), "w") as f:
        f.write("not media\n")


def check_pixels(png, scheme, what):
    try:
        from PIL import Image
    except ImportError:
        print("note: python3-pil is missing: the screenshots' pixels are not checked")
        return
    image = Image.open(io.BytesIO(png)).convert("RGB")
    small = image.resize((max(1, image.width // 4), max(1, image.height // 4)))
    colours = small.getcolors(1 << 20) or []
    common = max(c for c, _ in colours) / (small.width * small.height)
    check(len(colours) > 50 and common < 0.9, "%s: the screenshot is not blank (%d colours, %.0f%% background)"
          % (what, len(colours), 100 * common))
    bg = image.getpixel((2, 2))
    light = sum(bg) / 3 > 128
    check(light == (scheme == "light"), "%s: the background %s follows the %s theme" % (what, bg, scheme))


def check_page(browser, url, exp, lines, width, height, mobile, scheme, shots):
    what = "%dx%d %s" % (width, height, scheme)
    page = Page(browser, width, height, mobile, scheme)
    page.open(url)
    p = page.js(READ_PAGE)
    check(p["ready"] == "1", what + ": the page's script ran to its end")
    for key in ("files", "identified", "unidentified", "failed", "skipped", "unreachable", "duration", "size",
                "playable", "unplayable"):
        check(p[key] == exp[key], "%s: figure %s is %s, the JSON lines give %s" % (what, key, p[key], exp[key]))
    keyed = {b["key"]: b["count"] for b in p["refusals"] if b["key"]}
    other = {b["label"]: b["count"] for b in p["refusals"] if not b["key"]}
    check(keyed == exp["by_key"], "%s: refusals by requirement %s equal the JSON lines' %s" % (what, keyed, exp["by_key"]))
    check(other == exp["by_why"], "%s: other refusals %s equal the JSON lines' %s" % (what, other, exp["by_why"]))
    types = {b["label"]: b["count"] for b in p["types"]}
    check(types == exp["by_type"], "%s: files by type %s equal the JSON lines' %s" % (what, types, exp["by_type"]))
    check(p["rows"] == min(100, exp["files"]) and p["matching"] == exp["files"], what + ": the table lists every file")
    problems = {row[0]: row[1] for row in p["problems"]}
    want = {d["path"]: "%d (%s)" % (d["status"], d["status_text"]) for d in lines
            if d["media"] is None or d["media"]["type"] is None}
    check(problems == want, what + ": failed and unidentified files are listed with their status texts")
    check(p["title"] == PAGE_TITLE and p["h1"] == PAGE_TITLE, what + ": --title names the page, as text")
    check(p["scripts"] == 3 and p["images"] == 0, what + ": tag texts added no script or image element")
    check(p["differsFiles"] == exp["differs_files"] and p["differs"] == exp["differs"],
          "%s: where the record differs, %s files by field %s, equals the JSON lines' %s files by field %s"
          % (what, p["differsFiles"], p["differs"], exp["differs_files"], exp["differs"]))
    check(all(s["title"] and s["desc"] and s["label"] for s in p["svgs"]) and len(p["svgs"]) >= 7,
          what + ": every chart has a title and a text alternative")
    check("width=320" in p["limits"] and "height=240" in p["limits"], what + ": the device's maximum size is drawn")
    for name, b in p["boxes"].items():
        check(b and b["shown"] and b["w"] > 0 and b["h"] > 0 and b["left"] >= -1 and b["right"] <= p["viewport"] + 1,
              "%s: #%s is shown on the page (%s)" % (what, name, b))
    check(p["scrollWidth"] <= p["viewport"], what + ": nothing spills sideways")

    page.js("location.hash = 'view=files'")
    page.b.settle(0.3)
    lay = page.js(LAYOUT)
    print("layout at %s: %s" % (what, json.dumps({k: lay[k] for k in ("heads", "tableScroll", "rates", "limitLabels",
                                                                      "covered", "cards", "firstPath")})))
    check(not lay["cut"], "%s: no text is cut by its box: %s" % (what, lay["cut"][:5]))
    check(not lay["svgText"], "%s: every chart text lies inside its chart: %s" % (what, lay["svgText"][:5]))
    check(not lay["ellipsis"], "%s: no chart label is shortened with an ellipsis: %s" % (what, lay["ellipsis"][:5]))
    check(not lay["small"], "%s: chart text is at least 11 px: %s" % (what, lay["small"][:5]))
    check(lay["limitLabels"] >= 1 and lay["covered"] == 0, what + ": no point of the scatter covers the limits' labels")
    real = {"4", "8", "11.025", "12", "16", "22.05", "24", "32", "44.1", "48", "96", "other"}
    check(set(lay["rates"]) <= real and "other" in lay["rates"],
          "%s: the sample-rate bins are real rates and one for the others: %s" % (what, lay["rates"]))
    check("4,076,822.644 kHz (1 file)" in lay["rateNote"], "%s: the outlier rate is named: %s" % (what, lay["rateNote"]))
    long_whys = [w for w in lay["whys"] if len(w["text"]) > 60]
    check(long_whys and all(w["lines"] >= 2 for w in long_whys),
          "%s: long reasons are shown whole, wrapped onto more lines: %s" % (what, long_whys[:2]))
    if width >= 1280:
        wanted = ["path", "type", "duration", "title", "artist", "playable"]
        check(all(lay["heads"].get(k) for k in wanted) and lay["tableScroll"] <= 0,
              "%s: path, type, duration, title, artist and verdict show without a sideways scroll: %s, scroll %s"
              % (what, lay["heads"], lay["tableScroll"]))
    else:
        check(lay["cards"] and not lay["theadShown"], what + ": the table is one card per file")

    png = page.screenshot()
    shots.append((what, png))
    check_pixels(png, scheme, what)

    # The tag texts show as they are, in the table.
    page.js("location.hash = 'view=files&q=' + encodeURIComponent('alert(1)')")
    page.b.settle(0.3)
    rows = page.js(TABLE)
    check(len(rows) == 1 and rows[0][8] == INJECTED_TITLE and rows[0][9] == INJECTED_ARTIST,
          what + ": the </script> title and the <img> artist show as text: %s" % (rows[:1],))
    # Each refusal bar leads to the list of its files.
    for bar in p["refusals"]:
        page.js("location.hash = %s" % json.dumps(bar["href"]))
        page.b.settle(0.2)
        shown = page.js("Number(document.getElementById('files-count').getAttribute('data-value'))")
        check(shown == bar["count"], "%s: the bar %s links to its %d files (%s)" % (what, bar["label"], bar["count"], shown))
    # Sorting by duration, longest first.
    page.js("location.hash = 'view=files'")
    page.b.settle(0.2)
    page.js("document.querySelector('th[data-key=duration] button').click()")
    first = page.js("document.querySelector('#file-rows tr').getAttribute('data-index')")
    longest = max(range(len(lines)), key=lambda k: (lines[k]["media"] or {}).get("duration_ms", 0))
    check(int(first) == longest, what + ": sorting by duration puts the longest file first")
    # Filtering by playable.
    page.js("const s = document.getElementById('filter-playable'); s.value = 'no'; s.dispatchEvent(new Event('change'))")
    shown = page.js("Number(document.getElementById('files-count').getAttribute('data-value'))")
    check(shown == exp["unplayable"], what + ": the unplayable filter shows the unplayable files")

    dialogs = page.events("Page.javascriptDialogOpening")
    check(not dialogs, what + ": no script from a tag ran (no alert)")
    errors = page.events("Runtime.exceptionThrown")
    check(not errors, what + ": no script error: %s" % [e["params"]["exceptionDetails"].get("text") for e in errors])
    requests = [e["params"]["request"]["url"] for e in page.events("Network.requestWillBeSent")]
    check(requests and all(u.split("#")[0] == url.split("#")[0] for u in requests),
          what + ": the page asks for nothing besides itself: %s" % requests)


def check_static(html):
    check(not re.search(r"""(src|href|action)\s*=\s*["']?\s*(https?:|//)""", html, re.I), "no src or href leads off the page")
    check(not re.search(r"<link\b|@import|url\(", html, re.I), "no stylesheet, import or url() to load")
    blob = re.search(r'<script type="application/json" id="report-data">(.*?)</script>', html, re.S)
    check(blob is not None and "<" not in blob.group(1) and ">" not in blob.group(1) and "&" not in blob.group(1),
          "the data holds no <, > or & that could end its element")
    check(INJECTED_TITLE not in html, "the </script> title never appears raw in the page")


def main():
    fileinfo, source = sys.argv[1], sys.argv[2]
    size_mode = "--size" in sys.argv[3:]
    chromium = find_chromium()
    if not size_mode and chromium is None:
        print("SKIPPED: chromium is not installed (apt-get install chromium); the report is not checked in a browser")
        return SKIP
    work = tempfile.mkdtemp(prefix="fileinfo-report-")
    try:
        if size_mode:
            return check_size(fileinfo, source, work)
        os.chdir(work)
        os.symlink(os.path.join(source, "tests", "fixtures"), "fixtures")
        os.symlink(os.path.join(source, "examples"), "examples")
        make_hostile_files(fileinfo, source, "hostile")
        # Walked roots that are links to folders: the walk follows named ones.
        roots = ["fixtures/", "examples/", "hostile"]
        caps = os.path.join(source, "devices", "player-caps.plist")
        out = os.path.join(work, "report.html")
        run([fileinfo, "report"] + roots + ["--device", caps, "--title", PAGE_TITLE, "-o", out])
        lines = [json.loads(l) for l in run([fileinfo, "--json", "--device", caps, "--explain"] + roots, allowed=(0, 1))
                 .stdout.decode().splitlines()]
        exp = expected_figures(lines, walk_files(roots))
        print("expected:", json.dumps(exp))
        with open(out, encoding="utf-8") as f:
            check_static(f.read())
        browser = Browser(chromium, os.path.join(work, "profile"))
        shots = []
        try:
            check_page(browser, "file://" + out, exp, lines, 1280, 900, False, "light", shots)
            check_page(browser, "file://" + out, exp, lines, 390, 844, True, "dark", shots)
            # One root named by its absolute path: paths show relative to it.
            single = os.path.join(work, "single.html")
            run([fileinfo, "report", os.path.join(source, "examples"), "-o", single])
            page = Page(browser, 1280, 900, False, "light")
            page.open("file://" + single)
            paths = page.js("[...document.querySelectorAll('#file-rows td.path')].map(td => td.textContent)")
            check(paths[:2] == ["chord-8s.wav", "chord-vbr.mp3"], "paths show relative to the scanned root: %s" % paths[:2])
        finally:
            browser.close()
        keep = os.environ.get("REPORT_SHOTS")
        if keep:
            os.makedirs(keep, exist_ok=True)
            for what, png in shots:
                with open(os.path.join(keep, what.replace(" ", "-") + ".png"), "wb") as f:
                    f.write(png)
    finally:
        shutil.rmtree(work, ignore_errors=True)
    print("%d check(s) failed" % len(failures) if failures else "all checks passed")
    return 1 if failures else 0


def check_size(fileinfo, source, work):
    """10,000 files in 400 albums of 25: names and tags as a music
    collection has them, linked to the fixtures' bytes."""
    fixtures = os.path.join(source, "tests", "fixtures")
    pool = [os.path.join(fixtures, d, n) for d in ("mp3", "mp4", "aac")
            for n in sorted(os.listdir(os.path.join(fixtures, d)))]
    tree = os.path.join(work, "Music")
    for album in range(400):
        folder = os.path.join(tree, "Artist Name %03d" % (album // 4), "Album Title Number %03d (2004)" % album)
        os.makedirs(folder)
        for track in range(25):
            src = pool[(album * 25 + track) % len(pool)]
            name = os.path.join(folder, "%02d - Some Track Title %04d%s" % (track + 1, album * 25 + track,
                                                                           os.path.splitext(src)[1]))
            try:
                os.link(src, name)
            except OSError:  # another file system: the walk follows links to files too
                os.symlink(src, name)
    out = os.path.join(work, "big.html")
    caps = os.path.join(source, "devices", "player-caps.plist")
    run([fileinfo, "report", tree, "--device", caps, "-o", out])
    size = os.path.getsize(out)
    with open(out, encoding="utf-8") as f:
        files = re.search(r'"files":\[(.*?)\],"skipped"', f.read(), re.S).group(1).count("],[") + 1
    print("report of %d files: %d bytes (%.0f kB)" % (files, size, size / 1024))
    check(files == 10000, "the report holds 10,000 files")
    check(size < 800 * 1024, "the report of 10,000 files stays well under 1 MB (under 800 kB)")
    chromium = find_chromium()
    if chromium is None:
        print("note: chromium is not installed: the page of 10,000 files is not timed")
    else:
        browser = Browser(chromium, os.path.join(work, "profile"))
        try:
            page = Page(browser, 1280, 900, False, "light")
            page.open("file://" + out)
            times = page.js(TIMINGS)
        finally:
            browser.close()
        print("10,000 files in the browser (ms):", json.dumps(times))
        check(times["files"] == 10000 and times["rows"] == 100, "the page of 10,000 files shows them 100 at a time")
        check(times["load"] < 5000, "the page of 10,000 files is drawn within 5 s")
        check(times["sort"] < 500 and times["filter"] < 500, "sorting and filtering 10,000 files take under 0.5 s")
    shutil.rmtree(work, ignore_errors=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
