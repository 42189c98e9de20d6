#!/usr/bin/env python3
"""Reads the EDF+ and BDF+ files of the library's writer, and the EDF+ export
of a native recording, with MNE-Python and checks labels, rate, samples,
start date and annotations against the JSON description written beside each
file.  Exits 77 (skipped) when MNE-Python is
not installed."""
import json
import subprocess
import sys
import tempfile

try:
    import numpy as np
    import mne
except ImportError:
    print("SKIPPED: MNE-Python is missing (Debian package python3-mne); "
          "install it with: apt-get install -y python3-mne")
    sys.exit(77)


def check(path, reader):
    with open(path + ".json", encoding="utf-8") as f:
        want = json.load(f)
    raw = reader(path, preload=True, verbose="error")
    problems = []
    if raw.ch_names != want["labels"]:
        problems.append(f"labels {raw.ch_names} != {want['labels']}")
    if raw.info["sfreq"] != want["sfreq"]:
        problems.append(f"sfreq {raw.info['sfreq']} != {want['sfreq']}")
    data = raw.get_data()
    expected = np.array(want["data"])
    if data.shape != expected.shape:
        problems.append(f"data shape {data.shape} != {expected.shape}")
    else:
        # One part in 1e9 of the range is far below one digital step.  An
        # export from float calibrations gives its own tolerance: the
        # 8-character physical limits round them by a fraction of a step.
        worst = np.max(np.abs(data - expected))
        if worst > want.get("tolerance", 1e-9 * np.max(np.abs(expected))):
            problems.append(f"samples differ by up to {worst} V")
    date = raw.info["meas_date"].strftime("%Y-%m-%dT%H:%M:%S")
    if date != want["meas_date"]:
        problems.append(f"start {date} != {want['meas_date']}")
    got = [(round(a["onset"], 6), round(a["duration"], 6), a["description"]) for a in raw.annotations]
    exp = [(round(a["onset"], 6), round(a["duration"], 6), a["text"]) for a in want["annotations"]]
    if got != exp:
        problems.append(f"annotations {got} != {exp}")
    for p in problems:
        print(f"{path}: {p}")
    if not problems:
        print(f"{path}: {len(raw.ch_names)} signals, {data.shape[1]} samples, "
              f"{len(got)} annotations read back by MNE {mne.__version__}")
    return not problems


def main():
    writer = sys.argv[1]
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([writer, folder], check=True)
        ok = check(folder + "/sample.edf", mne.io.read_raw_edf)
        ok = check(folder + "/sample.bdf", mne.io.read_raw_bdf) and ok
        ok = check(folder + "/native.edf", mne.io.read_raw_edf) and ok
    sys.exit(0 if ok else 1)


if __name__ == "__main__":
    main()
