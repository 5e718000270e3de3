"""What the tests of hosts share: a noisy recording, the program as the model of what must come out, and skips that say
which package is missing."""
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE, BUILD = Path(os.environ["VQNS_SOURCE"]), Path(os.environ["VQNS_BUILD"])
PROGRAM = BUILD / "tools/vqns/vqns"
SKIPPED = 77

try:
    import numpy as np
    import soundfile
except ImportError as error:
    sys.stdout.write(f"SKIPPED: {error} (Debian packages python3-numpy and python3-soundfile)\n")
    sys.exit(SKIPPED)


def skip(what, package):
    """Ends the whole test file as skipped."""
    sys.stdout.write(f"SKIPPED: {what} is missing (Debian package {package})\n")
    sys.exit(SKIPPED)


def need_program(name, package):
    """The path of a host's program."""
    return shutil.which(name) or skip(name, package)


def need_built(path, package):
    """A file of the build that is made only where the host's development package is installed."""
    file = BUILD / path
    return file if file.exists() else skip(f"{path}, built only with the host's headers,", package)


def run(*command, **options):
    """Runs a program to its end; what it printed stands in the failure if it fails."""
    done = subprocess.run([str(c) for c in command], text=True, capture_output=True, timeout=120, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}:\n{done.stdout}\n{done.stderr}")
    return done


def noisy(path, rate=16000, channels=1, silence=0.0):
    """Writes a noisy recording with pauses as a 16-bit file of that rate, every further channel half a second later than
    the one before, and `silence` seconds behind; returns its samples [frame, channel]."""
    with tempfile.TemporaryDirectory() as folder:
        mono = Path(folder) / "mono.wav"
        run(PROGRAM, "resample", SOURCE / "samples/hum.flac", mono, "--rate", rate, "--quiet")
        x, _ = soundfile.read(mono, dtype="int16")
    x = np.concatenate([x, np.zeros(int(silence * rate), np.int16)])
    frames = np.stack([np.roll(x, c * rate // 2) for c in range(channels)], 1)
    soundfile.write(path, frames, rate, subtype="PCM_16")
    return frames


def denoised(path, *options):
    """What the program makes of a file, as 16-bit samples [frame, channel]; aligned with the input."""
    with tempfile.TemporaryDirectory() as folder:
        out = Path(folder) / "denoised.wav"
        run(PROGRAM, "denoise", path, out, "--quiet", *options)
        return soundfile.read(out, dtype="int16", always_2d=True)[0]


def latency(rate):
    """Samples from a stream's input to its output."""
    return json.loads(run(PROGRAM, "info", "--rate", rate, "--json").stdout)["delay_samples"]


def delay_between(x, y, most):
    """How many samples, 0 to `most`, y lies behind x, by correlation."""
    x, y = (v.astype(np.float64) for v in (x, y))
    n = 1 << (len(x) + len(y)).bit_length()
    correlation = np.fft.irfft(np.conj(np.fft.rfft(x, n)) * np.fft.rfft(y, n), n)
    return int(np.argmax(correlation[:most + 1]))


def speech_frames(path, count):
    """Which of `count` frames of 10 ms hold speech, as the program's detector has it."""
    found = json.loads(run(PROGRAM, "vad", path, "--format", "json", "--quiet").stdout)["segments"]
    speech = np.zeros(count, bool)
    for s in found:
        speech[int(s["start"] * 100):int(s["end"] * 100) + 1] = True
    return speech


def levels(x, rate, speech):
    """(level of the frames of 10 ms with speech, of those without), in dB below full scale."""
    frames = x[:len(speech) * rate // 100].astype(np.float64).reshape(len(speech), rate // 100) / 32768
    energy = np.square(frames).mean(1)
    return tuple(10 * np.log10(energy[which].mean() + 1e-10) for which in (speech, ~speech))


def main():
    """Runs the tests of the calling file."""
    program = unittest.main(exit=False, verbosity=2)
    sys.exit(not program.result.wasSuccessful())
