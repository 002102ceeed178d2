#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Prints the build directory to use for a preset's tree (build or
# build-sanitize). Trees live beside the sources, except when the sources are
# under /tmp: every `vxemu run` gets a fresh /tmp in which only the working
# directory stays visible, so binaries built under /tmp would vanish inside
# the emulated host. Those trees go to ~/.cache/flashwright/<checkout>/.
set -euo pipefail
src=$(cd "$(dirname "$0")/.." && pwd -P)
case "$src/" in
  /tmp/*) echo "${HOME:-/root}/.cache/flashwright/$(printf '%s' "$src" | sha1sum | cut -c1-12)/$1" ;;
  *) echo "$src/$1" ;;
esac
