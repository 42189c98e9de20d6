#!/usr/bin/env python3
"""Opens every EDF/BDF file of a folder of real files (written by other
programs) with the library (through recording_dump, i.e. CSigFile::Open) and
with MNE-Python, and compares labels, rates, physical values and
annotations.  Prints one table row per file.

Rules:
- a file MNE reads must open, with the same labels, the same rate per signal,
  values 0 digital steps apart (for the signals MNE returns at their own rate)
  and the same annotations (onset and duration to the millisecond, text);
- a file MNE refuses is either refused with a message naming the field or
  opened with notes saying what was tolerated;
- KNOWN lists the differences that come from MNE-Python 1.3 itself, with the
  reason; they are reported, not failed.

Usage: compare_realworld.py FOLDER RECORDING_DUMP [--table OUT.md]
Exits 77 (skipped) when MNE-Python or the folder is missing."""
import json
import os
import subprocess
import sys
import tempfile
import warnings

try:
    import numpy as np
    import mne
except ImportError:
    print("SKIPPED: MNE-Python is missing (Debian package python3-mne)")
    sys.exit(77)

mne.set_log_level("ERROR")

# Differences that come from the reference reader, not from the file.
KNOWN = {
    "stag_annotations.edf": "annotations: MNE's TAL parser leaves out the 5 multi-line XML texts (CR LF inside) and "
                            "one text of the same TAL",
    "mnetd_NK_MB0400FU.EDF": "annotations: the file omits the 0x00 after each time-keeping TAL; "
                             "MNE reads the next TAL's onset as a text ('+1.140000') and misplaces "
                             "'A1+A2 OFF' at 1.0 s, the library reads it at 1.14 s",
}


def mne_read(path):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        if path.lower().endswith(".bdf"):
            return mne.io.read_raw_bdf(path, preload=True, verbose="error")
        return mne.io.read_raw_edf(path, preload=True, verbose="error")


def mne_annotations(path, raw):
    """(onset from the first sample, duration, text) as MNE gives them."""
    if raw is None or len(raw.ch_names) == 0:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            ann = mne.read_annotations(path)
    else:
        ann = raw.annotations
    return sorted((round(float(o), 3), round(float(d), 3), str(t))
                  for o, d, t in zip(ann.onset, ann.duration, ann.description))


def same_annotations(mine, theirs):
    """Pairs the two sorted lists within 1.5 ms (onset and duration)."""
    if len(mine) != len(theirs):
        return False
    pending = list(theirs)
    for o, d, t in mine:
        match = next((k for k, (o2, d2, t2) in enumerate(pending)
                      if t2 == t and abs(o2 - o) < 0.0015 and abs(d2 - d) < 0.0015), None)
        if match is None:
            return False
        pending.pop(match)
    return True


def unit_scale(unit):
    if unit in ("\u03BCV", "\u00B5V", "uV"):
        return 1e-6
    if unit == "mV":
        return 1e-3
    return 1.0


def compare(path, dump):
    name = os.path.basename(path)
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "dump")
        subprocess.run([dump, path, out], check=True)
        with open(out + ".json", encoding="utf-8") as f:
            ours = json.load(f)
        values = np.fromfile(out + ".f64", dtype="<f8") if ours["ok"] else None
    try:
        raw = mne_read(path)
        mne_error = None
    except Exception as e:  # MNE refuses the file
        raw, mne_error = None, f"{type(e).__name__}: {e}"[:80]

    if mne_error:
        if not ours["ok"]:
            return "both refuse", True, ours["error"][-120:]
        return "opens, MNE refuses", True, "; ".join(ours["notes"])[:160] or "no note"
    if not ours["ok"]:
        return "REFUSED", False, ours["error"][-160:]

    problems = []
    labels = [c["label"] for c in ours["channels"]]
    if labels != raw.ch_names:
        problems.append(f"labels {labels[:4]}... != {raw.ch_names[:4]}...")
    extras = raw._raw_extras[0]
    n_samps = np.asarray(extras["n_samps"])[extras["sel"]] if len(raw.ch_names) else []
    record_length = float(extras["record_length"][0])
    data = raw.get_data() if len(raw.ch_names) else None
    offset = 0
    compared = 0
    float_limited = []
    for i, ch in enumerate(ours["channels"]):
        n = ch["samples"]
        mine = values[offset:offset + n]
        offset += n
        if i >= len(n_samps):
            continue
        rate = n_samps[i] / record_length
        if abs(rate - ch["frequency"]) > 1e-9 * max(rate, 1):
            problems.append(f"{ch['label']}: {ch['frequency']} Hz != {rate} Hz")
        if data is None or n_samps[i] != max(n_samps):
            continue  # MNE returns lower rates resampled
        theirs = data[i][:n]
        if len(theirs) != n:
            problems.append(f"{ch['label']}: {n} samples != {len(theirs)}")
            continue
        gain = (ch["physical_max"] - ch["physical_min"]) / (ch["digital_max"] - ch["digital_min"])
        step = abs(gain) * unit_scale(ch["unit"])
        if ch["label"].lower() in ("status", "trigger"):
            # MNE reads trigger channels as integer codes: the physical value
            # (EDF) or the stored sample (BDF), truncated, lower 17 bits.
            physical = mine / unit_scale(ch["unit"])
            if ch["bits"] == 24:
                physical = np.round((physical - ch["physical_min"]) / gain + ch["digital_min"])
            # (values that float precision put a hair below an integer are that integer)
            near = np.round(physical)
            physical = np.where(np.abs(physical - near) < 1e-3, near, physical)
            expected = np.bitwise_and(np.trunc(physical).astype(np.int64), 2**17 - 1)
            if not np.array_equal(expected, theirs.astype(np.int64)):
                problems.append(f"{ch['label']}: trigger codes differ")
            compared += 1
            continue
        worst = float(np.max(np.abs(mine - theirs))) if n else 0.0
        # The library's formatted records hold 32-bit floats: a value far
        # from zero compared with its step keeps float precision only.
        floor = float(np.max(np.abs(theirs))) * 2.0**-23 if n else 0.0
        if worst > max(0.5 * step, floor) + 1e-15:
            problems.append(f"{ch['label']}: values differ by {worst / step:.2f} steps")
        elif worst > 0.5 * step:
            float_limited.append(ch["label"])
        compared += 1
    mine_ann = sorted((a["onset"], a["duration"], a["text"]) for a in ours["annotations"])
    kept_outside = 0
    if data is not None:
        # MNE keeps the annotations that start inside its data, cut at its end.
        end = raw.n_times / raw.info["sfreq"]
        inside = [(o, min(d, end - o), t) for o, d, t in mine_ann if 0 <= o <= end]
        kept_outside = len(mine_ann) - len(inside)
        mine_ann = inside
    theirs_ann = mne_annotations(path, raw)
    if not same_annotations(mine_ann, theirs_ann):
        missing = [a for a in theirs_ann if a not in mine_ann][:2]
        extra = [a for a in mine_ann if a not in theirs_ann][:2]
        problems.append(f"annotations {len(mine_ann)} != {len(theirs_ann)} (MNE only {missing}, ours only {extra})")
    detail = f"{len(labels)} ch ({compared} compared), {len(mine_ann)} annotations"
    if kept_outside:
        detail += f" (+{kept_outside} outside the data, which MNE leaves out)"
    if float_limited:
        detail += f"; {len(float_limited)} ch beyond float precision (offset far from zero)"
    if ours["notes"]:
        detail += "; tolerated: " + "; ".join(ours["notes"])[:200]
    if problems:
        if name in KNOWN:
            return "same, MNE differs", True, KNOWN[name] + " | " + "; ".join(problems)[:200]
        return "DIFFERENT", False, "; ".join(problems)[:300]
    return "same", True, detail


def main():
    if len(sys.argv) < 3 or not os.path.isdir(sys.argv[1]):
        print("SKIPPED: no folder of real files")
        sys.exit(77)
    folder, dump = sys.argv[1], sys.argv[2]
    table = None
    if "--table" in sys.argv:
        table = sys.argv[sys.argv.index("--table") + 1]
    rows, failures = [], 0
    for name in sorted(os.listdir(folder)):
        if not name.lower().endswith((".edf", ".bdf")):
            continue
        verdict, ok, detail = compare(os.path.join(folder, name), dump)
        failures += 0 if ok else 1
        rows.append(f"| {name} | {verdict} | {detail.replace('|', '/')} |")
    text = "| file | result | detail |\n|---|---|---|\n" + "\n".join(rows) + "\n"
    print(text)
    if table:
        with open(table, "w", encoding="utf-8") as f:
            f.write(text)
    print(f"{len(rows)} files, {failures} failing")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
