#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what is missing, builds, and runs the default update on the
# built-in emulated lab host, with the adapter listing before and after, a
# second update that finds nothing to do, and what the update changed in each
# adapter (as root: vxemu builds a private sandbox).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
build=$(scripts/builddir.sh build)
cmake --preset dev -B "$build" >/dev/null
cmake --build "$build"

# The build lays the lab's properties files and generated images into one
# working directory; the state directory keeps what the adapters hold
# afterwards (flash, NVRAM, VPD per adapter) and the driver traffic logs; a
# copy taken before the update lets `vxemu diff` show what the update changed.
state="$build/lab-state"
rm -rf "$state" "$state-before"
cd "$build/examples/lab"
echo "== flashwright /i: the lab's adapters before the update"
../../bin/vxemu run --state "$state" -- ../../bin/flashwright /i || true
cp -a "$state" "$state-before"
echo "== flashwright (default update) on the emulated lab host"
status=0
../../bin/vxemu run --state "$state" -- ../../bin/flashwright || status=$?
echo "== exit status $status"
echo "== flashwright /i: the same adapters after the update"
../../bin/vxemu run --state "$state" -- ../../bin/flashwright /i || true
echo "== flashwright (default update) once more: nothing left to do"
status=0
../../bin/vxemu run --state "$state" -- ../../bin/flashwright || status=$?
echo "== exit status $status"
echo "== what libvxhmx sees on the same host (examples/hmxinfo.c)"
../../bin/vxemu run --state "$state" -- ../../bin/hmxinfo
echo "== adapter state and driver traffic logs: $state (vxemu show $state)"
echo "== vxemu diff: what the update changed in each adapter"
../../bin/vxemu diff "$state-before" "$state" || true
