"""What the C library and OpenMP read only when a program starts.

A training step on a processor allocates and frees the same few hundred megabytes every time: an allocator told to keep
them spares the system the page faults. Threads that wait asleep rather than spinning leave a shared machine to others,
and lose nothing on an idle one.
"""
import os
import sys

SETTINGS = {"MALLOC_MMAP_MAX_": "0", "MALLOC_TRIM_THRESHOLD_": "1000000000000", "MALLOC_TOP_PAD_": "1000000000",
            "OMP_WAIT_POLICY": "PASSIVE"}


def settle():
    """Starts the program anew with the settings, unless it has them."""
    if any(name not in os.environ for name in SETTINGS):
        os.execve(sys.executable, [sys.executable, *sys.argv], {**SETTINGS, **os.environ})
