"""Compiles the fast operators on first use, into a cache folder, for the processor at hand."""
import ctypes
import hashlib
import os
import platform
import subprocess
import tempfile
from pathlib import Path

SOURCES = Path(__file__).parent / "kernels"
COMPILE = ["g++", "-std=c++17", "-O3", "-march=native", "-ffast-math", "-fopenmp", "-fPIC", "-Wall", "-Wextra"]


def cache_folder():
    base = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
    return Path(os.environ.get("VQNS_TRAINING_CACHE") or os.path.join(base, "vqns-training"))


def processor():
    """What -march=native depends on."""
    try:
        lines = Path("/proc/cpuinfo").read_text().splitlines()
        return "".join(sorted({line for line in lines if line.startswith(("model name", "flags"))}))
    except OSError:
        return platform.machine()


def build():
    """Path of the compiled operators; compiles when source, flags or processor are new. Raises on failure."""
    files = sorted(SOURCES.glob("*.cpp")) + sorted(SOURCES.glob("*.h"))
    key = hashlib.sha256(b"".join(f.read_bytes() for f in files) + " ".join(COMPILE).encode() + processor().encode())
    library = cache_folder() / f"kernels-{key.hexdigest()[:16]}.so"
    if not library.exists():
        library.parent.mkdir(parents=True, exist_ok=True)
        with tempfile.TemporaryDirectory(dir=library.parent) as work:
            objects = []
            for source in (f for f in files if f.suffix == ".cpp"):
                objects.append(os.path.join(work, source.stem + ".o"))
                subprocess.run([*COMPILE, "-c", str(source), "-o", objects[-1]], check=True)
            # Linked without -ffast-math, which would switch the whole process to flushing denormals.
            made = os.path.join(work, "kernels.so")
            subprocess.run(["g++", "-shared", "-fopenmp", *objects, "-lopenblas", "-o", made], check=True)
            os.replace(made, library)
    return library


def load():
    library = ctypes.CDLL(str(build()))
    for name in ("norm_prelu_forward", "norm_prelu_backward"):
        getattr(library, name).restype = ctypes.c_int
    return library
