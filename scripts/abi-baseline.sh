#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Writes the ABI baseline of libvxhmx (hmxapi/libvxhmx.abi) from a built
# tree, default build/. Run it only for a deliberate interface change, and
# commit the new baseline with that change; the suite's install.abi test
# compares every build with it.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
abidw --no-show-locs --no-corpus-path --no-comp-dir-path --drop-private-types --exported-interfaces-only \
      --headers-dir hmxapi/include "$build"/lib/libvxhmx.so.5 >hmxapi/libvxhmx.abi
echo "wrote hmxapi/libvxhmx.abi from $build/lib/libvxhmx.so.5"
