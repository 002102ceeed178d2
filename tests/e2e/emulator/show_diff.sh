#!/bin/sh
# SPDX-License-Identifier: MIT
# vxemu show and vxemu diff on the states before and after a real update of a
# one-adapter host (flashwright with the lab's files): the exact text, the
# JSON read back, and the adapter's own data caught when it changes.
# Called as: show_diff.sh VXEMU PROBE WORKDIR SYSFS_PROBE FLASHWRIGHT LABDIR
. "$(dirname "$0")/lib.sh"
FLASHWRIGHT=$5
LAB=$6
HOST=$(cd "$(dirname "$0")" && pwd)/hosts/small141.json
cp "$FLASHWRIGHT" ./flashwright
cp "$LAB/adapters.properties" "$LAB/flashwright.properties" "$LAB/lab141.bin" .

vx --host "$HOST" --state before -- true
expect_eq "$RC" 0 "first run"
cp -a before after
vx --host "$HOST" --state after -- ./flashwright
expect_eq "$RC" 0 "the update"

# ---- show: the exact text before and after
show() { OUT=$("$VXEMU" show "$@" 2>"$WORK/.err"); RC=$?; ERR=$(cat "$WORK/.err"); }
show before
expect_eq "$RC:$ERR" "0:" "show before"
expect_eq "$OUT" 'adapter hba141: FCX141 (device ID 0x1410), model VX2141, serial VXS0000141
  transport ioctl, driver 8.07.03-k, running firmware 5.01.00, flash 1024 KiB
  versions: BIOS 1.05, FCode 1.20, EFI 1.02, firmware 5.01.00
  BIOS image: model text "VX2141", hardware type "141"
  parameter block: present (512 bytes)
  SSVID bytes: present (0x1E0F)
  regions:
    0x07  0x000000-0x03FFFF  BIOS 1.05, FCode 1.20, EFI 1.02
    0x29  0x058000-0x05BFFF  erased
    0x2A  0x05C000-0x05FFFF  erased
    0x01  0x080000-0x0FFFFF  firmware 5.01.00
  port 0000:07:00.0 (host7)
    WWNN 20:00:00:1d:e5:14:00:00, WWPN 21:00:00:1d:e5:14:00:00
    NVRAM: subsystem IDs 0x1E0F/0x1410, checksum ok
    VPD: ID "Varnix VX2141 Fibre Channel Adapter", PN "VX2141", EC "A01", SN "VXS0000141", RV, RW, checksum ok' "show before text"
show after
expect_eq "$(echo "$OUT" | sed -n '3p;8,11p')" '  versions: BIOS 1.08, FCode -, EFI -, firmware 5.02.00
    0x07  0x000000-0x03FFFF  BIOS 1.08
    0x29  0x058000-0x05BFFF  erased
    0x2A  0x05C000-0x05FFFF  erased
    0x01  0x080000-0x0FFFFF  firmware 5.02.00' "show after: the new versions"
# The update patched the adapter's identity into the new BIOS and kept its block.
expect_eq "$(echo "$OUT" | sed -n '4,6p')" '  BIOS image: model text "VX2141", hardware type "141"
  parameter block: present (512 bytes)
  SSVID bytes: present (0x1E0F)' "show after: the BIOS identity"

# ---- show --json, read back
"$VXEMU" show --json after > show.json; expect_eq "$?" 0 "show --json"
expect_eq "$(python3 - <<'PY'
import json
a = json.load(open("show.json"))["adapters"]
x = a[0]
p = x["ports"][0]
print(len(a), x["name"], x["chip"], x["device_id"], x["versions"], x["parameter_block"], x["ssvid_bytes"],
      [r["code"] + ":" + "/".join(r["carries"]) for r in x["regions"]], p["ssvid"], p["ssdid"], p["wwpn"], p["vpd"]["SN"])
PY
)" "1 hba141 FCX141 0x1410 {'bios': '1.08', 'fcode': None, 'efi': None, 'firmware': '5.02.00'} True 0x1E0F ['0x07:BIOS 1.08', '0x29:erased', '0x2A:erased', '0x01:firmware 5.02.00'] 0x1E0F 0x1410 21:00:00:1d:e5:14:00:00 VXS0000141" "show --json read back"
# Options go before or after the state, in either form.
expect_eq "$("$VXEMU" show after -j | cmp -s - show.json; echo $?)" 0 "show STATE -j"

# ---- diff: before and after the update
diff_states() { OUT=$("$VXEMU" diff "$@" 2>"$WORK/.err"); RC=$?; ERR=$(cat "$WORK/.err"); }
diff_states before after
expect_eq "$RC:$ERR" "1:" "diff of an update: status 1"
expect_eq "$OUT" 'hba141: changed
  BIOS 1.05 -> 1.08
  FCode 1.20 -> -
  EFI 1.02 -> -
  firmware 5.01.00 -> 5.02.00
  region 0x07: BIOS 1.05, FCode 1.20, EFI 1.02 -> BIOS 1.08
  region 0x01: firmware 5.01.00 -> firmware 5.02.00
  own data (parameter block, SSVID bytes, NVRAM, VPD): unchanged' "diff text"
diff_states --json before after
expect_eq "$RC" 1 "diff --json status"
echo "$OUT" > diff.json
expect_eq "$(python3 - <<'PY'
import json
d = json.load(open("diff.json"))
x = d["adapters"][0]
print(d["identical"], x["name"], x["unchanged"], x["own_data_unchanged"], x["own_data_changed"],
      [(v["image"], v["before"], v["after"]) for v in x["versions"]],
      [(r["code"], r["before"], r["after"]) for r in x["regions"]])
PY
)" "False hba141 False True [] [('BIOS', '1.05', '1.08'), ('FCode', '1.20', None), ('EFI', '1.02', None), ('firmware', '5.01.00', '5.02.00')] [('0x07', ['BIOS 1.05', 'FCode 1.20', 'EFI 1.02'], ['BIOS 1.08']), ('0x01', ['firmware 5.01.00'], ['firmware 5.02.00'])]" "diff --json read back"
diff_states after after
expect_eq "$RC:$OUT" "0:hba141: unchanged" "a state against itself"

# ---- the adapter's own data: every kind of change is caught (status 3)
own() {  # state-name file offset byte -> diff text of before against it
    cp -a after "$1"
    printf "$4" | dd of="$1/adapters/hba141/$2" bs=1 seek="$3" conv=notrunc 2>/dev/null
    diff_states after "$1"
}
own nv nvram.0.bin 16 '\001'
expect_eq "$RC:$(echo "$OUT" | tail -1)" "3:  own data CHANGED: NVRAM of 0000:07:00.0" "NVRAM changed"
own vpd vpd.0.bin 10 'Z'
expect_eq "$RC:$(echo "$OUT" | tail -1)" "3:  own data CHANGED: VPD of 0000:07:00.0 (ID)" "VPD field changed"
# The parameter block starts two bytes into "MEFCX " at 0x100 of the BIOS image.
own pb flash.bin $((0x100 + 2 + 100)) '\125'
expect_eq "$RC:$(echo "$OUT" | tail -1)" "3:  own data CHANGED: parameter block" "parameter block changed"
expect_eq "$(echo "$OUT" | sed -n 2p)" "  region 0x07: BIOS 1.08 -> BIOS 1.08" "the region's bytes changed"
own ss flash.bin $((0x20)) '\001'
expect_eq "$RC:$(echo "$OUT" | tail -1)" "3:  own data CHANGED: SSVID bytes" "SSVID bytes changed"
# The last byte of the parameter block counts; the byte after it does not.
own pbend flash.bin $((0x100 + 2 + 511)) '\125'
expect_eq "$RC:$(echo "$OUT" | tail -1)" "3:  own data CHANGED: parameter block" "last byte of the block"
own pbpast flash.bin $((0x100 + 2 + 512)) '\125'
expect_lacks "$OUT" "own data CHANGED" "byte after the block"

# ---- adapters in one state only, bad arguments, a directory that is no state
mkdir other
cp before/host.json other/
sed -i 's/"hba141"/"hbaX"/' other/host.json
mkdir -p other/adapters && cp -a before/adapters/hba141 other/adapters/hbaX
diff_states before other
expect_eq "$RC:$OUT" "3:hba141: only in the first state
hbaX: only in the second state" "adapters matched by name"
diff_states before
expect_eq "$RC:$ERR" "2:vxemu: two state directories are needed
Try 'vxemu diff --help'." "diff needs two"
show before extra
expect_eq "$RC:$ERR" "2:vxemu: unexpected argument 'extra'
Try 'vxemu show --help'." "show takes one"
show --bogus before
expect_eq "$RC:$ERR" "2:vxemu: unknown option --bogus
Try 'vxemu show --help'." "show: unknown option"
show --json=yes before
expect_eq "$RC:$ERR" "2:vxemu: option --json takes no value
Try 'vxemu show --help'." "show: a flag with a value"
mkdir nostate
show nostate
expect_eq "$RC" 2 "not a state"
expect_eq "$ERR" "vxemu: show: nostate/host.json: not found (is nostate a state directory of vxemu run?)" "not a state: message"
rm before/adapters/hba141/flash.bin
show before
expect_eq "$RC:$ERR" "2:vxemu: show: before/adapters/hba141/flash.bin: missing: the state holds no flash of adapter hba141" "no flash"
ln -s /etc/passwd nostate/host.json
show nostate
expect_eq "$RC:$ERR" "2:vxemu: show: nostate/host.json: not a regular file (is nostate a state directory of vxemu run?)" "a link is not followed"
out=$("$VXEMU" show --help); expect_eq "$?:$(echo "$out" | head -1)" "0:Usage: vxemu show [--json] STATE" "show --help"
out=$("$VXEMU" diff -h); expect_eq "$?:$(echo "$out" | head -1)" "0:Usage: vxemu diff [--json] STATE_A STATE_B" "diff -h"
finish
