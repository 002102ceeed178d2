#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds every fuzz target (clang, ASan+UBSan) and runs each for SECONDS
# (default 60), one after the other, over its seeds and regression inputs.
# Prints the executions per target and their rate; a finding is kept under
# build-fuzz/findings/ and ends the run with a failure. FUZZ_RUNS=N also stops
# each target after N executions.
# For a long run: FUZZ_RUNS=10000000 nice -n 19 scripts/fuzz.sh 3600
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
build=$(scripts/builddir.sh build-fuzz)
cmake -S tests/fuzz -B "$build" -G Ninja -DCMAKE_CXX_COMPILER=clang++ >/dev/null
cmake --build "$build" -j2
failed=0
while read -r name; do
  tests/fuzz/run-target.sh "$build/${name}_fuzz" tests/fuzz "$seconds" "$build/findings" || failed=1
done <"$build/targets.txt"
exit "$failed"
