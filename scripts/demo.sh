#!/usr/bin/env bash
# Builds the sigfile tool and the Python module, writes a synthetic night
# recording with it, and shows what it holds: its description and two
# seconds of the bipolar montage; sends it through EDF+ and back and compares
# the samples; draws its hypnogram, a page of EEG and the night report; and
# reads it from Python.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh $(cat scripts/build-deps.txt)
cmake --preset default >/dev/null
cmake --build --preset default --target sigfile_tool sigfile_python sigfile_python_files >/dev/null
out="${1:-/tmp/sigfile-demo}"
mkdir -p "$out"
tool=build/default/sigfile
$tool --version
$tool demo "$out/NIGHT.SIG" --minutes 10 --seed 1
$tool format "$out/NIGHT.SIG"
$tool info "$out/NIGHT.SIG"
$tool export "$out/NIGHT.SIG" "$out/bipolar.csv" --montage Bipolar --records 0:8
echo "first lines of $out/bipolar.csv:"
head -n 4 "$out/bipolar.csv"
$tool export "$out/NIGHT.SIG" "$out/NIGHT.edf"
$tool import "$out/NIGHT.edf" "$out/BACK.SIG"
$tool check "$out/BACK.SIG"
if cmp -s "$out/NIGHT.SIG" "$out/BACK.SIG"; then
  echo "NIGHT.SIG -> NIGHT.edf (EDF+) -> BACK.SIG: every sample came back bit for bit"
else
  echo "NIGHT.SIG and BACK.SIG differ after the EDF+ round trip" >&2
  exit 1
fi
$tool plot hypnogram "$out/NIGHT.SIG" "$out/hypnogram.png"
$tool plot page "$out/NIGHT.SIG" "$out/page.png" --start 300 --montage Bipolar
$tool report "$out/NIGHT.SIG" "$out/report.pdf"
echo "pictures: $out/hypnogram.png $out/page.png $out/report.pdf"
PYTHONPATH=build/default/python /usr/bin/python3 - "$out/NIGHT.edf" <<'PY'
import sys
import sigfile
rec = sigfile.open(sys.argv[1])
eeg = rec.read(start=60, stop=90, channels=["C3", "C4"])
print(f"Python: {rec}; C3/C4 from 60 to 90 s: {eeg.shape[1]} samples each, "
      f"C3 spans {1e6 * (eeg[0].max() - eeg[0].min()):.0f} uV; {len(rec.events)} events")
PY
