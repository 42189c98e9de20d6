#!/usr/bin/env python3
"""Kills every command that writes at each of its file-system calls in turn
(through the LD_PRELOAD shim kill_shim.so) and checks that every recording
involved is then, once the next command has looked at it, either the old
one or the new one, whole: never a mix, never half of one.

Usage: kill_commands.py SIGFILE_TOOL KILL_SHIM [--only NAME] [--every K]
(--every K kills at every Kth call only, for a quick run)."""
import hashlib
import json
import os
import shutil
import subprocess
import sys
import tempfile

TOOL, SHIM = sys.argv[1], sys.argv[2]
ONLY = sys.argv[sys.argv.index("--only") + 1] if "--only" in sys.argv else None
EVERY = int(sys.argv[sys.argv.index("--every") + 1]) if "--every" in sys.argv else 1


def run(args, cwd, kill_at=None, count_file=None):
    env = dict(os.environ)
    env["LD_PRELOAD"] = SHIM
    # A sanitizer build must accept the shim in front of its runtime.
    env["ASAN_OPTIONS"] = env.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0:detect_leaks=0"
    if kill_at:
        env["SIGFILE_KILL_AT"] = str(kill_at)
    if count_file:
        env["SIGFILE_KILL_COUNT"] = count_file
    return subprocess.run([TOOL] + args, cwd=cwd, env=env, capture_output=True, text=True)


def plain(args, cwd):
    r = subprocess.run([TOOL] + args, cwd=cwd, capture_output=True, text=True)
    if r.returncode != 0:
        raise RuntimeError(f"{args}: {r.stdout}{r.stderr}")
    return r


def digest(path):
    with open(path, "rb") as f:
        return hashlib.sha1(f.read()).hexdigest()


def recording_state(cwd, name):
    """What a recording is, as the next command finds it: None when it does
    not exist at all, or (data digest, description) when it opens whole."""
    base = os.path.join(cwd, name)
    # The command looks first (and finishes what a killed one left decided).
    r = subprocess.run([TOOL, "info", base + ".SIG", "--json"], cwd=cwd, capture_output=True, text=True)
    present = [f for f in os.listdir(cwd) if f.split(".")[0] == name and "~" not in f]
    if r.returncode != 0:
        return None if not present else ("unreadable", r.stdout + r.stderr, tuple(sorted(present)))
    info = json.loads(r.stdout)
    # What must agree with the data: the records and the events.
    essence = (info["records"], info["record_size"], info["events"], info["patient"]["last_name"],
               json.dumps(info["recording_montages"], sort_keys=True))
    size = os.path.getsize(base + ".SIG")
    if size < info["records"] * info["record_size"]:
        return ("short", size, essence)
    return (digest(base + ".SIG"), hashlib.sha1(repr(essence).encode()).hexdigest()[:12])


def file_state(cwd, names):
    return tuple(digest(os.path.join(cwd, n)) if os.path.exists(os.path.join(cwd, n)) else None for n in names)


def spectral_state(cwd, name):
    if not os.path.exists(os.path.join(cwd, name + ".SPC")) and not os.path.exists(os.path.join(cwd, name + ".SPH")):
        return None
    r = subprocess.run([TOOL, "info", name + ".SPC", "--json"], cwd=cwd, capture_output=True, text=True)
    if r.returncode != 0:
        return ("unreadable", r.stdout + r.stderr)
    info = json.loads(r.stdout)
    return (digest(os.path.join(cwd, name + ".SPC")), info["records"], info["channels"][0]["label"])


# Each scenario: a setup, the command, and the state that must be old or new.
def demo(cwd, name, minutes, seed):
    plain(["demo", name + ".SIG", "--minutes", str(minutes), "--seed", str(seed)], cwd)


SCENARIOS = [
    ("copy", lambda d: (demo(d, "A", 1, 1), demo(d, "B", 2, 2)), ["copy", "A.SIG", "B.SIG"],
     lambda d: (recording_state(d, "A"), recording_state(d, "B"))),
    ("rename", lambda d: demo(d, "A", 1, 1), ["rename", "A.SIG", "C.SIG"],
     lambda d: (recording_state(d, "A"), recording_state(d, "C"))),
    ("delete", lambda d: demo(d, "A", 1, 1), ["delete", "A.SIG"], lambda d: (recording_state(d, "A"),)),
    ("import", lambda d: (demo(d, "A", 1, 1), plain(["export", "A.SIG", "X.edf"], d), demo(d, "B", 2, 2)),
     ["import", "X.edf", "B.SIG"], lambda d: (recording_state(d, "B"),)),
    ("export", lambda d: (demo(d, "A", 1, 1), demo(d, "B", 2, 2), plain(["export", "B.SIG", "O.edf"], d)),
     ["export", "A.SIG", "O.edf"], lambda d: (file_state(d, ["O.edf"]),)),
    ("demo", lambda d: demo(d, "B", 2, 2), ["demo", "B.SIG", "--minutes", "1", "--seed", "3"],
     lambda d: (recording_state(d, "B"),)),
    ("spectrum", lambda d: (demo(d, "A", 1, 1), demo(d, "B", 2, 2),
                            plain(["spectrum", "B.SIG", "O.SPC", "--epoch", "2"], d)),
     ["spectrum", "A.SIG", "O.SPC", "--epoch", "1"], lambda d: (spectral_state(d, "O"),)),
    ("plot", lambda d: (demo(d, "A", 1, 1), demo(d, "B", 2, 2), plain(["plot", "page", "B.SIG", "O.png"], d)),
     ["plot", "page", "A.SIG", "O.png"], lambda d: (file_state(d, ["O.png"]),)),
    ("report", lambda d: (demo(d, "A", 1, 1), demo(d, "B", 2, 2), plain(["report", "B.SIG", "O.pdf"], d)),
     ["report", "A.SIG", "O.pdf"], lambda d: (file_state(d, ["O.pdf"]),)),
]


def main():
    failures = 0
    with tempfile.TemporaryDirectory() as root:
        for name, setup, command, state in SCENARIOS:
            if ONLY and name != ONLY:
                continue
            prepared = os.path.join(root, name + "-setup")
            os.makedirs(prepared)
            setup(prepared)
            old = state(prepared)
            # The whole command once, to know its new state and its calls.
            done = os.path.join(root, name + "-done")
            shutil.copytree(prepared, done)
            count_file = os.path.join(root, name + ".count")
            r = run(command, done, count_file=count_file)
            if r.returncode != 0:
                print(f"{name}: the command fails without a kill: {r.stdout}{r.stderr}")
                failures += 1
                continue
            new = state(done)
            with open(count_file) as f:
                calls = int(f.read())
            bad = 0
            for k in range(1, calls + 1, EVERY):
                work = os.path.join(root, f"{name}-{k}")
                shutil.copytree(prepared, work)
                run(command, work, kill_at=k)
                found = state(work)
                if found not in (old, new):
                    bad += 1
                    if bad <= 3:
                        print(f"{name}: killed at call {k} of {calls}: neither old nor new: {found}")
                shutil.rmtree(work)
            print(f"{name}: {calls} calls, {bad} kills left a mixed or broken state")
            failures += bad
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
