#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Whole runs under valgrind memcheck, inside the emulator: flashwright in
# every mode on the built-in lab host (the update modes on a copy of the lab
# each time) and a library client that makes every public call, on a port of
# each transport. Builds a plain tree (no sanitizers: valgrind and ASan do not
# mix) and installs valgrind when it is missing. Any memcheck error or leak,
# or a run that does not end as expected, fails the script; every run's
# report is kept in <tree>/valgrind/.
set -euo pipefail
cd "$(dirname "$0")/.."
src=$(pwd -P)
scripts/setup.sh valgrind
build=$(scripts/builddir.sh build-valgrind)
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j2 --target flashwright vxemu every_call_client lab_images

out="$build/valgrind"
rm -rf "$out"
mkdir -p "$out"
cp "$build"/examples/lab/* "$out/"
vxemu="$build/bin/vxemu"
# --error-exitcode marks a run with memcheck errors (leaks included with
# --leak-check=full); no suppressions: every report is ours to fix.
memcheck=(valgrind --quiet --error-exitcode=99 --leak-check=full --show-leak-kinds=definite,indirect,possible
          --errors-for-leak-kinds=definite,indirect,possible --track-origins=yes --vgdb=no)

failed=0
# run NAME EXPECTED_STATUS HOST_ARGS... -- COMMAND...
run() {
  local name=$1 expected=$2
  shift 2
  local host=()
  while [ "$1" != "--" ]; do host+=("$1"); shift; done
  shift
  local status=0
  (cd "$out" && "$vxemu" run "${host[@]}" --state "$out/state-$name" -- \
      "${memcheck[@]}" --log-file="$out/$name.memcheck" "$@" >"$out/$name.out" 2>"$out/$name.err") || status=$?
  local verdict=ok
  if [ "$status" -eq 99 ] || [ -s "$out/$name.memcheck" ]; then
    verdict="MEMCHECK REPORT ($out/$name.memcheck)"; failed=1
  elif [ "$status" -ne "$expected" ]; then
    verdict="status $status, expected $expected"; failed=1
  fi
  printf '%-22s status %3d  %s\n' "$name" "$status" "$verdict"
}

fw="$build/bin/flashwright"
run listing 0 -- "$fw" /l
run information 0 -- "$fw" /i
run version 2 -- "$fw" /v
run usage 0 -- "$fw" /h
run silent-alone 255 -- "$fw" /s
run bad-switch 7 -- "$fw" /x
run default 0 -- "$fw"
run force 0 -- "$fw" /f
run rewrite 0 -- "$fw" /e
run downgrade 0 -- "$fw" /g
run silent-force 0 -- "$fw" /s /f

client="$build/bin/every_call_client"
run every-call-ioctl 0 -- "$client" 0
cat >"$out/sysfs-host.json" <<'EOF'
{ "driver": { "name": "vxa2xxx", "version": "8.7.3.0", "transport": "sysfs" },
  "adapters": [ { "name": "s160", "chip": "FCX160", "model": "VX2162", "serial": "VXS0000160",
                  "flash": { "bios": "1.10", "fcode": "2.05", "efi": "1.07", "firmware": "8.2.1" },
                  "functions": [ { "pci": "0000:05:00.0", "ssvid": "0x1DE5", "ssdid": "0x0162" } ] } ] }
EOF
run every-call-sysfs 0 --host "$out/sysfs-host.json" -- "$client" 0

[ "$failed" -eq 0 ] && echo "valgrind: every run clean" || echo "valgrind: see the reports above" >&2
exit "$failed"
