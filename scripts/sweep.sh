#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The power-cut sweep on the built-in lab host: the default update is cut at
# every store it makes into an adapter (vxemu run --power-cut N), then run
# again. One report line per cut point: what the first run ended in, what the
# second run ended in, and whether every adapter ends byte for byte as after an
# update never cut, with its own data (parameter blocks, "SSVID" bytes, NVRAM,
# VPD serial numbers) as before. SEEDS (default "0") choose where inside each
# store the power fails. Run as root from a built tree (scripts/demo.sh or
# cmake --preset dev && cmake --build build). Exit status 0 when every cut point
# ended well.
set -uo pipefail
cd "$(dirname "$0")/.."
build=${BUILD:-build}
seeds=${*:-0}
vxemu=$PWD/$build/bin/vxemu
fw=$PWD/$build/bin/flashwright
lab=$PWD/$build/examples/lab
[ -x "$vxemu" ] && [ -x "$fw" ] && [ -f "$lab/flashwright.properties" ] || {
    echo "sweep.sh: build first (cmake --preset dev && cmake --build build)" >&2
    exit 2
}
work=$(mktemp -d "${TMPDIR:-/var/tmp}/fwsweep.XXXXXX")
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
cd "$lab"

run() {  # STATE [vxemu options] -> status
    local state=$1
    shift
    "$vxemu" run --state "$work/$state" "$@" -- "$fw" >"$work/out" 2>&1
}
# The adapter-owned bytes of a state: each flash's "MEFCX " parameter blocks
# and bytes 32-33 of its first image, every NVRAM block, every serial number.
owned() {
    local d=$work/$1/adapters f
    for f in "$d"/*/flash.bin; do
        python3 - "$f" <<'PY'
import sys
b = open(sys.argv[1], 'rb').read()
at, blocks = 0, []
while (m := b.find(b'MEFCX ', at, 0x100000)) >= 0:
    blocks.append(b[m + 2:m + 514].hex())
    at = m + 1
print(sys.argv[1].split('/')[-2], b[32:34].hex(), *blocks)
PY
    done
    cat "$d"/*/nvram.*.bin | sha256sum
    for f in "$d"/*/vpd.*.bin; do grep -ao 'VXA[0-9]*' "$f" | head -1; done
}

run original /i || true
failures=0
points=0
for seed in $seeds; do
    rm -rf "$work/clean"
    cp -a "$work/original" "$work/clean"
    run clean --seed "$seed"
    echo "seed $seed: an update never cut ends with status $?"
    printf '%-5s %-18s %-18s %s\n' "cut" "first run" "second run" "own bytes intact"
    for n in $(seq 1 200); do
        rm -rf "$work/cut"
        cp -a "$work/original" "$work/cut"
        run cut --seed "$seed" --power-cut "$n"
        first=$?
        cut=$(grep -o '"fault":"power cut at store [^"]*' "$work/cut/traffic.jsonl" | sed 's/.*power cut at //; s/; caller gone//')
        [ -n "$cut" ] || break
        run cut --seed "$seed"
        second=$?
        intact=yes
        for f in $(cd "$work/clean/adapters" && find . -name '*.bin'); do
            cmp -s "$work/clean/adapters/$f" "$work/cut/adapters/$f" || intact="no (${f#./} differs)"
        done
        [ "$(owned clean)" = "$(owned cut)" ] || intact="no (own bytes)"
        [ -z "$(ls -A "$work/cut/varlib-upper/flashwright" 2>/dev/null)" ] || intact="$intact, journal left"
        ok=yes
        [ "$first" -eq 137 ] && [ "$second" -eq 0 ] && [ "$intact" = yes ] || ok=no
        [ "$ok" = yes ] || failures=$((failures + 1))
        points=$((points + 1))
        printf '%-5s %-18s %-18s %s\n' "$n" "killed ($first)" "status $second" "$intact   [$cut]"
    done
done
echo "$points cut points swept, $failures ended badly"
[ "$failures" -eq 0 ]
