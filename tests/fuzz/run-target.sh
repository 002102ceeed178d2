#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs one fuzz target for SECONDS over its seeds and regression inputs, in a
# scratch corpus that is thrown away; a crash input is kept as
# ARTIFACTS/<target>-crash-*. Prints "<target>: N executions in Ts (R/s)".
# With FUZZ_RUNS set, the run also stops after that many executions. A
# dictionary dicts/<target>.dict is used when there is one.
# Usage: run-target.sh BINARY SOURCE_DIR SECONDS [ARTIFACTS]
set -euo pipefail
bin=$1 src=$2 seconds=$3 artifacts=${4:-$PWD}
# Absolute paths: a target may change its working directory.
mkdir -p "$artifacts"
bin=$(realpath "$bin") src=$(realpath "$src") artifacts=$(realpath "$artifacts")
name=$(basename "$bin" _fuzz)
# Memory-backed scratch where there is one: the file targets write every input.
work=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/corpus" "$artifacts"
dirs=()
for d in "$src/seeds/$name" "$src/regressions/$name"; do [ -d "$d" ] && dirs+=("$d"); done
# Every regression input on its own first, so a finding that no longer
# reproduces by fuzzing still fails here.
if [ -d "$src/regressions/$name" ] && [ -n "$(ls -A "$src/regressions/$name")" ]; then
  "$bin" -runs=0 "$src/regressions/$name"/* >"$work/regressions.log" 2>&1 || { cat "$work/regressions.log"; exit 1; }
fi
status=0
opts=()
[ -n "${FUZZ_RUNS:-}" ] && opts+=(-runs="$FUZZ_RUNS")
# Words a target's parser looks for, where the fuzzer would hardly guess them.
[ -f "$src/dicts/$name.dict" ] && opts+=(-dict="$src/dicts/$name.dict")
start=$(date +%s)
TMPDIR=$work "$bin" "${opts[@]}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 -max_len=8192 -print_final_stats=1 \
  -artifact_prefix="$artifacts/$name-" "$work/corpus" "${dirs[@]}" >"$work/log" 2>&1 || status=$?
if [ "$status" -ne 0 ]; then
  tail -n 60 "$work/log"
  echo "$name: FAILED (input kept under $artifacts/$name-*)"
  exit "$status"
fi
stat() { sed -n "s/^stat::$1: *//p" "$work/log"; }
echo "$name: $(stat number_of_executed_units) executions in $(($(date +%s) - start))s ($(stat average_exec_per_sec)/s)"
