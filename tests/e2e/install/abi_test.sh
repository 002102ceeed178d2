#!/bin/sh
# SPDX-License-Identifier: MIT
# Compares the built libvxhmx with the ABI kept in hmxapi/libvxhmx.abi.
# Added public calls pass (they are reported); a removed or changed symbol, or
# a changed public type, fails.
#
# After a deliberate change of the interface, refresh the baseline from a
# dev build and commit it with the change:
#   scripts/abi-baseline.sh build
#
# Called as: abi_test.sh ABIDIFF BASELINE LIBRARY
set -u
ABIDIFF=$1 BASELINE=$2 LIB=$3

report=$("$ABIDIFF" --no-show-locs "$BASELINE" "$LIB" 2>&1)
rc=$?
# abidiff's status is a bit set: 1 error, 2 usage error, 4 ABI change,
# 8 incompatible change. An ABI change that is nothing but added symbols
# passes; anything else fails.
if [ $((rc & 3)) -ne 0 ]; then
    echo "$report" >&2
    echo "FAIL: abidiff could not compare (status $rc)" >&2
    exit 1
fi
if [ $((rc & 8)) -ne 0 ]; then
    echo "$report" >&2
    echo "FAIL: incompatible ABI change against $BASELINE" >&2
    exit 1
fi
if [ $((rc & 4)) -ne 0 ]; then
    if ! "$ABIDIFF" --no-show-locs --no-added-syms "$BASELINE" "$LIB" >/dev/null 2>&1; then
        echo "$report" >&2
        echo "FAIL: the ABI changed beyond added symbols (see above)" >&2
        exit 1
    fi
    echo "$report"
    echo "ABI: only additions; refresh the baseline with scripts/abi-baseline.sh when they are meant to stay"
    exit 0
fi
echo "ABI unchanged"
