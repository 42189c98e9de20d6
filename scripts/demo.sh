#!/usr/bin/env bash
# Builds the sigfile tool, writes a synthetic night recording with it, and
# shows what it holds: its description and two seconds of the bipolar montage;
# then sends it through EDF+ and back and compares the samples.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh $(cat scripts/build-deps.txt)
cmake --preset default >/dev/null
cmake --build --preset default --target sigfile_tool >/dev/null
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
