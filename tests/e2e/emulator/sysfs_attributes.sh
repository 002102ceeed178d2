#!/bin/sh
# SPDX-License-Identifier: MIT
# The emulated /sys: the tree libsysfs walks, the attribute texts, mode bits
# enforced like sysfs, and the optrom_ctl/optrom protocol with and without
# chunked access (FCX160 lab adapter: chunked; a second host: not chunked).
. "$(dirname "$0")/lib.sh"

vx --state st -- sh -c '
H=/sys/bus/pci/drivers/vxa2xxx/0000:05:00.0/host5
ls /sys/bus/pci/drivers/vxa2xxx | tr "\n" " "; echo
readlink /sys/bus/pci/drivers/vxa2xxx/0000:05:00.0
cat /sys/bus/pci/devices/0000:05:00.0/vendor /sys/bus/pci/devices/0000:05:00.0/device /sys/bus/pci/devices/0000:05:00.0/subsystem_device
readlink -f /sys/bus/pci/devices/0000:05:00.0/driver
cat /sys/class/vxa2xxx/vxa2xxx/dev
cat /sys/class/fc_host/host5/node_name /sys/class/fc_host/host5/port_name /sys/class/fc_host/host5/port_id /sys/class/fc_host/host5/speed /sys/class/fc_host/host6/state
cat /sys/class/scsi_host/host5/model_name /sys/class/scsi_host/host5/optrom_fw_version /sys/class/scsi_host/host5/optrom_efi_version
ls /sys/class/fc_host | tr "\n" " "; echo
cat $H/optrom_ctl 2>/dev/null; echo "read-ctl=$?"
printf "4\0" > $H/optrom_ctl; echo "probe-4=$?"
printf "1:80000:1000\0" > $H/optrom_ctl; echo "start-read=$?"
dd if=$H/optrom bs=3000 2>/dev/null | wc -c
printf "0\0" > $H/optrom_ctl
printf "2:148000:8\0" > $H/optrom_ctl; printf "ABCDEFGH" > $H/optrom; printf "3\0" > $H/optrom_ctl; echo "commit=$?"; printf "0\0" > $H/optrom_ctl
printf "1:148000:8\0" > $H/optrom_ctl; cat $H/optrom; echo; printf "0\0" > $H/optrom_ctl
printf "3\0" > $H/optrom_ctl 2>/dev/null; echo "commit-idle=$?"
printf "1:1ff000:2000\0" > $H/optrom_ctl 2>/dev/null; echo "window-past-end=$?"
wc -c < $H/nvram; wc -c < $H/vpd
printf "NV" | dd of=$H/nvram bs=2 seek=5 conv=notrunc 2>/dev/null; dd if=$H/nvram bs=1 skip=10 count=2 2>/dev/null; echo
'
expect_eq "$RC" 86 "exit status (the idle commit and the long window are violations)"
line() { echo "$OUT" | sed -n "$1p"; }
expect_eq "$(line 1)" "0000:05:00.0 0000:05:00.1 " "only the sysfs adapter under the driver"
expect_eq "$(line 2)" "../../../../devices/pci0000:05/0000:05:00.0" "driver link"
expect_eq "$(line 3)" "0x1de5" "vendor"
expect_eq "$(line 4)" "0x1600" "device"
expect_eq "$(line 5)" "0x0162" "subsystem device"
expect_eq "$(line 6)" "/sys/bus/pci/drivers/vxa2xxx" "device's driver link"
expect_eq "$(line 7)" "1:3" "driver node number"
expect_eq "$(line 8)" "0x2000001de5160000" "node_name"
expect_eq "$(line 9)" "0x2100001de5160000" "port_name"
expect_eq "$(line 10)" "0x010200" "port_id"
expect_eq "$(line 11)" "8 Gbit" "speed"
expect_eq "$(line 12)" "Link Down" "state of the second port"
expect_eq "$(line 13)" "VX2162" "model_name"
expect_eq "$(line 14)" "8.02.01" "optrom_fw_version"
expect_eq "$(line 15)" "1.07" "optrom_efi_version"
expect_eq "$(line 16)" "host5 host6 host7 host8 " "every SCSI host has an fc_host"
expect_eq "$(line 17)" "read-ctl=1" "optrom_ctl is store-only"
expect_eq "$(line 18)" "probe-4=1" "a chunked driver refuses 4"
expect_eq "$(line 19)" "start-read=0" "window read"
expect_eq "$(line 20)" "4096" "window ends after its size"
expect_eq "$(line 21)" "commit=0" "staged write committed"
expect_eq "$(line 22)" "ABCDEFGH" "committed data read back"
expect_eq "$(line 23)" "commit-idle=1" "3 without a staged write"
expect_eq "$(line 24)" "window-past-end=1" "window past the flash end"
expect_eq "$(line 25)" "512" "nvram block"
expect_eq "$(line 26)" "512" "vpd block"
expect_eq "$(line 27)" "NV" "nvram write at an offset"
expect_eq "$(log_lines st/traffic.jsonl violation)" 2 "two violations"
expect_has "$(grep '"text":"2:148000:8"' st/traffic.jsonl)" '"region":255,"offset":1343488,"length":8' "ctl command logged with its window"
expect_eq "$(dd if=st/adapters/lab160/flash.bin bs=1 skip=$((0x148000)) count=8 2>/dev/null)" "ABCDEFGH" "flash state"

# libsysfs finds the mount, the driver's devices, the class devices and their
# links, and moves attributes the way the library does.
vx -- ./vxemu_sysfs_probe
expect_eq "$RC" 0 "libsysfs walk"
expect_eq "$OUT" "mnt=/sys
device=0000:05:00.0 driver=vxa2xxx bus=pci vendor=0x1de5
device=0000:05:00.1 driver=vxa2xxx bus=pci vendor=0x1de5
node=1:3
port_name=0x2100001de5160000 device=host5
ctl method=2 probe4 rc=-1 errno=22
window len=4096
nvram len=512 method=3" "what libsysfs sees"

# A driver without chunked access: "4" is accepted, the partial forms are refused.
cat > nochunk.json <<'JSON'
{ "adapters": [ { "name": "a144", "chip": "FCX144", "transport": "sysfs", "chunked": false,
                  "flash": { "bios": "1.00", "firmware": "5.0.1" },
                  "functions": [ { "pci": "0000:03:00.0", "host": 3 } ] } ] }
JSON
vx --host nochunk.json --state st2 -- sh -c '
H=/sys/bus/pci/drivers/vxa2xxx/0000:03:00.0/host3
printf "4\0" > $H/optrom_ctl; echo "probe-4=$?"
printf "1:0:100\0" > $H/optrom_ctl 2>/dev/null; echo "partial=$?"
printf "1\0" > $H/optrom_ctl; cat $H/optrom | wc -c; printf "0\0" > $H/optrom_ctl
printf "2\0" > $H/optrom_ctl; printf "WHOLE" > $H/optrom; printf "3\0" > $H/optrom_ctl; echo "commit=$?"; printf "0\0" > $H/optrom_ctl
wc -c < $H/nvram
'
expect_eq "$RC" 0 "exit status without chunking"
expect_eq "$(echo "$OUT" | tr "\n" " ")" "probe-4=0 partial=1 1048576 commit=0 512 " "whole-flash protocol"
expect_eq "$(head -c 5 st2/adapters/a144/flash.bin)" "WHOLE" "whole-flash write keeps the leading bytes written"
finish
