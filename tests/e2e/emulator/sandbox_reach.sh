#!/bin/sh
# SPDX-License-Identifier: MIT
# What a command inside the sandbox can reach of this machine: its own PID
# namespace with a /proc of its own (so no /proc/1/root into the machine's
# file systems), and no device node but the driver's.
. "$(dirname "$0")/lib.sh"

marker=$(mktemp /tmp/vxemu-reach-XXXXXX)
vx -- sh -c '
echo "pid $$"
[ -e "/proc/1/root'"$marker"'" ] && echo "machine /tmp reached"
ls /proc | grep -c "^[0-9]*$"
cat /proc/sys/kernel/ostype
grep -c "^  1 vxa2xxx" /proc/devices
mknod /tmp/mem c 1 1 2>/dev/null && echo "mem node made"
mknod /tmp/disk b 8 0 2>/dev/null && echo "block node made"
mknod /tmp/vx c 1 3 && echo "driver node made"
mkfifo /tmp/fifo && echo "fifo made"
./vxemu_probe count
'
rm -f "$marker"
expect_eq "$RC" 0 "run"
expect_eq "$(echo "$OUT" | tr "\n" "|")" "pid 2|4|Linux|1|driver node made|fifo made|rc=0 status=0 detail=0 resplen=0 count=2|" "sandbox reach"
finish
