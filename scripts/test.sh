#!/usr/bin/env bash
# Builds the library, the tool and the tests, and runs the tests: first the
# plain build, then the address + undefined-behaviour sanitizer build.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh $(cat scripts/build-deps.txt)
# Let ccache share objects between clones of the repository.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=true
for preset in default asan; do
  echo "== build and test: $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  ctest --preset "$preset"
done
echo "== the Python module installed by pip"
scripts/check-pip-install.sh
