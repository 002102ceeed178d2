#!/bin/sh
# SPDX-License-Identifier: MIT
# Region 0 of a flash request is the whole option ROM from its first byte:
# the whole-image write of the older chips reads and writes through it.
. "$(dirname "$0")/lib.sh"

vx --state st -- sh -c '
P=./vxemu_probe
$P readflash 1 0 0 0x20000 r0.bin
$P readflash 1 0xffff 0 0x20000 raw.bin
printf "NEWDATA-12345678" > patch.bin
$P writeflash 1 0 0x100 patch.bin
$P readflash 1 0xffff 0x100 16 back.bin
$P writeflash 1 0 0xffff8 patch.bin
$P readflash 1 0 0xffff0 0x20 past.bin
'
expect_eq "$RC" 0 "exit status"
line() { echo "$OUT" | sed -n "$1p"; }
expect_has "$(line 1)" "status=0" "region 0 read"
expect_eq "$(cmp r0.bin raw.bin && echo same)" "same" "region 0 starts at the first flash byte"
expect_has "$(line 3)" "status=0" "region 0 write"
expect_eq "$(cat back.bin)" "NEWDATA-12345678" "region 0 write lands at its offset"
expect_has "$(line 5)" "status=6" "region 0 write past the end of the flash"
expect_has "$(line 6)" "status=6" "region 0 read past the end of the flash"
expect_eq "$(dd if=st/adapters/lab123/flash.bin bs=1 skip=256 count=16 2>/dev/null)" "NEWDATA-12345678" "flash state"
expect_eq "$(log_lines st/traffic.jsonl violation)" 0 "no violations"
expect_has "$(sed -n 3p st/traffic.jsonl)" '"command":10,"subcode":0,"layout":"current","region":0,"offset":256,"length":16,"status":0' "region 0 write log line"
finish
