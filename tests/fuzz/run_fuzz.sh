#!/usr/bin/env bash
# Runs every libFuzzer executable of a fuzzing build for FUZZ_SECONDS each,
# on a scratch copy of its committed corpus (new inputs stay in the build
# directory), and prints libFuzzer's closing line per target. Fails when
# any target finds a crash, a hang, a leak or undefined behaviour; the
# input that did it is kept as <build>/fuzz-artifacts/<name>-crash-... .
#
#   tests/fuzz/run_fuzz.sh <build-dir> [name...]
set -uo pipefail

build=${1:?usage: run_fuzz.sh <build-dir> [name...]}
shift
seconds=${FUZZ_SECONDS:-60}
corpora=$(cd "$(dirname "$0")" && pwd)/corpus
scratch=$build/fuzz-scratch
artifacts=$build/fuzz-artifacts
mkdir -p "$artifacts"

names=("$@")
if [[ ${#names[@]} -eq 0 ]]; then
  for exe in "$build"/fuzz/fuzz_*; do
    [[ -x $exe ]] && names+=("${exe##*/fuzz_}")
  done
fi
if [[ ${#names[@]} -eq 0 ]]; then
  echo "run_fuzz: no fuzz_* executables under $build/fuzz" >&2
  exit 1
fi

failed=()
for name in "${names[@]}"; do
  work=$scratch/$name
  rm -rf "$work"
  mkdir -p "$work"
  cp -r "$corpora/$name/." "$work/"
  log=$build/fuzz-$name.log
  # -timeout: an input that runs this long is a hang; -rss_limit_mb: one
  # that grows the process past this is a runaway allocation.
  "$build/fuzz/fuzz_$name" "$work" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$artifacts/$name-" -print_final_stats=0 >"$log" 2>&1
  status=$?
  closing=$(grep -E '^Done [0-9]+ runs in [0-9]+ second' "$log" | tail -n 1)
  if [[ $status -ne 0 || -z $closing ]]; then
    echo "fuzz_$name: FAILED (exit $status), log $log:"
    tail -n 40 "$log"
    failed+=("$name")
  else
    echo "fuzz_$name: $closing"
  fi
done

if [[ ${#failed[@]} -ne 0 ]]; then
  echo "run_fuzz: found a defect in: ${failed[*]} (inputs under $artifacts)" >&2
  exit 1
fi
