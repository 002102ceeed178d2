#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what is missing, builds, and runs the default update on the
# built-in emulated lab host (as root: vxemu builds a private sandbox).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake --preset dev >/dev/null
cmake --build --preset dev

# The build lays the lab's properties files and generated images into one
# working directory; the state directory keeps what the adapters hold
# afterwards (flash, NVRAM, VPD per adapter) and the driver traffic log.
lab=build/examples/lab
state=build/lab-state
rm -rf "$state"
cd "$lab"
echo "== flashwright (default update) on the emulated lab host"
status=0
../../bin/vxemu run --state "../../lab-state" -- ../../bin/flashwright || status=$?
echo "== exit status $status"
echo "== what libvxhmx sees on the same host (examples/hmxinfo.c)"
../../bin/vxemu run --state "../../lab-state" -- ../../bin/hmxinfo
echo "== adapter state and driver traffic log: $state"
