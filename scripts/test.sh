#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what is missing, builds everything with ASan+UBSan and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
build=$(scripts/builddir.sh build-sanitize)
cmake --preset sanitize -B "$build" >/dev/null
cmake --build "$build"
ctest --test-dir "$build" -j2 --output-on-failure
