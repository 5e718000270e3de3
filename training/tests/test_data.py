"""Packing, the split, and every step of mixing."""
import contextlib
import io
import tempfile
import unittest
from dataclasses import replace
from pathlib import Path

import numpy as np

from tests.sounds import NOISE, RATE, SPEECH, WithPools, level_at, tone, write_tree
from vqns_training import filters, levels, made_up, pool, telephone
from vqns_training.feeder import Feeder
from vqns_training.mixer import COMMON_LEVEL, Chances, Mixer
from vqns_training.rooms import EARLY, Room

NOTHING = Chances(**{name: 0 for name in Chances.__dataclass_fields__})


class Packing(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.top = Path(self.folder.name)

    def test_any_format_becomes_16_khz_mono_in_the_order_of_names(self):
        stereo = np.stack([tone(500, 1, 44100), np.zeros(44100, np.float32)], 1)
        write_tree(self.top / "in", {"b/x.flac": (tone(700, 1), RATE), "a/y.wav": (stereo, 44100),
                                     "a/z.ogg": (tone(900, 1, 8000), 8000), "c/short.wav": (tone(1, .05), RATE)})
        (self.top / "in/notes.txt").write_text("no audio")
        (self.top / "in/a/junk.wav").write_text("no audio")
        with contextlib.redirect_stderr(io.StringIO()) as told:
            files = pool.pack(self.top / "in", self.top / "p")["files"]
        self.assertRegex(told.getvalue(), r"^a/junk\.wav: .* left out\n$")
        self.assertEqual([f["file"] for f in files], ["a/y.wav", "a/z.ogg", "b/x.flac"])
        both = pool.Pool(self.top / "p", None)
        for entry, frequency, amplitude in zip(files, (500, 900, 700), (.1, .2, .2)):
            x = both.file(entry)
            self.assertEqual(len(x), RATE)
            share = np.mean(np.arange(RATE) / RATE % .75 < .5)
            self.assertAlmostEqual(level_at(x, frequency), amplitude * share, delta=.02 * amplitude, msg=entry["file"])
        (self.top / "empty").mkdir()
        with self.assertRaisesRegex(ValueError, "no audio"):
            pool.pack(self.top / "empty", self.top / "q")

    def test_split_keeps_speakers_and_files_apart_and_stays_as_it_is(self):
        names = [f"{s}/{i}.wav" for s in ("many", "one", "other") for i in range(30)]
        write_tree(self.top / "in", {n: (tone(500, .1), RATE) for n in names})
        sides = {}
        for seed in range(8):
            index = pool.pack(self.top / "in", self.top / "p", one_in=3, seed=seed, one_voice=["one", "other"])["files"]
            held = {f["file"] for f in index if f["held_out"]}
            for voice in ("one", "other"):
                self.assertIn(sum(n.startswith(voice + "/") for n in held), (0, 30))
            self.assertTrue(3 <= sum(n.startswith("many/") for n in held) <= 18, held)
            sides[seed] = held
        self.assertGreater(len({frozenset(h) for h in sides.values()}), 4)
        write_tree(self.top / "in", {f"many/0{i}.wav": (tone(500, .1), RATE) for i in range(30)})
        index = pool.pack(self.top / "in", self.top / "p", one_in=3, seed=2, one_voice=["one", "other"])["files"]
        self.assertEqual({f["file"] for f in index if f["held_out"] and f["file"] in names}, sides[2])
        with self.assertRaisesRegex(ValueError, "absent"):
            pool.pack(self.top / "in", self.top / "p", one_voice=["absent"])


class Steps(unittest.TestCase):
    def test_random_filters_are_stable_and_keep_the_level_within_bounds(self):
        for seed in range(200):
            impulse = np.zeros(4000, np.float32)
            impulse[0] = 1
            for make, most in ((filters.random_biquad, 25), (filters.random_peak, 9.1)):
                h = make(impulse, np.random.default_rng(seed))
                self.assertLess(np.abs(h[-100:]).max(), 1e-5)
                self.assertLess(levels.db(np.abs(np.fft.rfft(h)).max()), most)

    def test_speed_changes_length_and_pitch_alike(self):
        x = np.sin(2 * np.pi * 1000 * np.arange(RATE) / RATE).astype(np.float32)
        seen = set()
        for seed in range(40):
            up, down = filters.speed_ratio(np.random.default_rng(seed), 1.5)
            self.assertTrue(1 / 1.5 <= up / down <= 1.5)
            y = filters.respeed(x, (up, down))
            self.assertAlmostEqual(len(y), RATE * up / down, delta=1)
            if 1000 * down / up < 7000:
                peak = np.abs(np.fft.rfft(y * np.hanning(len(y)))).argmax() * RATE / len(y)
                self.assertAlmostEqual(peak, 1000 * down / up, delta=2)
            seen.add(up > down)
        self.assertEqual(seen, {True, False})

    def test_telephone_lines_narrow_the_band_and_stay_in_time(self):
        rng = np.random.default_rng(3)
        x = (rng.standard_normal(RATE) * .05).astype(np.float32)
        low = filters.filtered(filters.low_pass(3000), x)
        for coder in (*telephone.CODERS, None):
            line = telephone.Line(np.random.default_rng(1), coder)
            y = line(x)
            self.assertEqual(len(y), len(x))
            spectrum = np.abs(np.fft.rfft(y)) ** 2
            self.assertLess(spectrum[4300:].sum(), 1e-3 * spectrum.sum(), coder)
            z = line(low)
            against = [np.dot(z[100:-100], low[100 + lag:len(low) - 100 + lag]) for lag in range(-20, 21)]
            self.assertEqual(int(np.argmax(against)) - 20, 0, coder)
            self.assertGreater(against[20] / np.linalg.norm(z) / np.linalg.norm(low), .5, coder)

    def test_rooms_keep_time_and_the_early_part(self):
        click = np.zeros(RATE, np.float32)
        click[3000] = 1
        for seed in range(30):
            room = Room(np.random.default_rng(seed))
            full, early = room.heard(click, room.response), room.heard(click, room.early)
            self.assertAlmostEqual(abs(full[3000]), 1, places=4)
            kept = 3000 + int(EARLY * RATE)
            np.testing.assert_allclose(full[:kept], early[:kept], atol=1e-5)
            self.assertLessEqual(np.square(early[kept:]).sum(), .75 * np.square(full[kept:]).sum() + 1e-8)
            self.assertLess(np.abs(early[kept + 4200:]).max(initial=0), 2e-3)

    def test_made_up_noises_are_finite_sound_of_the_asked_length(self):
        for kind in made_up.KINDS:
            spectra = []
            for seed in range(12):
                x = kind(8000, np.random.default_rng(seed))
                self.assertEqual(len(x), 8000, kind)
                self.assertTrue(np.isfinite(x).all() and levels.rms(x) > 1e-4, kind)
                spectra.append(np.abs(np.fft.rfft(x)).argmax())
            self.assertGreater(len(set(spectra)), 6, f"{kind} is always the same")

    def test_active_level_ignores_pauses(self):
        x = tone(500, 6)
        self.assertAlmostEqual(levels.active_rms(x), .2 / 2 ** .5, delta=.003)
        self.assertAlmostEqual(levels.rms(x), .2 / 2 ** .5 * (2 / 3) ** .5, delta=.003)
        self.assertLess(levels.active_rms(np.zeros(3200, np.float32)), 1e-5)


class Mixing(WithPools):
    def mixer(self, **chances):
        return Mixer(str(self.top), 5, seconds=2, chances=replace(NOTHING, **chances))

    def test_pieces_repeat_by_number_and_only_by_number(self):
        everything = Mixer(str(self.top), 5, seconds=1)
        again, other = Mixer(str(self.top), 5, seconds=1), Mixer(str(self.top), 6, seconds=1)
        for i in range(20):
            np.testing.assert_array_equal(everything.piece(i).noisy, again.piece(i).noisy)
            self.assertFalse(np.array_equal(everything.piece(i).noisy, everything.piece(i + 1).noisy))
            self.assertFalse(np.array_equal(everything.piece(i).noisy, other.piece(i).noisy))

    def test_levels_and_ratios_stay_in_their_ranges_and_use_them(self):
        snr, level = [], []
        mixer = self.mixer()
        for i in range(150):
            p = mixer.piece(i)
            np.testing.assert_allclose(p.noisy * 32768, np.round(p.noisy * 32768), atol=1e-3)
            self.assertLess(np.abs(p.noisy).max(), 1)
            self.assertAlmostEqual(float(levels.active_rms(p.clean) * p.scale), COMMON_LEVEL, places=4)
            level.append(levels.db(levels.rms(p.noisy)))
            if level[-1] > -35:  # rounding does not matter yet
                snr.append(levels.db(levels.active_rms(p.clean) / levels.rms(p.noisy - p.clean)))
        self.assertTrue(-6.1 <= min(snr) < 0 and 20 < max(snr) < 30.1, (min(snr), max(snr)))
        self.assertTrue(-45.1 <= min(level) < -38 and -14 < max(level) <= -4.9, (min(level), max(level)))

    def test_clean_only_and_noise_only(self):
        for i in range(10):
            p = self.mixer(clean_only=1).piece(i)
            np.testing.assert_allclose(p.noisy, p.clean, atol=2e-5)
            self.assertEqual(p.has_speech, 1)
            p = self.mixer(noise_only=1).piece(i)
            self.assertEqual((p.has_speech, np.abs(p.clean).max()), (0, 0))
            self.assertGreater(levels.rms(p.noisy), 1e-3)

    def test_the_sides_share_no_recording(self):
        for held_out in (False, True):
            mixer = Mixer(str(self.top), 1, seconds=2, held_out=held_out, chances=NOTHING)
            for files, sides, draw in ((SPEECH, self.speech, mixer.speech_pool), (NOISE, self.noise, mixer.noise_pool)):
                pieces = [draw.piece(np.random.default_rng(seed), RATE) for seed in range(80)]
                spectrum = np.mean([np.abs(np.fft.rfft(x, RATE)) for x in pieces], 0)
                heard = {name for name, pitch in files.items() if spectrum[pitch] > .05 * spectrum.max()}
                self.assertEqual(heard, {name for name, held in sides.items() if held == held_out})

    def test_each_chance_does_its_work(self):
        plain = [self.mixer().piece(i) for i in range(12)]

        def pieces(**chances):
            return [self.mixer(**chances).piece(i) for i in range(12)]

        gaps = 0
        for p in pieces(silence=1, made_up=1):
            for run in np.split(np.arange(len(p.noisy)), np.flatnonzero(p.noisy)):
                if len(run) > 700:
                    gaps += 1
                    self.assertEqual(np.abs(p.clean[run[1:]]).max(), 0)
        self.assertGreater(gaps, 8)
        unmuted = [((p.noisy == 0) & (q.noisy != 0), (p.clean == 0) & (q.clean != 0) & (p.noisy != 0), p)
                   for p, q in zip(pieces(unmuted=1, made_up=1), pieces(made_up=1))]
        for off, _, p in unmuted:
            self.assertFalse(p.clean[off].any())
        for i in (0, 1):  # silence, noise alone
            self.assertGreater(np.mean([u[i].sum() for u in unmuted]), .2 * RATE)
        for p in pieces(clipping=1):
            top = np.abs(p.noisy).max()
            self.assertGreater(np.mean(np.abs(p.noisy) > .999 * top), .003)
        steps = [levels.frame_energies(p.noisy) for p in pieces(level_steps=1)]
        self.assertGreater(np.mean([np.ptp(10 * np.log10(e + 1e-12)) for e in steps]),
                           3 + np.mean([np.ptp(10 * np.log10(levels.frame_energies(p.noisy) + 1e-12)) for p in plain]))
        for chances in ({"low_pass": 1, "made_up": 1}, {"telephone_mixture": 1, "made_up": 1}):
            for p in pieces(**chances):
                power = np.square(np.abs(np.fft.rfft(p.noisy)))
                self.assertLess(power[2 * 7900:].sum(), 1e-3 * power.sum(), chances)
        late = [levels.db(levels.rms(p.noisy - p.clean) / levels.rms(p.clean)) for p in pieces(room=1, clean_only=1)]
        self.assertTrue(-30 < max(late) < 10, late)
        for p, q in zip(pieces(second_talker=1, clean_only=1), pieces(clean_only=1)):
            np.testing.assert_allclose(p.noisy, p.clean, atol=2e-5)
            alone = np.dot(p.clean, q.clean) ** 2 / np.dot(p.clean, p.clean) / np.dot(q.clean, q.clean)
            self.assertTrue(.05 < alone < .95, alone)  # of the power: the first talker is there, and another
        for i in range(12):
            dry, roomy, coloured = (self.mixer(**chances).recorded(np.random.default_rng(i))
                                    for chances in ({}, {"noise_room": 1}, {"noise_colour": 1}))
            pauses, e = levels.frame_energies(dry) == 0, levels.frame_energies(roomy)
            self.assertTrue(1e-8 < e[pauses].mean() / e.mean() < 1, e[pauses].mean() / e.mean())
            white = np.random.default_rng(i).standard_normal(8 * RATE).astype(np.float32)
            colour = levels.db(np.abs(np.fft.rfft(filters.another_colour(white, np.random.default_rng(i)))) /
                               np.abs(np.fft.rfft(white)))
            self.assertTrue(6 < np.ptp(colour[8 * 100:8 * 6000]) < 60, np.ptp(colour[8 * 100:8 * 6000]))
            self.assertFalse(np.allclose(dry, coloured, rtol=.05, atol=.01))
        for p in pieces(noise_only=1, intermittent=1, babble=1):
            e = levels.frame_energies(p.noisy)
            self.assertLess(e.min(), 1e-3 * e.max())
        long = Mixer(str(self.top), 5, seconds=8, chances=replace(NOTHING, clean_only=1, pause=1))
        longest = []
        for i in range(12):
            active = levels.active_frames(long.piece(i).clean)
            longest.append(max(map(len, np.split(active, np.flatnonzero(active)))) / 100)
        self.assertGreater(np.median(longest), .75)
        for p in pieces(noise_only=1, babble_alone=1):
            spectrum = np.square(np.abs(np.fft.rfft(p.noisy)))
            self.assertLess(spectrum[2 * 1900:].sum(), .01 * spectrum.sum())  # the voices' pitches lie below

    def test_what_was_there_while_nobody_spoke_is_not_made_speech(self):
        voice = tone(500, 4)
        hiss = np.random.default_rng(1).standard_normal(4 * RATE).astype(np.float32) * .01
        with tempfile.TemporaryDirectory() as folder:
            write_tree(Path(folder) / "in", {f"one/{i}.wav": (np.concatenate([voice, hiss]), RATE) for i in range(8)})
            pool.pack(Path(folder) / "in", Path(folder) / "speech", one_in=4)
            pool.pack(Path(folder) / "in", Path(folder) / "noise", one_in=4)
            mixer = Mixer(folder, 1, seconds=6, chances=NOTHING)
            for seed in range(20):
                power = np.square(np.abs(np.fft.rfft(mixer.speech(np.random.default_rng(seed)))))
                self.assertLess(power[6 * 1000:].sum(), .2 * power.sum(), seed)

    def test_feeder_keeps_the_order(self):
        arguments = {"folder": str(self.top), "seed": 5, "seconds": 1}
        wanted = [Mixer(**arguments).batch(number, 2) for number in range(3, 7)]
        for processes in (1, 2):
            feeder = Feeder(arguments, first=3, size=2, processes=processes)
            self.addCleanup(feeder.close)
            for batch in wanted:
                for a, b in zip(feeder.next(), batch):
                    np.testing.assert_allclose(a, b, atol=1e-20)  # this process may flush denormals
        feeder.workers[0].terminate()
        feeder.workers[0].join()
        with self.assertRaisesRegex(RuntimeError, "ended"):
            for _ in range(20):
                feeder.next()


if __name__ == "__main__":
    unittest.main()
