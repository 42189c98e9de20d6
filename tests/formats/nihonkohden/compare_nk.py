#!/usr/bin/env python3
"""Opens the Nihon Kohden file set of a folder (NAME.EEG and its side files)
through the library (recording_dump) and compares it with the EDF export the
acquisition software made of the same recording (NAME.EDF, read through the
library's EDF driver too) and with MNE-Python's reader: the same channels,
the same physical values (to the EDF export's resolution; 0 steps from
MNE), the same events.

Usage: compare_nk.py FOLDER RECORDING_DUMP.  Exits 77 when the folder or
MNE-Python is missing."""
import glob
import json
import os
import subprocess
import sys
import tempfile

try:
    import numpy as np
    import mne
except ImportError:
    print("SKIPPED: MNE-Python is missing")
    sys.exit(77)
mne.set_log_level("ERROR")


def dump(tool, path, out):
    subprocess.run([tool, path, out], check=True)
    with open(out + ".json", encoding="utf-8") as f:
        j = json.load(f)
    if not j["ok"]:
        raise SystemExit(f"{path} does not open: {j['error']}")
    return j, np.fromfile(out + ".f64", dtype="<f8")


def channels(j, values):
    out, at = {}, 0
    for c in j["channels"]:
        out[c["label"]] = (c, values[at:at + c["samples"]])
        at += c["samples"]
    return out


def main():
    if len(sys.argv) < 3 or not os.path.isdir(sys.argv[1]):
        print("SKIPPED: no Nihon Kohden folder")
        sys.exit(77)
    folder, tool = sys.argv[1], sys.argv[2]
    eeg = sorted(glob.glob(os.path.join(folder, "*.EEG")))
    if not eeg:
        print("SKIPPED: no .EEG file")
        sys.exit(77)
    problems = []
    with tempfile.TemporaryDirectory() as tmp:
        nk, vn = dump(tool, eeg[0], os.path.join(tmp, "nk"))
        edf, ve = dump(tool, os.path.splitext(eeg[0])[0] + ".EDF", os.path.join(tmp, "edf"))
    ours = channels(nk, vn)
    theirs = {}
    for label, (c, v) in channels(edf, ve).items():
        name = label.split(" ", 1)[1] if label.startswith(("EEG ", "POL ")) else label
        theirs[name[:-4] if name.endswith("-Ref") else name] = (c, v)
    if sorted(ours) != sorted(theirs):
        problems.append(f"channels {sorted(ours)} != EDF {sorted(theirs)}")
    for name, (c, v) in ours.items():
        if name not in theirs:
            continue
        ce, e = theirs[name]
        step = abs((ce["physical_max"] - ce["physical_min"]) / (ce["digital_max"] - ce["digital_min"]))
        step *= 1e-6 if ce["unit"] == "uV" else 1e-3 if ce["unit"] == "mV" else 1
        n = min(len(v), len(e))
        if len(v) != len(e):
            problems.append(f"{name}: {len(v)} samples, EDF {len(e)}")
        worst = float(np.max(np.abs(v[:n] - e[:n]))) if n else 0
        if worst > step * 1.01:
            problems.append(f"{name}: differs from the EDF export by {worst / step:.2f} of its steps")
    # Events: the export prefixes its group ("Segment: ...").
    mine = sorted((round(a["onset"], 3), a["text"]) for a in nk["annotations"])
    exported = sorted((round(a["onset"], 3), a["text"].split(": ", 1)[-1]) for a in edf["annotations"])
    if mine != exported:
        problems.append(f"events {mine} != EDF {exported}")
    # MNE-Python's own reader of the set.
    raw = mne.io.read_raw_nihon(eeg[0], preload=True)
    if raw.ch_names != [c["label"] for c in nk["channels"]]:
        problems.append(f"MNE channels {raw.ch_names}")
    data = raw.get_data()
    for i, name in enumerate(raw.ch_names):
        if name not in ours:
            continue
        c, v = ours[name]
        step = (c["physical_max"] - c["physical_min"]) / 65535 * (1e-6 if c["unit"] == "uV" else 1e-3)
        worst = float(np.max(np.abs(v - data[i][:len(v)])))
        if worst > 0.5 * step:
            problems.append(f"{name}: differs from MNE by {worst / step:.2f} steps")
    mne_events = sorted((round(float(o)), d) for o, d in zip(raw.annotations.onset, raw.annotations.description))
    # MNE 1.3 keeps whole seconds of the log (the sub-second part came later).
    if [(round(o), t) for o, t in mine] != [(o, t) for o, t in mne_events if not t.endswith("boundary")]:
        problems.append(f"events {mine} != MNE {mne_events}")
    for p in problems:
        print(p)
    print(f"{len(ours)} channels, {len(mine)} events compared with the EDF export and MNE: "
          f"{'no difference' if not problems else str(len(problems)) + ' problems'}")
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
