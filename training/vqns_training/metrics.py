"""Measures of enhanced speech against clean speech: 16 kHz, aligned, of one length. dB unless a line says otherwise."""
import numpy as np
import scipy.signal

from . import levels
from .audio import RATE

TINY = 1e-12


def si_sdr(clean, x):
    """Scale-invariant signal-to-distortion ratio (Le Roux et al. 2019), up to 100."""
    clean, x = clean - clean.mean(dtype=np.float64), x - x.mean(dtype=np.float64)
    part = np.dot(x, clean) / (np.dot(clean, clean) + TINY) * clean
    return float(min(100, 10 * np.log10((np.sum(part ** 2) + TINY) / (np.sum((x - part) ** 2) + TINY))))


def framed(x, size, hop):
    return np.lib.stride_tricks.sliding_window_view(x.astype(np.float64), size)[::hop]


def segmental_snr(clean, x):
    """Mean over the frames (32 ms, half overlapping) with speech of the signal-to-noise ratio, each in -10 to 35."""
    s, e = (np.square(framed(v, 512, 256)).sum(1) for v in (clean, x - clean))
    speech = s > s.max() * 1e-4
    return float(np.clip(10 * np.log10((s[speech] + TINY) / (e[speech] + TINY)), -10, 35).mean())


def log_spectral_distance(clean, x):
    """Root mean square over frequency of the difference of log spectra, mean over frames; what lies 60 dB below the
    loudest part of the clean spectrum counts as that."""
    s, y = (np.abs(np.fft.rfft(framed(v, 512, 256) * np.hanning(512))) ** 2 for v in (clean, x))
    floor = s.max() * 1e-6 + TINY
    d = 10 * np.log10(np.maximum(s, floor) / np.maximum(y, floor))
    return float(np.sqrt(np.mean(d ** 2, 1)).mean())


STOI_RATE, STOI_FRAME, STOI_POINTS, STOI_SEGMENT = 10000, 256, 512, 30


def third_octaves():
    """Rows of ones over the transform's bins of 15 third-octave bands from 150 Hz on."""
    bins = np.arange(STOI_POINTS // 2 + 1) * STOI_RATE / STOI_POINTS
    centres = 150 * 2 ** (np.arange(15) / 3)
    low, high = (np.abs(bins[:, None] - centres * 2 ** (shift / 6)).argmin(0) for shift in (-1, 1))
    at = np.arange(len(bins))
    return ((at >= low[:, None]) & (at < high[:, None])).astype(float)


def without_silence(clean, x):
    """Both signals without the frames in which clean speech lies over 40 dB below its loudest frame."""
    hop, window = STOI_FRAME // 2, np.hanning(STOI_FRAME + 2)[1:-1]
    frames = [framed(v, STOI_FRAME, hop) * window for v in (clean, x)]
    energy = 20 * np.log10(np.linalg.norm(frames[0], axis=1) + TINY)
    kept = [f[energy > energy.max() - 40] for f in frames]
    out = [np.zeros((len(f) + 1) * hop) for f in kept]
    for y, f in zip(out, kept):
        for i, frame in enumerate(f):
            y[i * hop:i * hop + STOI_FRAME] += frame
    return out


def stoi(clean, x):
    """Short-time objective intelligibility, 0 to 1 (Taal et al. 2011); not a number with under 0.4 s of speech."""
    clean, x = (scipy.signal.resample_poly(v.astype(np.float64), 5, 8) for v in (clean, x))
    signals = without_silence(clean, x)
    window = np.hanning(STOI_FRAME + 2)[1:-1]
    spectra = [np.fft.rfft(framed(v, STOI_FRAME, STOI_FRAME // 2) * window, STOI_POINTS) for v in signals]
    bands = [np.sqrt(np.abs(s) ** 2 @ third_octaves().T) for s in spectra]
    if len(bands[0]) < STOI_SEGMENT:
        return float("nan")
    s, y = (np.lib.stride_tricks.sliding_window_view(b, STOI_SEGMENT, 0) for b in bands)  # [segment, band, frame]
    y = y * (np.linalg.norm(s, axis=2, keepdims=True) / (np.linalg.norm(y, axis=2, keepdims=True) + TINY))
    y = np.minimum(y, s * (1 + 10 ** (15 / 20)))
    s, y = (v - v.mean(2, keepdims=True) for v in (s, y))
    s, y = (v / (np.linalg.norm(v, axis=2, keepdims=True) + TINY) for v in (s, y))
    return float((s * y).sum(2).mean())


def level_change(clean, x):
    """Of x against clean, over the frames with speech."""
    active = levels.active_frames(clean)
    s, y = (levels.frame_energies(v)[active].mean() for v in (clean, x))
    return float(10 * np.log10((y + TINY) / (s + TINY)))


def pauses(clean):
    """Which 10 ms frames have had no speech for 100 ms and will have none for 100 ms."""
    near = np.convolve(levels.frame_energies(clean) > 1e-4 * levels.frame_energies(clean).max(), np.ones(21), "same")
    return near < .5


def left_in_pauses(clean, noisy, x):
    """Level of x against the noisy input in the pauses; not a number without pauses."""
    still = pauses(clean)
    if not still.any():
        return float("nan")
    before, after = (levels.frame_energies(v)[still].mean() for v in (noisy, x))
    return float(10 * np.log10((after + TINY) / (before + TINY)))


def left(noisy, x, after=2.0):
    """Level of x against its input from `after` seconds on."""
    first = int(after * RATE)
    return float(levels.db(levels.rms(x[first:]) / levels.rms(noisy[first:])))


def pesq_wb(clean, x):
    import pesq
    return float(pesq.pesq(RATE, clean, x, "wb"))


def dnsmos(clean, x):
    from speechmos import dnsmos as model
    return float(model.run(np.clip(x, -1, 1), RATE)["ovrl_mos"])


def optional():
    """{name: measure} of those whose modules are installed."""
    found = {}
    for name, module, measure in (("pesq", "pesq", pesq_wb), ("dnsmos", "speechmos", dnsmos)):
        try:
            __import__(module)
            found[name] = measure
        except ImportError:
            pass
    return found
