#!/usr/bin/env bash
# Installs the Python module from this tree into a fresh virtual environment
# that sees Debian's packages (numpy, pandas, MNE-Python), offline, as the
# README says, and uses it once from outside the tree.
set -euo pipefail
cd "$(dirname "$0")/.."
venv=$(mktemp -d)
trap 'rm -rf "$venv"' EXIT
/usr/bin/python3 -m venv --system-site-packages "$venv/env"
"$venv/env/bin/pip" install --quiet --no-build-isolation --no-index . >/dev/null
cd "$venv"
"$venv/env/bin/python" - <<'PY'
import numpy as np
import sigfile
t = np.arange(2560) / 256
rec = sigfile.create("check.sig", np.vstack([1e-5 * np.sin(2 * np.pi * 5 * t)]), 256, ["Cz"])
assert rec.read().shape == (1, 2560) and sigfile.format_of("check.sig") == (1, "native")
print("pip install: sigfile", sigfile.__file__)
PY
