#!/bin/sh
# SPDX-License-Identifier: MIT
# Every kind of driver request against the lab host: instances and binding,
# queries, flash, layout, NVRAM, VPD, SCSI pass-through, driver specifics,
# failover, wwpn lookup; the traffic log records each one.
. "$(dirname "$0")/lib.sh"

vx --state st -- sh -c '
P=./vxemu_probe
$P count; $P bind 0; $P bind 1; $P bind 2
$P query 0 1; $P query 0 2; $P query 0 3 0; $P query 0 4 1; $P query 0 4 2; $P query 0 8; $P query 0 9; $P query 0 10
$P layout 0; $P layout 1
$P readflash 0 7 0 0x40000 boot.bin
printf "NEWDATA-12345678" > patch.bin
$P writeflash 0 0x29 0x10 patch.bin
$P readflash 0 0xffff 0x58010 16 back.bin
$P writeflash 0 0x29 0x3ff8 patch.bin
$P readflash 0 0xffff 0x100000 16 past.bin
$P nvram-get 0 1024 nv.bin; $P vpd-get 0 100 vpd.bin
head -c 256 /dev/zero | tr "\0" "A" > nvbig.bin; $P nvram-set 1 nvbig.bin
$P nvram-get 0 512 nvbefore.bin; head -c 200 /dev/zero | tr "\0" "B" > nvshort.bin; $P nvram-set 0 nvshort.bin
head -c 16 /dev/zero | tr "\0" "V" > vp.bin; $P vpd-set 0 vp.bin; $P vpd-get 0 16 vpd2.bin
$P scsi 0 0 0 0x12; $P scsi 0 0 1 0x25; $P scsi 0 1 0 0xa0; $P scsi 0 0 0 0xa0; $P scsi 0 2 0 0x12
$P req 0 0xfc 0 0 64; $P req 0 0x06 6 0 200; $P req 0 0x06 7 0 200; $P req 0 0x06 3 0 112
$P req 0 0x06 8 0 16; $P req 0 0x18 0x25c 0 0
$P req 0 0xd2 0 0 100; $P req 0 0xc8 0 0 64; $P req 0 0xcc 0 32 8 0; $P req 1 0xce 0 32 256 1
$P req 0 0x02 0 8 0; $P req 0 0x03 0 0 64
$P query 5 1
$P req 0 0xfd 0 8 16
'
expect_eq "$RC" 0 "exit status"
line() { echo "$OUT" | sed -n "$1p"; }
expect_eq "$(line 1)" "rc=0 status=0 detail=0 resplen=0 count=2" "instance count"
expect_eq "$(line 2)" "rc=0 status=0 detail=7 resplen=0" "bind 0 gives host 7"
expect_eq "$(line 3)" "rc=0 status=0 detail=8 resplen=0" "bind 1 gives host 8"
expect_eq "$(line 4)" "rc=0 status=9 detail=0 resplen=0" "bind beyond the count"
expect_has "$(line 5)" 'wwnn=2000001de5140000 manufacturer="Varnix Corporation" model="VX2141" serial="VXA4200141"' "node"
expect_has "$(line 5)" "bivalid=7 fwver=5.1.0 efiver=1.2 fcodever=1.20" "node boot versions"
expect_has "$(line 6)" "wwpn=2100001de5140000 id=00010400 type=1 state=2" "port"
expect_has "$(line 7)" "status=0" "discovered port 0"
expect_has "$(line 8)" "target=1" "discovered target 1"
expect_has "$(line 9)" "status=9" "discovered target past the count"
expect_has "$(line 10)" "vendor=1de5 device=1410 ssvid=1e0f ssdid=1410 bus=7 devfn=0" "chip"
expect_has "$(line 11)" "status=12" "CNA query on a plain FC chip"
expect_has "$(line 12)" "status=0" "adapter versions"
expect_eq "$(line 13)" "rc=0 status=0 detail=0 resplen=4088 size=100000 regions=5 ff:100000@0 7:40000@0 29:4000@58000 2a:4000@5c000 1:80000@80000" "FCX141 layout"
expect_has "$(line 14)" "regions=2 ff:100000@0 5:100000@0" "FCX123 layout"
expect_has "$(line 15)" "status=0" "boot code read"
expect_eq "$(wc -c < boot.bin)" 262144 "boot code read length"
expect_has "$(line 16)" "status=0" "region write"
expect_eq "$(cat back.bin)" "NEWDATA-12345678" "region write lands at region start + offset"
expect_has "$(line 18)" "status=6" "write past the end of the region"
expect_has "$(line 19)" "status=6" "read past the end of the flash"
expect_eq "$(line 20)" "rc=0 status=0 detail=0 resplen=512" "NVRAM read is cut to the block"
expect_eq "$(line 21)" "rc=0 status=0 detail=0 resplen=100" "VPD read of 100 bytes"
expect_has "$(line 22)" "status=0" "NVRAM write of the whole 256-byte block of an FCX123"
expect_has "$(line 23)" "status=0" "NVRAM read before a short write"
expect_has "$(line 24)" "status=0" "short NVRAM write"
expect_has "$(line 25)" "status=0" "VPD write"
expect_eq "$(cat vpd2.bin)" "VVVVVVVVVVVVVVVV" "VPD written and read back"
expect_has "$(line 27)" 'status=0 detail=0 resplen=96 sensekey=0 vendor="VARNIX  "' "INQUIRY"
expect_has "$(line 28)" "resplen=8" "READ CAPACITY"
expect_has "$(line 29)" "status=15 detail=2 resplen=0 sensekey=5" "REPORT LUNS refused"
expect_has "$(line 30)" "status=0 detail=0 resplen=24" "REPORT LUNS with two LUNs"
expect_has "$(line 31)" "status=9" "missing target"
expect_has "$(line 32)" "head=08070300" "driver specifics 8.7.3.0"
expect_has "$(line 33)" "head=382e30372e30332d6b" "driver record version text"
expect_has "$(line 34)" "head=352e30312e3030" "firmware record version text"
expect_has "$(line 35)" "status=0 detail=0 resplen=112" "statistics"
expect_has "$(line 36)" "status=0" "beacon"
expect_has "$(line 37)" "status=0" "firmware activation"
expect_has "$(line 38)" "head=382e372e33" "failover driver version 8.7.3"
expect_has "$(line 39)" "status=0" "failover system parameters"
expect_has "$(line 40)" "status=0" "failover statistics addressed to instance 0"
expect_has "$(line 41)" "status=0" "failover LUN data on instance 1"
expect_has "$(line 42)" "status=0" "event registration"
expect_has "$(line 43)" "status=0 detail=0 resplen=0" "no events pending"
expect_has "$(line 44)" "status=9" "request to an instance the driver does not have"

# The log has one line per request, in order, with no violation.
expect_has "$(line 45)" "status=9" "port name that no target has"
expect_eq "$(wc -l < st/traffic.jsonl)" 45 "one log line per request"
expect_eq "$(log_lines st/traffic.jsonl violation)" 0 "no violations"
expect_eq "$(sed -n 16p st/traffic.jsonl)" '{"kind":"ioctl","pid":'"$(sed -n 16p st/traffic.jsonl | sed 's/.*"pid":\([0-9]*\).*/\1/')"',"adapter":"lab141","function":0,"command":10,"subcode":41,"layout":"current","region":41,"offset":16,"length":16,"status":0}' "flash write log line"
# The state holds what was written.
expect_eq "$(dd if=st/adapters/lab141/flash.bin bs=1 skip=$((0x58010)) count=16 2>/dev/null)" "NEWDATA-12345678" "flash state"
expect_eq "$(tr -d A < st/adapters/lab123/nvram.0.bin | wc -c)" 0 "NVRAM state of the second adapter"
expect_eq "$(head -c 200 st/adapters/lab141/nvram.0.bin | tr -d B | wc -c)" 0 "short NVRAM write updates the leading bytes"
expect_eq "$(tail -c 312 st/adapters/lab141/nvram.0.bin | od -An -tx1)" "$(tail -c 312 nvbefore.bin | od -An -tx1)" "short NVRAM write keeps the rest"
finish
