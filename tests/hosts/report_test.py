"""The pages of `vqns report` in Chromium, driven through its debugging pipe: what a reader sees, hears and can do."""
import base64
import html
import io
import json
import os
import re
import select
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import numpy as np
import soundfile

from hosts import BUILD, PROGRAM, SOURCE, denoised, main, need_program, noisy, run

CHROMIUM = need_program("chromium", "chromium")
HUM = SOURCE / "samples/hum.flac"
SCREENSHOTS = BUILD / "tests/report"
PATIENCE = 60  # seconds, for a busy machine
PAPER = {"light": (255, 255, 255), "dark": (15, 19, 24)}

# True when both sounds can be played through and all pictures are there.
READY = """document.readyState === "complete" &&
  [...document.querySelectorAll("audio")].every(a => a.readyState === 4 || a.error) &&
  [...document.images].every(i => i.complete)"""

# The contrast of every text with what is behind it, the lowest first, as [contrast, text].
CONTRASTS = """(() => {
  const light = c => c.map(v => v / 255).map(v => v <= .03928 ? v / 12.92 : ((v + .055) / 1.055) ** 2.4)
    .reduce((sum, v, i) => sum + v * [.2126, .7152, .0722][i], 0);
  const rgb = text => text.match(/[\\d.]+/g).map(Number);
  const behind = e => {
    for (; e; e = e.parentElement) {
      const c = rgb(getComputedStyle(e).backgroundColor);
      if (c.length === 3) return c;
    }
    return [255, 255, 255];
  };
  return [...document.querySelectorAll("body *")]
    .filter(e => e.checkVisibility() && [...e.childNodes].some(n => n.nodeType === 3 && n.data.trim()))
    .map(e => {
      const [a, b] = [light(rgb(getComputedStyle(e).color).slice(0, 3)), light(behind(e))].sort((x, y) => y - x);
      return [(a + .05) / (b + .05), e.textContent.trim().slice(0, 40)];
    }).sort((x, y) => x[0] - y[0]);
})()"""

# Mean brightness of a screenshot where two elements show only noise and where they show speech, and the colour of its
# corner.
BRIGHTNESS = """(async shot => {
  const image = new Image();
  image.src = shot;
  await image.decode();
  const canvas = document.createElement("canvas");
  Object.assign(canvas, {width: image.width, height: image.height});
  const context = canvas.getContext("2d", {willReadFrequently: true});
  context.drawImage(image, 0, 0);
  const mean = (id, from, share) => {
    const box = document.getElementById(id).getBoundingClientRect();
    const p = context.getImageData(box.x + from * box.width, box.y + scrollY, share * box.width, box.height).data;
    let sum = 0;
    for (let i = 0; i < p.length; i += 4) sum += p[i] + p[i + 1] + p[i + 2];
    return sum / p.length * 4 / 3;
  };
  const means = (from, share) => ["before-picture", "after-picture"].map(id => mean(id, from, share));
  const corner = [...context.getImageData(1, 1, 1, 1).data].slice(0, 3);
  return {noise: means(.375, .03), speech: means(.575, .015), corner};
})"""


class Browser:
    """Chromium without a window and without a network, spoken to in messages of JSON that end in a zero byte."""

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        to_read, self.to = os.pipe()
        self.out, out_write = os.pipe()

        def pipes_where_chromium_wants_them():
            ends = os.dup(to_read), os.dup(out_write)
            os.dup2(ends[0], 3)
            os.dup2(ends[1], 4)

        self.process = subprocess.Popen(
            [CHROMIUM, "--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--mute-audio",
             "--remote-debugging-pipe", f"--user-data-dir={self.folder.name}", "--no-first-run",
             "--disable-background-networking", "--disable-dev-shm-usage", "--autoplay-policy=no-user-gesture-required",
             "--host-resolver-rules=MAP * ~NOTFOUND", "about:blank"],
            close_fds=False, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            preexec_fn=pipes_where_chromium_wants_them)
        os.close(to_read)
        os.close(out_write)
        self.buffer, self.count, self.session, self.events = b"", 0, None, []
        target = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")

    def close(self):
        self.process.terminate()
        self.process.wait(PATIENCE)
        os.close(self.to)
        os.close(self.out)
        self.folder.cleanup()

    def call(self, method, **parameters):
        """The result of a command; events on the way to it are kept."""
        self.count += 1
        message = {"id": self.count, "method": method, "params": parameters}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.to, json.dumps(message).encode() + b"\0")
        until = time.monotonic() + PATIENCE
        while True:
            while b"\0" not in self.buffer:
                if not select.select([self.out], [], [], max(until - time.monotonic(), 0))[0]:
                    raise AssertionError(f"Chromium does not answer {method}")
                block = os.read(self.out, 1 << 20)
                if not block:
                    raise AssertionError("Chromium has ended")
                self.buffer += block
            answer, self.buffer = self.buffer.split(b"\0", 1)
            answer = json.loads(answer)
            if answer.get("id") != self.count:
                self.events.append(answer)
            elif "error" in answer:
                raise AssertionError(f"{method}: {answer['error']}")
            else:
                return answer["result"]

    def value(self, expression):
        """What a JavaScript expression, or its promise, comes to in the page."""
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True, awaitPromise=True)
        if "exceptionDetails" in result:
            raise AssertionError(f"{expression}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def until(self, expression):
        """Waits until a JavaScript expression is true."""
        end = time.monotonic() + PATIENCE
        while not self.value(expression):
            if time.monotonic() > end:
                raise AssertionError(f"never came true: {expression}")
            time.sleep(0.05)

    def look(self, width, height, scheme="light"):
        """Makes the window that large, and its colours those of a scheme."""
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])

    def open(self, page, width=1200, height=1600):
        """Shows a page and waits until everything in it is there."""
        self.events.clear()
        self.look(width, height)
        self.call("Page.navigate", url=Path(page).as_uri())
        self.until(READY)

    def click(self, selector, across=0.5):
        """Clicks an element half-way down, at this share of its width."""
        box = self.value(f"""(() => {{
            const e = document.querySelector({json.dumps(selector)});
            e.scrollIntoView({{block: "center"}});
            const b = e.getBoundingClientRect();
            return {{x: b.x + b.width * {across}, y: b.y + b.height / 2}};
        }})()""")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, button="left", clickCount=1, **box)

    def key(self, name, code):
        for kind in ("rawKeyDown", "keyUp"):
            self.call("Input.dispatchKeyEvent", type=kind, key=name, code=name, windowsVirtualKeyCode=code)

    def screenshot(self, path):
        """The whole page as a PNG file, and as a data: URI."""
        shot = self.call("Page.captureScreenshot", captureBeyondViewport=True)["data"]
        path.write_bytes(base64.b64decode(shot))
        return "data:image/png;base64," + shot


def make_report(path, page, *options):
    """Makes a report, and returns its text and what the program said."""
    said = run(PROGRAM, "report", path, "-o", page, *options).stderr
    return Path(page).read_text(encoding="utf-8"), said


def sounds(page):
    """The two sounds inside a page: (16-bit samples [frame, channel], rate) each."""
    found = re.findall(r'<audio id="\w+-player"[^>]*src="data:audio/\w+;base64,([^"]*)"', page)
    return [soundfile.read(io.BytesIO(base64.b64decode(s)), dtype="int16", always_2d=True) for s in found]


def figure(page, name):
    return html.unescape(re.search(f"<dt>{re.escape(name)}</dt><dd>([^<]*)</dd>", page)[1])


class Report(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        SCREENSHOTS.mkdir(parents=True, exist_ok=True)
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def nothing_went_wrong(self):
        """No word on the console, and no request but for the page and what it holds."""
        events = self.browser.events
        kinds = ("Runtime.exceptionThrown", "Runtime.consoleAPICalled", "Log.entryAdded")
        self.assertEqual([e for e in events if e["method"] in kinds], [])
        urls = [e["params"]["request"]["url"] for e in events if e["method"] == "Network.requestWillBeSent"]
        self.assertEqual([u[:60] for u in urls if not u.startswith("data:")][1:], [], "the page itself comes first")
        self.assertTrue(urls[0].startswith("file://"), urls[0])

    def test_pages_hold_all_that_they_show(self):
        stereo, hostile = self.folder / "stereo.wav", self.folder / '<b>&"é\'{{name}}.wav'
        frames = {HUM: len(soundfile.read(HUM)[0]) / 16000}
        frames[stereo] = len(noisy(stereo, 48000, 2)) / 48000
        frames[hostile] = len(noisy(hostile, 8000)) / 8000
        cases = [("hum", HUM, (), "audio/flac", 1e-3), ("stereo", stereo, (), "audio/flac", 1e-3),
                 ("hostile", hostile, ("--no-level",), "audio/flac", 1e-3),
                 ("small", stereo, ("--size-limit", 1), "audio/mpeg", 0.06)]
        browser = self.browser
        for name, recording, options, kind, tolerance in cases:
            with self.subTest(name):
                page = self.folder / f"{name}.html"
                text, said = make_report(recording, page, *options)
                self.assertIn(f"page           {page.stat().st_size / 1e6:.2f} MB", said)
                self.assertEqual(text.count("data:" + kind), 2)
                self.assertIsNone(re.search(r"https?:|//\w+\.\w|@import|url\(", text), "an address outside the page")
                browser.open(page)
                players = browser.value("[...document.querySelectorAll('audio')].map(a => a.duration)")
                self.assertEqual(len(players), 2)
                for duration in players:
                    self.assertAlmostEqual(duration, frames[recording], delta=tolerance)
                self.assertEqual(browser.value("[...document.images].map(i => i.naturalWidth)"), [1080, 1080])
                self.assertEqual(browser.value("[document.title, document.querySelector('h1').textContent]"),
                                 [recording.name] * 2)
                self.assertEqual(browser.value("document.querySelectorAll('h1 *, title *').length"), 1, "the bdi alone")
                self.assertNotIn("{{", browser.value("document.querySelector('main').innerHTML"))
                for width, scheme in ((1200, "light"), (1200, "dark"), (400, "light"), (400, "dark")):
                    browser.look(width, 1600, scheme)
                    self.assertLessEqual(browser.value("document.documentElement.scrollWidth"), width)
                    self.assertGreater(browser.value(CONTRASTS)[0][0], 4.5, browser.value(CONTRASTS)[:3])
                    shot = browser.screenshot(SCREENSHOTS / f"{name}-{width}-{scheme}.png")
                    seen = browser.value(f"{BRIGHTNESS}({json.dumps(shot)})")
                    self.assertEqual(tuple(seen["corner"]), PAPER[scheme])
                    self.assertGreater(seen["noise"][0], 2.5 * seen["noise"][1], "noise was there and is gone")
                    self.assertGreater(seen["speech"][1], 3 * seen["noise"][1], "speech is left")
                    self.assertGreater(seen["speech"][0], seen["noise"][0])
                self.nothing_went_wrong()

    def test_players_stay_together(self):
        page = self.folder / "players.html"
        recording = self.folder / "players.wav"
        duration = len(noisy(recording, 44100)) / 44100
        make_report(recording, page)
        browser = self.browser
        browser.open(page)
        state = """["before", "after"].map(n => document.getElementById(n + "-player"))
            .map(a => ({at: a.currentTime, plays: !a.paused}))"""

        def both_at(share):
            for player in browser.value(state):
                self.assertAlmostEqual(player["at"], share * duration, delta=0.01 * duration)

        for selector, share in (("#before-picture + .seek", 0.25), ("#after-picture + .seek", 0.6),
                                (".level .seek", 0.1)):
            browser.click(selector, share)
            both_at(share)
        for _ in range(3):
            browser.key("ArrowRight", 39)
        moved = browser.value("document.querySelector('.level .seek').valueAsNumber") / duration
        self.assertGreater(moved, 0.11)
        both_at(moved)

        browser.click("#play")
        browser.until("document.getElementById('after-player').currentTime > 1.2")
        before, after = browser.value(state)
        self.assertEqual((before["plays"], after["plays"]), (False, True))
        browser.click("#choose-before")
        browser.until("document.getElementById('after-player').paused")
        switched, left = browser.value(state)
        self.assertTrue(switched["plays"])
        self.assertGreaterEqual(switched["at"], after["at"], "goes on, and does not start again")
        self.assertAlmostEqual(switched["at"], left["at"], delta=0.5)
        # The browser's own button of the other player does the same.
        browser.value("document.getElementById('after-player').play()")
        self.assertTrue(browser.value("document.getElementById('before-player').paused"))
        self.assertTrue(browser.value("document.getElementById('choose-after').checked"))
        self.assertGreaterEqual(browser.value(state)[1]["at"], switched["at"])
        browser.click("#play")
        browser.until("[...document.querySelectorAll('audio')].every(a => a.paused)")
        stopped = browser.value(state)
        self.assertAlmostEqual(stopped[0]["at"], stopped[1]["at"], delta=0.05)
        self.assertEqual(browser.value("document.getElementById('clock').textContent"),
                         f"0:0{stopped[1]['at']:.1f} / 0:0{duration:.1f}")
        self.nothing_went_wrong()

    def test_sound_is_that_of_the_recording_and_of_denoise(self):
        for rate, channels, options in ((16000, 1, ()), (44100, 3, ("--attenuation-limit", "12", "--no-level"))):
            recording = self.folder / f"{rate}.wav"
            x = noisy(recording, rate, channels)
            text, _ = make_report(recording, self.folder / "sound.html", *options)
            before, after = sounds(text)
            self.assertEqual((before[1], after[1]), (rate, rate))
            np.testing.assert_array_equal(before[0], x)
            np.testing.assert_array_equal(after[0], denoised(recording, *options))

    def test_figures_and_curves_are_those_of_the_sound(self):
        page = self.folder / "figures.html"
        text, _ = make_report(HUM, page)
        again, _ = make_report(HUM, page)
        measured = r"(<dt>(?:Time taken|Real-time factor)</dt><dd>)[^<]*"
        self.assertEqual(re.sub(measured, r"\1", text), re.sub(measured, r"\1", again))
        info = json.loads(run(PROGRAM, "info", "--json").stdout)
        vad = json.loads(run(PROGRAM, "vad", HUM, "--format", "json").stdout)
        said = run(PROGRAM, "denoise", HUM, self.folder / "out.wav").stderr
        self.assertEqual([figure(text, n) for n in ("Duration", "Sampling rate", "Channels", "Model", "Version",
                                                    "Attenuation limit", "Levelling")],
                         ["7.58 s", "16000 Hz", "1", info["model"], "vqns " + info["version"], "none", "on"])
        self.assertIn(f"({info['delay_samples']} samples)", figure(text, "Delay of a live stream"))
        self.assertIn(figure(text, "Share of speech") + " of the time", said)
        self.assertLess(float(figure(text, "Time taken").split()[0]), 60)
        for row, line in (("Speech", "speech  "), ("Pauses", "speech pauses")):
            cells = re.search(f'<th scope="row">{row}</th>(.*)</tr>', text)[1]
            levels = [float(v.replace("−", "-")) for v in re.findall(r"([−\d.]+) dBFS", cells)]
            want = re.search(rf"{line} +([-\d.]+) dBFS before, ([-\d.]+) dBFS after \((.*?)\)", said)
            self.assertEqual((levels, re.findall(r"<td>([^<]*)</td>", cells)[2]),
                             ([float(want[1]), float(want[2])], want[3]))

        stretches = re.findall(r"M([\d.]+) 0h([\d.]+)v1", re.search(r'class="strip">.*?<path d="([^"]*)"', text)[1])
        drawn = [[float(x) / 1000 * vad["duration"], (float(x) + float(w)) / 1000 * vad["duration"]]
                 for x, w in stretches]
        np.testing.assert_allclose(drawn, [[s["start"], s["end"]] for s in vad["segments"]], atol=2e-4)
        for which, (sound, _) in zip(("before", "after"), sounds(text)):
            path = re.search(rf'<path class="line {which}" d="M([^"]*)"', text)[1]
            x, y = np.array([p.split() for p in path.split("L")], float).T
            pieces = sound[:len(sound) // 320 * 320, 0].reshape(-1, 320) / 32768.0
            level = np.maximum(10 * np.log10(np.square(pieces).mean(1) + 1e-20), -100)
            np.testing.assert_allclose(-y[:len(level)], level, atol=0.011)
            np.testing.assert_allclose(x[:len(level)] / 1000 * vad["duration"], np.arange(len(level)) * .02 + .01,
                                       atol=1e-4)


if __name__ == "__main__":
    main()
