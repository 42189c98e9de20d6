#!/usr/bin/env bash
# Builds the sigfile tool and runs it on a built-in example.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh $(cat scripts/build-deps.txt)
cmake --preset default >/dev/null
cmake --build --preset default --target sigfile_tool >/dev/null
out="${1:-/tmp/sigfile-demo}"
mkdir -p "$out"
tool=build/default/sigfile
$tool --version
printf 'KQUARSIG' > "$out/SERVER.SIG"
$tool format "$out/SERVER.SIG"
