"""The measures against plain models and known values, the engines' alignment, an evaluation from pairs to report."""
import json
import os
import unittest
import unittest.mock
from pathlib import Path

import numpy as np
import scipy.signal

import evaluate
from tests.sounds import RATE, WithPools, speech_like
from vqns_training import audio, engines, levels, metrics, opinion, pairs, scoring

LIBRARY = Path(os.environ.get("VQNS_LIBRARY", evaluate.ROOT / "build/release/ns/libvqns.so"))


def noise(n, rms, seed=0):
    return (np.random.default_rng(seed).standard_normal(n) * rms).astype(np.float32)


def plain_stoi(clean, x):
    """The published steps, one loop each, from signals without silence at 10 kHz."""
    window, bands = np.hanning(258)[1:-1], []
    for v in (clean, x):
        frames = [np.abs(np.fft.rfft(v[at:at + 256] * window, 512)) ** 2 for at in range(0, len(v) - 255, 128)]
        columns = []
        for f in frames:
            column = []
            for band in range(15):
                centre = 150 * 2 ** (band / 3)
                low, high = (int(round(centre * 2 ** (s / 6) / (10000 / 512))) for s in (-1, 1))
                column.append(np.sqrt(sum(f[low:high])))
            columns.append(column)
        bands.append(np.array(columns).T)
    total, count = 0., 0
    for m in range(30, bands[0].shape[1] + 1):
        for band in range(15):
            s, y = bands[0][band, m - 30:m], bands[1][band, m - 30:m]
            y = np.minimum(y * np.linalg.norm(s) / np.linalg.norm(y), s * (1 + 10 ** .75))
            total += np.corrcoef(s, y)[0, 1]
            count += 1
    return total / count


class Measures(unittest.TestCase):
    def setUp(self):
        self.clean = speech_like(3, 5)

    def test_ratios_of_known_noise(self):
        steady = noise(48000, .1, 1)
        for snr in (-5, 0, 10, 25):
            x = steady + noise(48000, .1, 2) * levels.gain(-snr)
            self.assertAlmostEqual(metrics.si_sdr(steady, x), snr, delta=.2)
            self.assertAlmostEqual(metrics.si_sdr(steady, .3 * x), metrics.si_sdr(steady, x), places=3)
            self.assertAlmostEqual(metrics.segmental_snr(steady, x), snr, delta=.3)
        self.assertAlmostEqual(metrics.segmental_snr(steady, .5 * steady), 6.02, delta=.01)
        self.assertEqual(metrics.segmental_snr(steady, steady), 35)
        self.assertEqual(metrics.segmental_snr(steady, noise(48000, 9)), -10)
        self.assertEqual(metrics.si_sdr(self.clean, self.clean), 100)

    def test_log_spectral_distance_of_a_gain(self):
        for decibels in (-12, -3, 3):
            x = noise(48000, .1)
            got = metrics.log_spectral_distance(x, x * levels.gain(decibels))
            self.assertAlmostEqual(got, abs(decibels), delta=.05)
        self.assertEqual(metrics.log_spectral_distance(self.clean, self.clean), 0)

    def test_stoi_against_a_plain_model(self):
        self.assertAlmostEqual(metrics.stoi(self.clean, self.clean), 1, places=6)
        before = 1
        for snr in (20, 10, 0, -10):
            x = self.clean + noise(len(self.clean), levels.active_rms(self.clean)) * levels.gain(-snr)
            value = metrics.stoi(self.clean, x)
            self.assertLess(value, before)
            self.assertAlmostEqual(metrics.stoi(self.clean, 3 * x), value, places=6)
            before = value
            s, y = metrics.without_silence(self.clean[:20000].astype(float), x[:20000].astype(float))
            self.assertLessEqual(len(s), 20000)
            as_if = [scipy.signal.resample_poly(v, 8, 5) for v in (s, y)]  # which the measure undoes
            self.assertAlmostEqual(metrics.stoi(*as_if), plain_stoi(s, y), delta=.02)
        self.assertTrue(np.isnan(metrics.stoi(self.clean[:3000], self.clean[:3000])))

    def test_opinions(self):
        noisy = self.clean + noise(len(self.clean), .1 * levels.active_rms(self.clean), 1)
        self.assertAlmostEqual(opinion.opinion(self.clean, self.clean), 4.644, places=3)
        by_noise = [opinion.opinion(self.clean, self.clean + k * (noisy - self.clean)) for k in (.01, .1, 1, 10)]
        self.assertEqual(by_noise, sorted(by_noise)[::-1])
        self.assertGreater(by_noise[0], 4.5)
        self.assertLess(by_noise[-1], 1.3)
        self.assertAlmostEqual(opinion.opinion(self.clean, .2 * noisy), by_noise[2], places=4)
        slow = np.linspace(1, .7, len(noisy), dtype=np.float32)
        self.assertAlmostEqual(opinion.opinion(self.clean, slow * noisy), by_noise[2], delta=.05)
        added, taken = (scipy.signal.lfilter([1], [1, -k], self.clean) for k in (.5, -.5))
        hum = .3 * levels.rms(self.clean) * np.sin(np.arange(len(self.clean)) * 2 * np.pi * 700 / RATE)
        self.assertLess(opinion.opinion(self.clean, self.clean + hum), opinion.opinion(self.clean + hum, self.clean))
        for coloured in (added, taken):
            self.assertGreater(opinion.opinion(self.clean, coloured), 3.5, "a colour is hardly heard")
        self.assertTrue(np.isnan(opinion.opinion(np.zeros(48000), noisy)))

    def test_loudness_is_calibrated(self):
        """A tone of 1 kHz at 40 dB, 29.54 high as samples go, has a power of 10000 and one sone."""
        tone = 29.54 * np.sin(2 * np.pi * 1000 * np.arange(RATE) / RATE)
        power = opinion.intensities(tone)
        np.testing.assert_allclose(power.max(1), 1e4, rtol=1e-5)
        np.testing.assert_allclose(opinion.loudness(power) @ opinion.WIDTH, 1, rtol=1e-5)

    def test_silence_is_left_out_by_the_clean_signal(self):
        loud, x = noise(20480, .1), noise(20480, .1, 3)
        loud[6400:12800] *= 1e-3
        s, y = metrics.without_silence(loud, x)
        self.assertAlmostEqual(len(s), 20480 - 6400, delta=300)
        self.assertEqual(len(s), len(y))
        np.testing.assert_allclose(y[300:5000], x[300:5000], atol=4e-3)

    def test_levels_in_speech_and_in_pauses(self):
        clean = self.clean.copy()
        clean[16000:28000] = 0
        noisy = clean + noise(48000, 1e-2)
        x = np.where(np.abs(clean) > 0, clean * .5, noisy * .1)
        self.assertAlmostEqual(metrics.level_change(clean, x), -6.02, delta=.05)
        self.assertAlmostEqual(metrics.left_in_pauses(clean, noisy, x), -20, delta=.1)
        self.assertTrue(np.isnan(metrics.left_in_pauses(noise(16000, .1), noisy[:16000], x[:16000])))
        self.assertAlmostEqual(metrics.left(noisy, np.concatenate([noisy[:32000], noisy[32000:] * .01])), -40, places=3)


class Engines(unittest.TestCase):
    def lag(self, engine):
        pcm = audio.to_pcm(speech_like(3, 6))
        y = engine(pcm).astype(float)
        self.assertEqual(len(y), len(pcm))
        inner = slice(8000, 40000)
        return int(np.argmax([np.dot(y[inner], pcm[8000 + d:40000 + d].astype(float)) for d in range(-900, 900)])) - 900

    @unittest.skipUnless(LIBRARY.exists(), f"{LIBRARY} is not built")
    def test_the_library_is_aligned_and_starts_afresh(self):
        engine = engines.Vqns(LIBRARY)
        self.assertEqual(self.lag(engine), 0)
        pcm = audio.to_pcm(noise(12345, .05))
        np.testing.assert_array_equal(engine(pcm), engine(pcm))
        self.assertRegex(engine.model_id, "^[0-9a-f]{16}$")

    def test_speex_is_aligned_and_suppresses(self):
        try:
            engine = engines.Speex()
        except OSError as missing:
            self.skipTest(str(missing))
        self.assertEqual(self.lag(engine), 0)
        hiss = noise(5 * RATE, .02)
        self.assertLess(metrics.left(hiss, engine(audio.to_pcm(hiss)) / 32768), -8)


class Evaluation(WithPools):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.entries = pairs.write(cls.top / "pairs", pairs.Maker(cls.top, 4, 1).every([0, 10], 1))

    def test_pairs_are_what_they_are_said_to_be(self):
        kinds = [e["kind"] for e in self.entries]
        noises = {e["noise"] for e in self.entries if e["kind"] == "noisy"}
        self.assertEqual(noises, {"machine", "babble", "made up"})
        counts = {"noisy": 6, "noise": 3, "clean": 3, "talkers": 3, "step": 3, "after": 3}
        self.assertEqual({k: kinds.count(k) for k in set(kinds)}, counts)
        for entry, clean, noisy in pairs.read(self.top / "pairs"):
            if entry["kind"] == "noisy":
                snr = levels.db(levels.active_rms(clean) / levels.rms(noisy - clean))
                self.assertAlmostEqual(snr, entry["snr"], delta=.3, msg=entry)
                self.assertLess(levels.rms(clean[:7000]), 1e-4)
            elif entry["kind"] in ("clean", "talkers"):
                np.testing.assert_array_equal(clean, noisy)
            elif entry["kind"] == "noise":
                self.assertEqual(np.abs(clean).max(), 0)
            elif entry["kind"] == "after":
                half = int(entry["from"] * RATE)
                self.assertEqual(np.abs(clean[half:]).max(), 0)
                snr = levels.db(levels.active_rms(clean[:half]) / levels.rms(noisy - clean))
                self.assertAlmostEqual(snr, entry["snr"], delta=1)
            else:
                half = int(entry["from"] * RATE)
                step = levels.db(levels.active_rms(clean[half:]) / levels.active_rms(clean[8000:half]))
                self.assertAlmostEqual(abs(step), 15, delta=1)

    def test_a_plain_folder_gets_its_ratios_measured(self):
        for side in ("clean", "noisy"):
            (self.top / "plain" / side).mkdir(parents=True)
        clean = speech_like(3, 8)
        audio.write(self.top / "plain/clean/a.flac", clean)
        noisy = clean + noise(len(clean), levels.active_rms(clean) * levels.gain(-9))
        audio.write(self.top / "plain/noisy/a.flac", noisy)
        (entry, _, _), = pairs.read(self.top / "plain")
        self.assertEqual((entry["kind"], entry["snr"]), ("noisy", 10))

    def test_means_by_group(self):
        halving = {"half": lambda pcm: (pcm * .5).astype(np.int16)}
        results = scoring.score_all(pairs.read(self.top / "pairs"), halving, {"length": lambda c, x: float(len(x))})
        s = scoring.summary(results)
        self.assertEqual(list(s["by_snr"]), [0, 10])
        for snr in (0, 10):
            mine = [r["scores"]["input"]["stoi"] for r in results if r["kind"] == "noisy" and r["snr"] == snr]
            self.assertAlmostEqual(s["by_snr"][snr]["input"]["stoi"], np.mean(mine), places=3)
        self.assertAlmostEqual(s["clean"]["half"]["level"], -6.02, delta=.02)
        self.assertAlmostEqual(s["noise"]["half"]["left"], -6.02, delta=.02)
        self.assertAlmostEqual(s["noisy"]["half"]["pauses"], -6.02, delta=.02)
        self.assertEqual((s["clean"]["input"]["length"], s["step"]["input"]["length"]), (4 * RATE, 2 * RATE))
        self.assertGreater(s["by_snr"][10]["input"]["si_sdr"], s["by_snr"][0]["input"]["si_sdr"] + 8)
        self.assertEqual(scoring.mean([float("nan")]), None)

    @unittest.skipUnless(LIBRARY.exists(), f"{LIBRARY} is not built")
    def test_from_pairs_to_report(self):
        out, text = self.top / "out", []
        with unittest.mock.patch("builtins.print", lambda *a, **_: text.append(str(a))):
            evaluate.main([str(self.top / "pairs"), str(out), "--library", f"new={LIBRARY}", "--examples", "1"])
        scores = json.loads((out / "scores.json").read_text())
        self.assertEqual(len(scores["pairs"]), len(self.entries))
        self.assertLess(scores["means"]["noise"]["new"]["left"], -10)
        self.assertEqual((out / "report.html").read_text().count("data:image/png"), 2)
        for word in ("By SNR", "STOI", "new", "Two talkers", "After a level step"):
            self.assertTrue(any(word in t for t in text), word)


if __name__ == "__main__":
    unittest.main()
