#!/usr/bin/env python3
"""Reading whole nights into numpy arrays: the Python module against MNE-Python.

Two EDF+ nights, made here: 8 hours of 64 channels at 256 Hz (written by this
script), and the mixed-rate polysomnography night of `sigfile demo` exported
to EDF+ (1 hour by default).  For each, in the same run: `sigfile.open(...)`
and read_by_rate() of every channel (each rate group, one pass), `mne.io.read_raw_edf(...,
preload=True)`, and the C++ read of every record (bench_read_file); and the
peak memory of the Python read against the size of the float32 arrays.

Usage: bench/python/read.py [--hours H] [--demo-minutes M] [--keep DIR]
Needs the default build (build/default, with its python/ folder).
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

import numpy as np

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.path.join(ROOT, "build", "default")
sys.path.insert(0, os.path.join(BUILD, "python"))


def write_edf_plus(path, channels, rate, seconds):
    """A continuous EDF+ file of sine-and-noise channels, 1-second records."""
    n_sig = channels + 1
    ann_samples = 30
    header = bytearray()
    field = lambda text, width: text.encode("ascii")[:width].ljust(width)
    header += field("0", 8) + field("X X X X", 80) + field("Startdate 01-JAN-2026 X X X", 80)
    header += field("01.01.26", 8) + field("22.00.00", 8) + field(str(256 * (n_sig + 1)), 8)
    header += field("EDF+C", 44) + field(str(seconds), 8) + field("1", 8) + field(str(n_sig), 4)
    labels = [f"EEG {i:03d}" for i in range(channels)] + ["EDF Annotations"]
    columns = [
        (labels, 16), (["AgAgCl electrode"] * channels + [""], 80), (["uV"] * channels + [""], 8),
        (["-3276.8"] * channels + ["-1"], 8), (["3276.7"] * channels + ["1"], 8),
        (["-32768"] * n_sig, 8), (["32767"] * n_sig, 8), (["HP:0.1Hz"] * channels + [""], 80),
        ([str(rate)] * channels + [str(ann_samples)], 8), ([""] * n_sig, 32)]
    for values, width in columns:
        for v in values:
            header += field(v, width)
    rng = np.random.default_rng(1)
    t = np.arange(rate) / rate
    base = (np.sin(2 * np.pi * 10 * t)[None, :] * 500 + rng.normal(0, 50, (channels, rate))).astype("<i2")
    with open(path, "wb") as f:
        f.write(header)
        for r in range(seconds):
            tal = f"+{r}\x14\x14\x00".encode("ascii").ljust(2 * ann_samples, b"\x00")
            f.write(np.roll(base, r % rate, axis=1).tobytes())
            f.write(tal)


MEASURE = r"""
import os, sys, time
sys.path.insert(0, sys.argv[1])
import numpy as np
import sigfile
def rss():
    with open("/proc/self/statm") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")
before = rss()
t0 = time.perf_counter()
rec = sigfile.open(sys.argv[2])
arrays = [a for _, a in rec.read_by_rate().values()]
seconds = time.perf_counter() - t0
# VmHWM: this process's own peak (ru_maxrss would carry the parent's across exec).
peak = next(int(l.split()[1]) * 1024 for l in open("/proc/self/status") if l.startswith("VmHWM:"))
print(seconds, sum(a.nbytes for a in arrays), peak - before)
"""


def python_read(path):
    out = subprocess.run([sys.executable, "-c", MEASURE, os.path.join(BUILD, "python"), path], check=True,
                         capture_output=True, text=True).stdout.split()
    return float(out[0]), int(out[1]), int(out[2])


def mne_read(path):
    import mne
    t0 = time.perf_counter()
    raw = mne.io.read_raw_edf(path, preload=True, verbose="error")
    seconds = time.perf_counter() - t0
    del raw
    return seconds


def cpp_read(path, *options):
    out = subprocess.run([os.path.join(BUILD, "bench", "bench_read_file"), path, *options], check=True,
                         capture_output=True, text=True).stdout.split()
    return float(out[0])


def measure(name, path, mne_target):
    py, nbytes, memory = min((python_read(path) for _ in range(2)), key=lambda x: x[0])
    theirs = min(mne_read(path) for _ in range(2))
    cpp = min(cpp_read(path) for _ in range(2))
    cpp_arrays = min(cpp_read(path, "--into-arrays") for _ in range(2))
    print(f"RESULT python_read_vs_mne_{name} {py:.2f} s ratio={py / theirs:.3f} target={1 / mne_target:.3f}")
    # The C++ read of the night into arrays does the Python read's job; the
    # record loop alone does not fill (nor first touch) any night-long memory.
    print(f"RESULT python_read_vs_cpp_arrays_{name} {py:.2f} s ratio={py / cpp_arrays:.3f} target=1.2")
    print(f"RESULT python_read_vs_cpp_records_{name} {py:.2f} s ratio={py / cpp:.3f} target=-")
    print(f"RESULT python_read_memory_{name} {memory / 2**20:.0f} MB ratio={memory / nbytes:.3f} target=1.2")
    print(f"# {name}: sigfile {py:.2f} s, MNE {theirs:.2f} s ({theirs / py:.1f}x slower), C++ {cpp_arrays:.2f} s into arrays, {cpp:.2f} s records only, "
          f"arrays {nbytes / 2**20:.0f} MB", flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--hours", type=float, default=8.0)
    parser.add_argument("--demo-minutes", type=float, default=60.0)
    parser.add_argument("--keep")
    args = parser.parse_args()
    folder = args.keep or tempfile.mkdtemp(prefix="sigfile-bench-python-")
    try:
        night = os.path.join(folder, "night64.edf")
        if not os.path.exists(night):
            write_edf_plus(night, 64, 256, int(args.hours * 3600))
        measure("64ch_256hz", night, 2.5)
        demo = os.path.join(folder, "demo.edf")
        if not os.path.exists(demo):
            tool = os.path.join(BUILD, "sigfile")
            subprocess.run([tool, "demo", os.path.join(folder, "demo.sig"), "--minutes", str(args.demo_minutes)],
                           check=True, capture_output=True)
            subprocess.run([tool, "export", os.path.join(folder, "demo.sig"), demo], check=True, capture_output=True)
        measure("demo_psg", demo, 10.0)
    finally:
        if not args.keep:
            shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    main()
