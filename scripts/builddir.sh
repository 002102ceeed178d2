#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Prints the build directory to use for a preset's tree (build or
# build-sanitize). Trees live beside the sources, except when the sources are
# under /tmp: every `vxemu run` gets a fresh /tmp in which only the working
# directory stays visible, so binaries built under /tmp would vanish inside
# the emulated host. Those trees go to /var/tmp/flashwright-<uid>-<checkout>/,
# readable by the unprivileged user some tests run as.
set -euo pipefail
src=$(cd "$(dirname "$0")/.." && pwd -P)
case "$src/" in
  /tmp/*)
    top="/var/tmp/flashwright-$(id -u)-$(printf '%s' "$src" | sha1sum | cut -c1-12)"
    mkdir -p -m 0755 "$top"
    # Never build into a directory someone else prepared.
    if [ -L "$top" ] || [ "$(stat -c %u "$top")" != "$(id -u)" ]; then
      echo "builddir: $top is not ours; refusing to build there" >&2
      exit 1
    fi
    echo "$top/$1" ;;
  *) echo "$src/$1" ;;
esac
