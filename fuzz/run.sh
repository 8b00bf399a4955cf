#!/usr/bin/env bash
# run.sh BUILD SECONDS: runs each fuzz target for SECONDS seconds, one per processor at a time. Writes new
# inputs to BUILD/corpus, and findings and logs to BUILD/findings; does not change fuzz/corpus.
set -euo pipefail

fuzz_one() {
  local build=$1 name=$3 corpus=$1/corpus/$3 findings=$1/findings
  mkdir -p "$corpus" "$findings"
  "$build/fuzz/kx_${name}_fuzzer" -max_total_time="$2" -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$findings/$name-" "$corpus" "fuzz/corpus/$name" >"$findings/$name.log" 2>&1 ||
    { tail -n 60 "$findings/$name.log" >&2 && return 1; }
  echo "fuzz: $name ran $(sed -n 's/^stat::number_of_executed_units: *//p' "$findings/$name.log") inputs"
}
export -f fuzz_one

cd "$(dirname "${BASH_SOURCE[0]}")/.."
find fuzz/corpus -mindepth 1 -maxdepth 1 -printf '%f\n' | sort |
  xargs --max-procs "$(nproc)" -I NAME bash -euo pipefail -c 'fuzz_one "$@"' fuzz_one "$@" NAME
