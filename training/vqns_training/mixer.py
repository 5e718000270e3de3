"""Noisy pieces and what should be left of them, made on the fly from the pools."""
from dataclasses import dataclass, fields

import numpy as np

from . import filters, made_up
from .audio import RATE
from .levels import active_rms, gain, rms, silence_gaps, smooth, stepping_gain, unmuting
from .pool import Pool
from .rooms import Room
from .telephone import Line


@dataclass
class Chances:
    """How often each thing happens to a piece."""
    noise_only: float = .13
    clean_only: float = .08
    telephone_speech: float = .06  # the talker is on a telephone line
    telephone_mixture: float = .03  # speech and noise are
    second_talker: float = .15  # at the same time, and to be kept as well
    pause: float = .25  # of each gap between utterances: it is a long one
    room: float = .4
    intermittent: float = .12
    low_pass: float = .15
    clipping: float = .05
    level_steps: float = .08
    silence: float = .18
    babble: float = .12  # these two of each noise, else it is recorded
    made_up: float = .13
    babble_alone: float = .25  # of noise alone: it is babble and nothing else
    noise_room: float = .25  # of each recorded noise: it sounds in a room
    noise_colour: float = .3  # of each recorded noise: it gets another colour
    unmuted: float = .12  # of speech in noise: digital silence, then noise alone, then speech again


LEVEL, SNR = (-45, -5), (-6, 30)  # dBFS, dB
PAUSE = (.75, 5)  # seconds
QUIET = gain(-15)  # of a recording's level: a stretch under it is what was there while nobody spoke
COMMON_LEVEL = .05  # to which `scale` brings a piece's target


def happens(rng, chance):
    """Takes no number for a chance of 0, so that a piece without it is otherwise the same."""
    return chance > 0 and rng.random() < chance


@dataclass
class Piece:
    noisy: np.ndarray  # what a 16-bit microphone would give
    clean: np.ndarray
    scale: np.float32  # brings clean to COMMON_LEVEL, or noisy where there is no speech
    has_speech: np.float32


class Mixer:
    """Pieces of one side of the pools under FOLDER: speech, noise and, where it is there, rooms. The same seed and
    number make the same piece."""

    def __init__(self, folder, seed, seconds=4.0, held_out=False, shares=None, chances=None):
        shares = shares or {}
        self.speech_pool = Pool(f"{folder}/speech", held_out, shares.get("speech"))
        self.noise_pool = Pool(f"{folder}/noise", held_out, shares.get("noise"))
        try:
            self.room_pool = Pool(f"{folder}/rooms", held_out)
        except (FileNotFoundError, ValueError):
            self.room_pool = None
        self.seed, self.samples, self.chances = seed, int(seconds * RATE), chances or Chances()

    def gap(self, rng):
        """Samples between two utterances; long pauses are spread evenly over a logarithmic scale."""
        if happens(rng, self.chances.pause):
            return int(np.exp(rng.uniform(*np.log(PAUSE))) * RATE)
        return int(rng.integers(12000)) if rng.random() < .6 else 0

    def speech(self, rng):
        """Utterances of one source at one level, with and without gaps, now and then as another voice."""
        y, at = np.zeros(self.samples, np.float32), int(rng.integers(8000)) if rng.random() < .5 else 0
        source = self.speech_pool.source(rng)
        ratio = filters.speed_ratio(rng, 1.18) if rng.random() < .5 else (1, 1)
        while at < self.samples:
            x, file = self.speech_pool.stretch(rng, min(self.samples - at, int(rng.integers(RATE, 6 * RATE))), source)
            x = filters.respeed(x, ratio)[:self.samples - at]
            level = active_rms(x)
            if level < max(1e-4, QUIET * self.speech_pool.level(file)):
                at += 1600
                continue
            y[at:at + len(x)] = x * (COMMON_LEVEL / level)
            at += len(x) + self.gap(rng)
        return y

    def babble(self, rng):
        y = sum(self.speech(rng) * gain(rng.uniform(-8, 0)) for _ in range(rng.integers(5, 12)))
        return self.in_a_room(y, rng) if rng.random() < .6 else y

    def in_a_room(self, x, rng):
        room = Room(rng, self.room_pool)
        return room.heard(x, room.response)

    def recorded(self, rng):
        y, at = np.zeros(self.samples, np.float32), 0
        while at < self.samples:
            x = self.noise_pool.piece(rng, self.samples - at)
            if rms(x) < 1e-5:
                at += 1600
                continue
            if rng.random() < .2:
                x = x[::-1]
            if rng.random() < .4:
                x = filters.respeed(x, filters.speed_ratio(rng, 1.5))[:self.samples - at]
            y[at:at + len(x)] = x
            at += len(x)
        if happens(rng, self.chances.noise_room):
            y = self.in_a_room(y, rng)
        if happens(rng, self.chances.noise_colour):
            y = filters.another_colour(y, rng)
        return y

    def one_noise(self, rng):
        kind = rng.random()
        if kind < self.chances.babble:
            return self.babble(rng)
        if kind < self.chances.babble + self.chances.made_up:
            return made_up.any_kind(self.samples, rng)
        return self.recorded(rng)

    def noise(self, rng):
        """One to three noises at once."""
        y = np.zeros(self.samples, np.float32)
        for _ in range(rng.choice([1, 2, 3], p=[.6, .3, .1])):
            z = self.one_noise(rng)
            y += z / (rms(z) + 1e-9) * gain(rng.uniform(-10, 0))
        if rng.random() < self.chances.intermittent:
            gate = (rng.random(self.samples // 1600 + 2) < .5).repeat(1600)[:self.samples]
            y *= smooth(gate, 320)
        return y

    def talker(self, rng):
        """Speech as it reaches the microphone, and the part of it that is to be kept."""
        x = self.speech(rng)
        if happens(rng, self.chances.second_talker):
            x = x + self.speech(rng) * gain(rng.uniform(-8, 0))
        x = filters.random_colour(x, rng)
        if rng.random() < self.chances.telephone_speech:
            x = Line(rng)(x)
        if rng.random() >= self.chances.room:
            return x, x
        room = Room(rng, self.room_pool)
        return room.heard(x, room.response), room.heard(x, room.early)

    def mixture(self, rng):
        """(noisy, clean) before the microphone's own doings, at no particular level."""
        kind, silence = rng.random(), np.zeros(self.samples, np.float32)
        if kind < self.chances.clean_only:
            return self.talker(rng)
        alone = kind > 1 - self.chances.noise_only
        noise = self.babble(rng) if alone and happens(rng, self.chances.babble_alone) else self.noise(rng)
        noise = filters.random_colour(noise, rng)
        if alone:
            return noise * np.float32(COMMON_LEVEL / (rms(noise) + 1e-9)), silence
        speech, clean = self.talker(rng)
        snr = np.clip(rng.normal(7, 9), *SNR)
        noise = noise * np.float32(active_rms(clean) / (rms(noise) + 1e-9) / gain(snr))
        if happens(rng, self.chances.unmuted):
            microphone, talking = unmuting(self.samples, rng)
            noise, speech, clean = noise * microphone, speech * talking, clean * talking
        return speech + noise, clean

    def piece(self, number):
        rng, chances, n = np.random.default_rng((self.seed, number)), self.chances, self.samples
        noisy, clean = self.mixture(rng)
        has_speech = rms(clean) > 2e-6
        if rng.random() < chances.telephone_mixture:
            line = Line(rng)
            noisy, clean = line(noisy), line(clean, with_coder=False)
        if rng.random() < chances.low_pass:
            sos = filters.low_pass(rng.uniform(3400, 7500))
            noisy, clean = filters.filtered(sos, noisy), filters.filtered(sos, clean)
        curve = np.full(n, gain(np.clip(rng.normal(-26, 9), *LEVEL)) / max(rms(noisy), 1e-6), np.float32)
        if rng.random() < chances.level_steps:
            curve *= stepping_gain(n, rng)
        if rng.random() < chances.silence:
            curve *= silence_gaps(n, rng)
        noisy, clean = noisy * curve, clean * curve
        if rng.random() < chances.clipping:
            top = np.abs(noisy).max() * rng.uniform(.4, .9)
            noisy = np.clip(noisy, -top, top)
        peak = max(np.abs(noisy).max(), np.abs(clean).max())
        fit = np.float32(min(1, .99 / max(peak, 1e-9)))
        noisy, clean = np.round(noisy * fit * 32768) / 32768, clean * fit
        scale = COMMON_LEVEL / max(active_rms(clean) if has_speech else rms(noisy), 1e-4)
        return Piece(noisy.astype(np.float32), clean.astype(np.float32), np.float32(scale), np.float32(has_speech))

    def batch(self, number, size):
        """Batch `number`: one array a field, in the order of Piece."""
        pieces = [self.piece(number * size + i) for i in range(size)]
        return [np.stack([getattr(p, f.name) for p in pieces]) for f in fields(Piece)]
