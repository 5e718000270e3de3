"""One file of a corpus: what a worker does."""
import contextlib
import os
import re
import secrets
from collections.abc import Iterator
from typing import Any, Literal

import numpy as np
import soundfile

from .. import Stream, __version__, model_id

SUFFIXES = (".wav", ".flac", ".ogg", ".oga", ".opus", ".mp3", ".aif", ".aiff", ".aifc", ".au", ".snd", ".caf", ".w64",
            ".rf64")
PARTIAL = ".vqns-partial"  # how the names of unfinished files end

BLOCK = 1 << 12  # frames, as in the program: what an encoder makes may depend on how much it is given at once
UNKNOWN_LENGTH = (1 << 63) - 1
PLACEHOLDER_SIZE = 0x7f000000  # this and more stands in headers that were written to a pipe

Settings = dict[str, Any]
Outcome = dict[str, Any]


def settings_of(attenuation_limit: float | None, level: bool) -> Settings:
    """Everything beside the input that the output depends on."""
    return {"attenuation_limit": attenuation_limit, "level": level, "version": __version__, "model": model_id}


def denoise_file(source: str, target: str, settings: Settings) -> Outcome:
    """Denoises a file in blocks into one of the same format, rate and channels, which appears whole or not at all.

    Returns the length of the sound (`seconds`), `size` and `mtime_ns` of the source as they were when reading began,
    and the size of the target (`written`); or what went wrong (`error`).
    """
    try:
        if settings != settings_of(settings["attenuation_limit"], settings["level"]):
            return {"error": f"the worker has another vqns: version {__version__}, model {model_id}"}
        with open(source, "rb") as file:
            there = os.fstat(file.fileno())
        if there.st_size == 0:
            return {"error": "is empty"}
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with _opened(source) as sound, _replaced(target) as partial:
            seconds = _denoise(sound, partial, settings)
        return {"seconds": seconds, "size": there.st_size, "mtime_ns": there.st_mtime_ns,
                "written": os.stat(target).st_size}
    except Exception as error:  # whatever it is, the other files shall be done
        return {"error": _reason(error)}


@contextlib.contextmanager
def _replaced(target: str) -> Iterator[str]:
    """The name of a new file beside the target, whose place it takes if nothing is raised."""
    partial = os.path.join(os.path.dirname(target), f".{secrets.token_hex(8)}{PARTIAL}")
    descriptor = os.open(partial, os.O_RDWR | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o666)
    try:
        yield partial
        os.fsync(descriptor)
        os.replace(partial, target)
    except BaseException:
        with contextlib.suppress(OSError):
            os.unlink(partial)
        raise
    finally:
        os.close(descriptor)


class _FromStartToEnd(soundfile.SoundFile):
    """A file that is only read on. SoundFile would seek to where it is after every block, which makes decoders of
    MP3 forget what the next frame needs."""

    def seekable(self) -> bool:
        return False


def _opened(name: str) -> soundfile.SoundFile:
    return _FromStartToEnd(os.fsencode(name))  # as bytes, for names that are not UTF-8


def _promises_more(sound: soundfile.SoundFile) -> bool:
    """Whether the header tells of more bytes than there are. libsndfile reads what there is and says so in its log
    alone: "data : 64000 (should be 38382)". Ogg files without an end have no length."""
    if sound.format == "OGG":
        return bool(sound.frames == UNKNOWN_LENGTH)
    size = r"^(?:\s*(?:data|SSND|Data Size|Riff size)|riff)\b.*?: (\d+) \(should be (\d+)\)"
    sizes = re.findall(size, sound.extra_info, re.MULTILINE)
    return any(int(found) < int(promised) < PLACEHOLDER_SIZE for promised, found in sizes)


def _sound_is_cut(source: str) -> bool:
    """Whether the sound of a WAV or AIFF file, by the size of its chunk, reaches beyond the end of the file: the log
    holds some two thousand characters, and other chunks may fill it before."""
    with open(source, "rb") as file:
        size = os.fstat(file.fileno()).st_size
        kind = file.read(12)[:4]
        order: Literal["little", "big"] = "little" if kind == b"RIFF" else "big"
        if kind not in (b"RIFF", b"RIFX", b"FORM"):
            return False
        while len(head := file.read(8)) == 8:
            promised = int.from_bytes(head[4:], order)
            if head[:4] in (b"data", b"SSND"):
                return size - file.tell() < promised < PLACEHOLDER_SIZE
            file.seek(promised + promised % 2, os.SEEK_CUR)
    return False


def _denoise(sound: soundfile.SoundFile, partial: str, settings: Settings) -> float:
    """Writes the denoised sound, aligned with the original; returns its length in seconds."""
    if sound.frames < 1:
        raise ValueError("holds no sound")
    if _promises_more(sound) or _sound_is_cut(sound.name):
        raise ValueError("is truncated")
    with Stream(sound.samplerate, sound.channels, attenuation_limit=settings["attenuation_limit"],
                level=settings["level"]) as stream, _like(sound, partial) as out:
        ahead, frames = stream.latency, 0
        for block in _blocks(sound):
            frames += len(block)
            done = stream.process(block)
            _write(out, done[min(ahead, len(done)):])
            ahead -= min(ahead, len(done))
        _write(out, stream.flush()[ahead:])
    with _opened(partial) as written:  # some encoders lose the failure of a write
        if not frames <= written.frames < UNKNOWN_LENGTH:
            raise OSError("the output could not be written in full; the disk may be full")
    return frames / float(sound.samplerate)


def _blocks(sound: soundfile.SoundFile) -> Iterator[Any]:
    """The sound, in blocks of [frames, channels]."""
    frames = 0
    with contextlib.suppress(soundfile.LibsndfileError):
        while len(block := sound.read(BLOCK, dtype="float32", always_2d=True)) > 0:
            frames += len(block)
            yield block
        if frames == sound.frames or sound.frames == UNKNOWN_LENGTH:
            return
    raise ValueError(f"is truncated or damaged after {frames / sound.samplerate:.3f} s")


def _like(sound: soundfile.SoundFile, partial: str) -> soundfile.SoundFile:
    """A sound file to write with format, rate, channels and texts of another."""
    if not soundfile.check_format(sound.format, sound.subtype, sound.endian):
        raise ValueError(f"sound as {sound.format} {sound.subtype} can be read but not written")
    out = soundfile.SoundFile(os.fsencode(partial), "w", sound.samplerate, sound.channels, sound.subtype, sound.endian,
                              sound.format)
    for name, text in sound.copy_metadata().items():
        if name != "software":
            with contextlib.suppress(RuntimeError):  # not every format has a place for every text
                setattr(out, name, text)
    return out


def _write(out: soundfile.SoundFile, sound: Any) -> None:
    # As 16-bit integers, since floating point would be scaled by 32767 on its way to integers. Formats that work in
    # floating point get that: of 16-bit stereo libsndfile's MPEG encoder makes garbage.
    if out.format not in ("OGG", "MP3") and out.subtype not in ("FLOAT", "DOUBLE"):
        units = sound * 32768
        if out.subtype in ("PCM_U8", "PCM_S8"):  # which would cut the lower byte off
            units = np.minimum(np.floor(units / 256 + 0.5), 127) * 256
        sound = units.astype(np.int16)
    try:
        out.write(sound)
    except (RuntimeError, AssertionError) as error:
        raise OSError("the output could not be written in full; the disk may be full") from error


def _reason(error: Exception) -> str:
    if isinstance(error, OSError) and error.strerror:
        return error.strerror
    # SoundFile's messages without their decorations and the name of the file.
    message = getattr(error, "error_string", None) or str(error) or type(error).__name__
    return re.sub(r"^(Error : |System error : )", "", message).rstrip(".\n")
