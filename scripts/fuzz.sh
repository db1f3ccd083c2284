#!/usr/bin/env bash
# Runs every libFuzzer target of a fuzz build for a bounded time.
# Usage: scripts/fuzz.sh <build-dir> [seconds-per-target]
# Longer runs: scripts/fuzz.sh build/fuzz 3600  (corpora grow under build/, seeds stay in git)
set -euo pipefail
build=$1
secs=${2:-60}
src=$(cd "$(dirname "$0")/.." && pwd)
shopt -s nullglob
found=0
for bin in "$build"/tests/*_fuzz; do
  name=$(basename "$bin" _fuzz)
  found=1
  work="$build/fuzz-corpus/$name"
  mkdir -p "$work"
  seeds="$src/tests/fuzz/corpus/$name"
  [ -d "$seeds" ] || seeds=""
  echo "fuzz $name for ${secs}s (seeds: $(ls ${seeds:-/nonexistent} 2>/dev/null | wc -l))"
  ASAN_OPTIONS=detect_leaks=1 "$bin" -max_total_time="$secs" -timeout=10 -rss_limit_mb=2048 \
     -print_final_stats=1 "$work" $seeds >"$build/fuzz-$name.log" 2>&1 \
     || { tail -50 "$build/fuzz-$name.log"; echo "fuzz target $name FAILED"; exit 1; }
  grep -E 'stat::number_of_executed_units|Done [0-9]+ runs' "$build/fuzz-$name.log" | tail -2
  echo "corpus size: $(ls "$work" | wc -l)"
done
[ $found -eq 1 ] || echo "no fuzz targets built"
