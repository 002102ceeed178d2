#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what is missing, builds everything with ASan+UBSan and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset sanitize >/dev/null
cmake --build --preset sanitize
ctest --preset sanitize
