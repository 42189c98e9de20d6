#!/usr/bin/env bash
# Short fuzz run of every target (15 s each by default, FUZZ_SECONDS to
# change it), starting from the seed corpora.  New inputs the run finds go to
# a scratch folder, not into the committed corpus; a crash leaves its input
# in build/fuzz/findings/ and fails the script.  The seed is fixed so that a
# run repeats the one before it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh clang-14 libclang-rt-14-dev
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=true
seconds="${FUZZ_SECONDS:-15}"
targets=(status sigfile filters spectral_header formula edf nihonkohden)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

findings="$PWD/build/fuzz/findings"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$findings"
status=0
for t in "${targets[@]}"; do
  echo "== fuzz $t (${seconds} s)"
  mkdir -p "$scratch/$t"
  if ! nice -n 19 build/fuzz/fuzz/fuzz_"$t" -max_total_time="$seconds" -seed=1 -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="$findings/$t-" "$scratch/$t" fuzz/corpus/"$t" \
      > "$scratch/$t.log" 2>&1; then
    tail -n 60 "$scratch/$t.log"
    echo "fuzz target $t failed; input saved under $findings"
    status=1
  else
    grep -E "stat::number_of_executed_units|Done " "$scratch/$t.log" | tail -n 2 || true
  fi
done
exit $status
