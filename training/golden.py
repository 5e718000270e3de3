#!/usr/bin/python3
"""Writes the golden vectors by which tests/golden_test.cpp proves that the library computes what PyTorch computes:
a short noisy recording, and what the network of the parameter file makes of it in double precision.

    golden.py --speech FILE [--start SECONDS] [--model FILE] [--out tests/data/golden.bin]

The file: "vqns-golden-1\\n", the model's id and "\\n" (17 bytes), the count of input samples and of output samples
(32-bit), the input (16-bit PCM, 16 kHz), the output (32-bit float, full scale 1; its first sample is the first that the
engine delivers), all little-endian.
"""
import argparse
import struct
import sys
from pathlib import Path

import numpy as np
import torch

from vqns_training import audio, framing, levels, made_up, network, tables

ROOT = Path(__file__).resolve().parent.parent
HELD_BACK = 5  # hops that the engine keeps: two of the frame, two of look-ahead, one in hand

parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("--speech", required=True, help="a clean recording that may be redistributed")
parser.add_argument("--start", type=float, default=0, help="where in it to begin, in seconds")
parser.add_argument("--seconds", type=float, default=3)
parser.add_argument("--snr", type=float, default=12, help="of the made-up noise mixed in, in dB")
parser.add_argument("--model", default=ROOT / "ns/dnn/model/vqns.safetensors")
parser.add_argument("--out", default=ROOT / "tests/data/golden.bin")


def noisy(speech, snr):
    """Speech at -26 dBFS with made-up noise, as PCM."""
    speech = speech * levels.gain(-26) / levels.active_rms(speech)
    noise = made_up.moving_filtered_noise(len(speech), np.random.default_rng(1))
    return audio.to_pcm(speech + noise * levels.active_rms(speech) / levels.rms(noise) / levels.gain(snr))


def through_pytorch(pcm, model):
    net = network.Network()
    tables.load(model, net)
    with torch.no_grad():
        y = net.double().denoise(torch.from_numpy(pcm / 32768)[None])[0].numpy()
    return y[:len(pcm) - HELD_BACK * framing.HOP].astype("<f4")


def write(path, pcm, output, model_id):
    data = b"vqns-golden-1\n" + model_id.encode() + b"\n" + struct.pack("<ii", len(pcm), len(output))
    Path(path).parent.mkdir(parents=True, exist_ok=True)
    Path(path).write_bytes(data + pcm.astype("<i2").tobytes() + output.tobytes())


if __name__ == "__main__":
    a = parser.parse_args()
    first, count = int(a.start * audio.RATE), int(a.seconds * audio.RATE) // framing.HOP * framing.HOP
    speech = audio.read(a.speech)[first:first + count]
    if len(speech) < count:
        sys.exit(f"golden.py: {a.speech} has less than {a.start + a.seconds} s")
    pcm = noisy(speech, a.snr)
    output = through_pytorch(pcm, a.model)
    write(a.out, pcm, output, tables.model_id(a.model))
    before, after = (levels.db(levels.rms(x)) for x in (pcm / 32768, output))
    print(f"{a.out}: model {tables.model_id(a.model)}, input {before:.1f} dBFS, output {after:.1f} dBFS")
