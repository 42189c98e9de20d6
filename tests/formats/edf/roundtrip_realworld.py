#!/usr/bin/env python3
"""Sends every EDF/BDF file of a folder of real files through a native
recording and back (sigfile import, then sigfile export to the same format)
and says, file by file, whether the round trip is faithful: the same labels,
the same physical values (0 digital steps apart, or within the resolution a
24-bit channel kept in 16 bits), the same number of samples, the same
continuity and every annotation (onset and duration to the millisecond,
text).  When it is not, it says why.  Prints a Markdown table.

Usage: roundtrip_realworld.py FOLDER SIGFILE_TOOL RECORDING_DUMP [--table OUT.md]
Exits 77 when the folder is missing; 1 when a file that opens cannot be
imported for a reason other than the native model's limits."""
import json
import os
import subprocess
import sys
import tempfile

try:
    import numpy as np
except ImportError:
    print("SKIPPED: numpy is missing")
    sys.exit(77)


def dump(tool_dump, path, out):
    subprocess.run([tool_dump, path, out], check=True)
    with open(out + ".json", encoding="utf-8") as f:
        j = json.load(f)
    values = np.fromfile(out + ".f64", dtype="<f8") if j.get("ok") else None
    return j, values


def main():
    if len(sys.argv) < 4 or not os.path.isdir(sys.argv[1]):
        print("SKIPPED: no folder of real files")
        sys.exit(77)
    folder, tool, tool_dump = sys.argv[1], sys.argv[2], sys.argv[3]
    table = sys.argv[sys.argv.index("--table") + 1] if "--table" in sys.argv else None
    rows, failures, faithful = [], 0, 0
    for name in sorted(os.listdir(folder)):
        if not name.lower().endswith((".edf", ".bdf")):
            continue
        path = os.path.join(folder, name)
        with tempfile.TemporaryDirectory() as tmp:
            a, va = dump(tool_dump, path, os.path.join(tmp, "a"))
            if not a["ok"]:
                rows.append((name, "not opened", "the file is damaged (see the reading table)"))
                continue
            native = os.path.join(tmp, "n.SIG")
            back = os.path.join(tmp, "back" + os.path.splitext(name)[1].lower())
            r = subprocess.run([tool, "import", path, native], capture_output=True, text=True)
            how = "import"
            if r.returncode != 0 and "--resample" in r.stderr:
                r = subprocess.run([tool, "import", path, native, "--resample"], capture_output=True, text=True)
                how = "import --resample"
            if r.returncode != 0:
                reason = r.stderr.strip().splitlines()[-1] if r.stderr.strip() else "import failed"
                limit = "canaux" in reason and "au plus" in reason
                rows.append((name, "not imported", reason[:160]))
                if not limit:
                    failures += 1
                continue
            notes = [l for l in r.stderr.strip().splitlines() if l]
            r = subprocess.run([tool, "export", native, back], capture_output=True, text=True)
            if r.returncode != 0:
                rows.append((name, "not exported", r.stderr.strip()[:160]))
                failures += 1
                continue
            b, vb = dump(tool_dump, back, os.path.join(tmp, "b"))
            why = []
            la = [c["label"] for c in a["channels"]]
            lb = [c["label"] for c in b["channels"]]
            if la != lb:
                why.append("labels differ")
            na = [c["samples"] for c in a["channels"]]
            nb = [c["samples"] for c in b["channels"]]
            if na != nb:
                extra = [y - x for x, y in zip(na, nb)]
                why.append(f"samples {na[0]} -> {nb[0]} (records of 64 native samples)" if extra and extra[0] > 0
                           else "sample counts differ")
            ra = [c["frequency"] for c in a["channels"]]
            rb = [c["frequency"] for c in b["channels"]]
            if any(abs(x - y) > 1e-9 * max(x, 1) for x, y in zip(ra, rb)):
                why.append("rates changed (" + how + ")")
            # Values, over the samples both have, channel by channel.
            oa = ob = 0
            worst_steps = 0.0
            for ca, cb in zip(a["channels"], b["channels"]):
                n = min(ca["samples"], cb["samples"])
                xa, xb = va[oa:oa + n], vb[ob:ob + n]
                oa += ca["samples"]
                ob += cb["samples"]
                if abs(ca["frequency"] - cb["frequency"]) > 1e-9 * max(ca["frequency"], 1) or n == 0:
                    continue
                step = abs((ca["physical_max"] - ca["physical_min"]) / (ca["digital_max"] - ca["digital_min"]))
                scale = 1e-6 if ca["unit"] in ("uV", "\u00b5V") else 1e-3 if ca["unit"] == "mV" else 1.0
                d = float(np.max(np.abs(xa - xb))) / (step * scale) if step else 0.0
                # float records hold 24 significant bits
                floor = float(np.max(np.abs(xa))) * 2.0 ** -23 / (step * scale) if step else 0.0
                worst_steps = max(worst_steps, max(0.0, d - floor))
            if worst_steps > 0.5:
                fitted = [n for n in notes if "16 bits" in n]
                why.append(f"values move by up to {worst_steps:.1f} steps" +
                           (" (24-bit range kept in 16 bits)" if fitted else ""))
            if a["records"] and b["records"] and len(a["annotations"]) != len(b["annotations"]):
                why.append(f"annotations {len(a['annotations'])} -> {len(b['annotations'])}")
            else:
                ann_a = sorted((round(x["onset"], 3), round(x["duration"], 3), x["text"]) for x in a["annotations"])
                ann_b = sorted((round(x["onset"], 3), round(x["duration"], 3), x["text"]) for x in b["annotations"])
                lost = [x for x in ann_a if not any(abs(x[0] - y[0]) < 0.0015 and abs(x[1] - y[1]) < 0.0015
                                                    and x[2] == y[2] for y in ann_b)]
                if lost:
                    why.append(f"{len(lost)} annotations changed (e.g. {lost[0]})")
            if why:
                rows.append((name, "with losses", "; ".join(why)))
            else:
                rows.append((name, "faithful", how))
                faithful += 1
    text = "| file | EDF/BDF -> native -> EDF/BDF | why |\n|---|---|---|\n"
    text += "\n".join(f"| {n} | {v} | {w.replace('|', '/')} |" for n, v, w in rows) + "\n"
    print(text)
    print(f"{len(rows)} files, {faithful} faithful, {failures} failing")
    if table:
        with open(table, "w", encoding="utf-8") as f:
            f.write(text)
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
