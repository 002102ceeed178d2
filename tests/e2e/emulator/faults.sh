#!/bin/sh
# SPDX-License-Identifier: MIT
# Each fault a host description can inject fires where it is aimed, as often
# as it is told to, and is named in the traffic log.
. "$(dirname "$0")/lib.sh"

cat > host.json <<'JSON'
{
  "instances": { "refuse_bind": [1] },
  "adapters": [
    { "name": "io", "chip": "FCX141", "transport": "ioctl", "flash": { "bios": "1.00", "firmware": "5.0.1" },
      "functions": [ { "pci": "0000:07:00.0", "host": 7 }, { "pci": "0000:07:00.1", "host": 8 } ] },
    { "name": "sy", "chip": "FCX144", "transport": "sysfs", "flash": { "bios": "1.00", "firmware": "5.0.1" },
      "functions": [ { "pci": "0000:09:00.0", "host": 9 } ] }
  ],
  "faults": [
    { "command": "0x00", "subcode": 2, "kind": "status", "status": 6, "times": 1 },
    { "command": "0x11", "kind": "errno", "errno": "EIO" },
    { "command": "0x0C", "kind": "busy" },
    { "command": "0x0A", "kind": "stop_after", "bytes": 4 },
    { "command": "0x0F", "kind": "short", "bytes": 10 },
    { "attribute": "vpd", "operation": "open", "kind": "errno", "errno": "ENXIO" },
    { "attribute": "nvram", "operation": "read", "kind": "short", "bytes": 100 },
    { "attribute": "optrom_ctl", "ctl": "3", "kind": "stop_after", "bytes": 3 },
    { "attribute": "fw_version", "operation": "read", "kind": "errno", "errno": "EIO", "times": 1 }
  ]
}
JSON
vx --host host.json --state st -- sh -c '
P=./vxemu_probe
$P bind 0; $P bind 1
$P query 0 2; $P query 0 2
$P vpd-get 0 512 v.bin
$P nvram-get 0 512 n.bin
printf "ABCDEFGHIJKLMNOP" > d.bin; $P writeflash 0 0xffff 0x1000 d.bin
$P readflash 0 0xffff 0x1000 16 r.bin; head -c 10 r.bin; echo
H=/sys/bus/pci/drivers/vxa2xxx/0000:09:00.0/host9
cat $H/vpd > /dev/null 2>&1; echo "vpd-open=$?"
cat $H/nvram | wc -c
printf "2:2000:8\0" > $H/optrom_ctl; printf "abcdefgh" > $H/optrom; printf "3\0" > $H/optrom_ctl 2>/dev/null; echo "commit=$?"; printf "0\0" > $H/optrom_ctl
cat $H/fw_version > /dev/null 2>&1; echo "fw_version=$?"; cat $H/fw_version
'
expect_eq "$RC" 0 "faults are not violations"
expect_eq "$(echo "$OUT" | sed -n 1p)" "rc=0 status=0 detail=7 resplen=0" "instance 0 binds"
expect_has "$(echo "$OUT" | sed -n 2p)" "status=1" "instance 1 refuses to bind"
expect_has "$(echo "$OUT" | sed -n 3p)" "status=6" "status fault fires"
expect_has "$(echo "$OUT" | sed -n 4p)" "status=0" "status fault fired only once"
expect_eq "$(echo "$OUT" | sed -n 5p)" "rc=-1 errno=5" "errno fault"
expect_has "$(echo "$OUT" | sed -n 6p)" "status=2" "busy driver"
expect_has "$(echo "$OUT" | sed -n 7p)" "status=1" "flash write that dies"
expect_has "$(echo "$OUT" | sed -n 8p)" "resplen=10" "short read"
expect_eq "$(echo "$OUT" | sed -n 9p)" "ABCD$(dd if=st/adapters/io/flash.bin bs=1 skip=$((0x1004)) count=6 2>/dev/null)" "only 4 bytes reached the flash"
expect_eq "$(echo "$OUT" | sed -n 10p)" "vpd-open=1" "attribute that will not open"
expect_eq "$(echo "$OUT" | sed -n 11p)" "100" "short attribute read"
expect_eq "$(echo "$OUT" | sed -n 12p)" "commit=1" "commit that dies"
expect_eq "$(dd if=st/adapters/sy/flash.bin bs=1 skip=$((0x2000)) count=3 2>/dev/null)" "abc" "partial commit"
expect_lacks "$(dd if=st/adapters/sy/flash.bin bs=1 skip=$((0x2003)) count=5 2>/dev/null)" "defgh" "rest of the commit lost"
expect_eq "$(echo "$OUT" | sed -n 13p)" "fw_version=1" "text attribute read fails once"
expect_eq "$(echo "$OUT" | sed -n 14p)" "5.00.01" "and then reads again"
expect_eq "$(log_lines st/traffic.jsonl '"fault"')" 10 "every fired fault is logged"

# The instance count and the bind can fail too; the count is asked of no
# adapter, so only a fault for any adapter meets it.
cat > probe.json <<'JSON'
{
  "adapters": [ { "name": "io", "chip": "FCX141", "functions": [ { "pci": "0000:07:00.0" }, { "pci": "0000:07:00.1" } ] } ],
  "faults": [
    { "command": "0xFF", "kind": "status", "status": 1, "times": 1 },
    { "adapter": "io", "command": "0xFF", "kind": "status", "status": 3 },
    { "adapter": "io", "function": 1, "command": "0xFE", "kind": "status", "status": 2 }
  ]
}
JSON
vx --host probe.json --state st-probe -- sh -c './vxemu_probe count; ./vxemu_probe count; ./vxemu_probe bind 0; ./vxemu_probe bind 1'
expect_eq "$(echo "$OUT" | sed -n 1p)" "rc=0 status=1 detail=0 resplen=0 count=0" "instance count fails once"
expect_eq "$(echo "$OUT" | sed -n 2p)" "rc=0 status=0 detail=0 resplen=0 count=2" "then answers"
expect_has "$(echo "$OUT" | sed -n 3p)" "status=0" "function 0 binds"
expect_has "$(echo "$OUT" | sed -n 4p)" "status=2" "function 1 does not"
expect_eq "$(log_lines st-probe/traffic.jsonl '"fault"')" 2 "both faults logged"

# The node: a stale number that the library must replace, and a node that will not open.
cat > stale.json <<'JSON'
{ "node": { "stale": "1:5" } }
JSON
vx --host stale.json -- sh -c 'stat -c "%t:%T" /dev/vxa2xxx; cat /sys/class/vxa2xxx/vxa2xxx/dev'
expect_eq "$(echo "$OUT" | tr "\n" " ")" "1:5 1:3 " "stale node planted"
cat > noopen.json <<'JSON'
{ "node": { "open_fails": true, "open_errno": "ENXIO" } }
JSON
vx --host noopen.json -- sh -c './vxemu_probe count; cat /dev/null && echo other-opens-work'
expect_eq "$(echo "$OUT" | tr "\n" " ")" "open errno=6 other-opens-work " "node will not open"
finish
