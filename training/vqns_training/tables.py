"""Weights to and from the parameter file that the library compiles in: safetensors, float32, one flat tensor per
table, blocked as the library's layers read them (ns/dnn/model/vq_ns_model.h)."""
import json
import struct

import numpy as np
import torch

STAGES = range(4)


def ordered(w, split, order):
    return w.reshape(split).permute(order).reshape(-1)


def convolution_table(w):
    times, taps, c, out = w.shape
    return ordered(w, (times, taps, c, out // 8, 8), (3, 0, 1, 2, 4))


def transposed_table(w):
    times, taps, out, c = w.shape
    return ordered(w, (times, taps, out // 8, 8, c), (0, 1, 2, 4, 3))


def gates_zrn(w):
    """PyTorch's gate order r, z, n to the tables' z, r, n."""
    return w.reshape(3, 64, -1)[[1, 0, 2]]


def stage_tables(w, s):
    at = f"stages.{s}."
    bias = torch.stack([gates_zrn(w[at + k]).reshape(3, 8, 8) for k in ("gru.bias_ih_l0", "gru.bias_hh_l0")], 1)
    return {f"grui{s}": ordered(gates_zrn(w[at + "gru.weight_ih_l0"]), (3, 8, 8, 64), (1, 3, 0, 2)),
            f"gruh{s}": ordered(gates_zrn(w[at + "gru.weight_hh_l0"]), (3, 8, 8, 64), (1, 3, 0, 2)),
            f"grub{s}": bias.permute(2, 0, 1, 3).reshape(-1),
            f"dense{s}": ordered(w[at + "dense.weight"], (8, 8, 64), (0, 2, 1)),
            f"dense_bias{s}": w[at + "dense.bias"],
            f"gbn{s}": torch.cat([w[at + "gain"].reshape(-1), w[at + "offset"].reshape(-1)])}


def layer_tables(w, weights, norm, name, table):
    """A (transposed) convolution and, except behind the last, its normalisation."""
    i = weights[-1]
    t = {f"{name}conv2d{i}": table(w[weights + ".weight"]), f"{name}conv2d{i}_bias": w[weights + ".bias"]}
    if norm + ".gain" in w:
        t[f"{name}bn{i}"] = torch.cat([w[norm + ".gain"], w[norm + ".offset"]])
        t[f"{name}prelu{i}"] = w[norm + ".slope"]
    return t


def to_tables(w):
    """State dictionary of the network to tables, in the file's order."""
    t = {}
    for i in range(3):
        t |= layer_tables(w, f"encoder.{i}", f"encoder_norm.{i}", "f", convolution_table)
    for s in STAGES:
        t |= stage_tables(w, s)
    for i in range(3):
        t |= layer_tables(w, f"decoder.{i}", f"decoder_norm.{i}", "d", transposed_table if i < 2 else torch.flatten)
    gain, offset = w["input_norm.gain"], w["input_norm.offset"]
    t["ln0"] = torch.cat([gain, gain.new_ones(14), offset, gain.new_zeros(14)])
    return t


def from_tables(tables, shapes):
    """Tables to a state dictionary of the given shapes. Running the way out on numbered weights says where each value
    lies; the zeros and ones behind ln0 belong to none."""
    sizes = {k: int(np.prod(s)) for k, s in shapes.items()}
    numbers, at = {}, 0
    for k, size in sizes.items():
        numbers[k] = torch.arange(at, at + size, dtype=torch.float64).reshape(shapes[k])
        at += size
    flat = np.full(at, np.nan, np.float32)
    for name, number in to_tables(numbers).items():
        if len(tables[name]) != len(number):
            raise ValueError(f"{name}: {len(tables[name])} values instead of {len(number)}")
        used = np.ones(len(number), bool)
        if name == "ln0":
            used[514:528] = used[1042:] = False
        flat[number.numpy()[used].astype(np.int64)] = tables[name][used]
    assert not np.isnan(flat).any(), "a weight that no table holds, or a value that is not a number"
    weights = np.split(flat, np.cumsum(list(sizes.values()))[:-1])
    return {k: torch.from_numpy(v.copy()).reshape(shapes[k]) for k, v in zip(shapes, weights)}


def save(path, weights, **about):
    """Writes the parameter file; `about` becomes its metadata."""
    t = {k: np.ascontiguousarray(v.detach().cpu().float().numpy()) for k, v in to_tables(weights).items()}
    header, at = {"__metadata__": {k: str(v) for k, v in about.items()}}, 0
    for k, v in t.items():
        if not np.isfinite(v).all():
            raise ValueError(f"{k}: value not finite")
        header[k] = {"dtype": "F32", "shape": [v.size], "data_offsets": [at, at + v.nbytes]}
        at += v.nbytes
    text = json.dumps(header).encode()
    text += b" " * (-len(text) % 8)
    with open(path, "wb") as f:
        f.write(struct.pack("<Q", len(text)) + text + b"".join(v.tobytes() for v in t.values()))


def read(path):
    """Tables and metadata of a parameter file."""
    with open(path, "rb") as f:
        header = json.loads(f.read(struct.unpack("<Q", f.read(8))[0]))
        body = f.read()
    about = header.pop("__metadata__", {})
    return {k: np.frombuffer(body[slice(*v["data_offsets"])], np.float32) for k, v in header.items()}, about


def load(path, network):
    """Reads a parameter file into the network; returns its metadata."""
    tables, about = read(path)
    network.load_state_dict(from_tables(tables, {k: v.shape for k, v in network.state_dict().items()}))
    return about


def model_id(path):
    """The short hash by which the library names its parameter file (64-bit FNV-1a)."""
    value = 0xcbf29ce484222325
    with open(path, "rb") as f:
        for byte in f.read():
            value = (value ^ byte) * 0x100000001b3 % (1 << 64)
    return f"{value:016x}"
