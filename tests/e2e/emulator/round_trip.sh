#!/bin/sh
# SPDX-License-Identifier: MIT
# A capture rehearses the host it was taken on: inside `vxemu run` on the lab
# host, `vxemu capture` describes it; a run on that description serves
# adapters for which hmxinfo, flashwright /i and vxemu show print what they
# print on the lab host, the adapter names aside (a capture names adapters by
# PCI slot), and an update rehearsed on the copy goes as on the lab host. The
# capture only reads, and its description passes the schema.
# Called as: round_trip.sh VXEMU PROBE WORKDIR SYSFS_PROBE FLASHWRIGHT HMXINFO SCHEMA LABDIR LABHOST SYSFS_HOST
. "$(dirname "$0")/lib.sh"
cp "$5" ./flashwright
cp "$6" ./hmxinfo
SCHEMA=$7
cp "$8/adapters.properties" "$8/flashwright.properties" "$8"/*.bin .
LAB=$9
SYSFS_HOST=${10}

vx --host "$LAB" --state lab -- "$VXEMU" capture --out cap
expect_eq "$RC:$OUT:$ERR" "0:captured 3 adapter(s), 4 port(s) into cap/host.json:" "capture"
expect_eq "$(LC_ALL=C ls cap | tr '\n' ' ')" "hba-0000-05-00.flash.bin hba-0000-05-00.nvram.0.bin hba-0000-05-00.nvram.1.bin hba-0000-05-00.vpd.0.bin hba-0000-05-00.vpd.1.bin hba-0000-07-00.flash.bin hba-0000-07-00.nvram.0.bin hba-0000-07-00.vpd.0.bin hba-0000-08-00.flash.bin hba-0000-08-00.nvram.0.bin hba-0000-08-00.vpd.0.bin host.json " "the files of a capture"
# Read-only: no request that sets data, writes flash, NVRAM or VPD, or
# activates a region, and no attribute write.
expect_eq "$(python3 -c '
import json
bad = [j for j in map(json.loads, open("lab/traffic.jsonl"))
       if j.get("command") in (0x07, 0x0A, 0x0D, 0x12, 0x18) or j.get("op") == "write"]
print(len(bad))')" 0 "the capture wrote nothing"
# Its image files are the adapters' bytes, the FCX160's whole 2 MiB included.
cmp -s cap/hba-0000-05-00.flash.bin lab/adapters/lab160/flash.bin || fail "FCX160 flash captured whole"
cmp -s cap/hba-0000-07-00.flash.bin lab/adapters/lab141/flash.bin || fail "FCX141 flash captured"
cmp -s cap/hba-0000-07-00.nvram.0.bin lab/adapters/lab141/nvram.0.bin || fail "NVRAM captured"
cmp -s cap/hba-0000-08-00.nvram.0.bin lab/adapters/lab123/nvram.0.bin || fail "256-byte NVRAM captured"
cmp -s cap/hba-0000-08-00.vpd.0.bin lab/adapters/lab123/vpd.0.bin || fail "VPD captured"
/usr/bin/python3 - "$SCHEMA" <<'PY' || fail "the captured description passes the schema"
import json, sys, jsonschema
jsonschema.validate(json.load(open("cap/host.json")), json.load(open(sys.argv[1])))
PY

# The same outputs on the copy, after the names are mapped.
names='s/hba-0000-05-00/lab160/g; s/hba-0000-07-00/lab141/g; s/hba-0000-08-00/lab123/g'
same_on_copy() {  # what
    "$VXEMU" show lab > show.lab
    "$VXEMU" show copy | sed "$names" > show.copy
    cmp -s show.lab show.copy || fail "vxemu show $1: $(diff show.lab show.copy)"
}
for prog in ./hmxinfo "./flashwright /i"; do
    # shellcheck disable=SC2086
    vx --host "$LAB" --state lab -- $prog
    lab_out=$OUT lab_rc=$RC
    # shellcheck disable=SC2086
    vx --host cap/host.json --state copy -- $prog
    expect_eq "$RC:$OUT" "$lab_rc:$lab_out" "$prog on the copy"
done
same_on_copy "on the copy"

# An update rehearsed on the copy goes as on the lab host.
vx --host "$LAB" --state lab -- ./flashwright
lab_out=$OUT lab_rc=$RC
vx --host cap/host.json --state copy -- ./flashwright
expect_eq "$RC:$OUT" "$lab_rc:$lab_out" "the update rehearsed on the copy"
same_on_copy "after the update"

# The output directory: a fresh one or an empty one of ours, never filled twice.
vx --host "$LAB" --state lab -- "$VXEMU" capture --out cap
expect_eq "$RC:$ERR" "1:vxemu-capture: cap: not empty" "a used directory"
mkdir empty
vx --host "$LAB" --state lab -- "$VXEMU" capture --out empty
expect_eq "$RC" 0 "an empty directory"
mkdir open && chmod 0777 open
vx --host "$LAB" --state lab -- "$VXEMU" capture --out open
expect_eq "$RC:$ERR" "1:vxemu-capture: open: refusing a directory that another user owns or can write" "a directory others can write"
expect_eq "$(ls open | wc -l)" 0 "nothing written there"

# Through sysfs only the whole-flash row is read (a window past the flash is
# a malformed command): no violation, and the copy shows the same adapter,
# its long model taken whole from the VPD part number.
vx --host "$SYSFS_HOST" --state sysfs -- "$VXEMU" capture --out cap-sysfs
expect_eq "$RC:$OUT" "0:captured 1 adapter(s), 2 port(s) into cap-sysfs/host.json" "capture through sysfs"
vx --host cap-sysfs/host.json --state sysfs-copy -- true
expect_eq "$RC:$ERR" "0:" "a run on the sysfs capture"
"$VXEMU" show sysfs | sed 's/^adapter [^:]*:/adapter:/' > show.sysfs
"$VXEMU" show sysfs-copy | sed 's/^adapter [^:]*:/adapter:/' > show.sysfs-copy
cmp -s show.sysfs show.sysfs-copy || fail "vxemu show on the sysfs copy: $(diff show.sysfs show.sysfs-copy)"
finish
