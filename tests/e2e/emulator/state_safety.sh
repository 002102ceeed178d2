#!/bin/sh
# SPDX-License-Identifier: MIT
# vxemu runs as root: a state directory another user could plant links in is
# refused, links already in the state are never written through, and every
# bad input names its file and field and ends with status 125.
. "$(dirname "$0")/lib.sh"

NOBODY=65534

# ---- state directories another user owns or can write
mkdir theirs && chown "$NOBODY" theirs
vx --state theirs -- true
expect_eq "$RC" 125 "state directory owned by another user"
expect_eq "$ERR" "vxemu: $WORK/theirs: refusing a state directory owned by another user (uid $NOBODY)" "owner refusal"
expect_eq "$(ls -A theirs)" "" "nothing written into it"

mkdir open && chmod 0777 open
vx --state open -- true
expect_eq "$RC" 125 "state directory others can write"
expect_eq "$ERR" "vxemu: $WORK/open: refusing a state directory that other users can write" "mode refusal"

mkdir -p under && chown "$NOBODY" under
vx --state under/st -- true
expect_eq "$RC" 125 "state directory below another user's directory"
expect_has "$ERR" "$WORK/under: refusing" "the directory above is named"

# ---- links in the state directory are replaced, never written through
mkdir -p st/adapters/lab141
echo secret > victim
ln -s ../victim st/traffic.jsonl
ln -s ../../../victim st/adapters/lab141/flash.bin.tmp
ln -s ../../../victim st/adapters/lab141/vpd.0.bin.tmp
vx --state st -- ./vxemu_probe count
expect_eq "$RC" 0 "run with planted links"
expect_eq "$(cat victim)" "secret" "the linked file is untouched"
[ -L st/traffic.jsonl ] && fail "traffic log still a link"
expect_has "$(cat st/traffic.jsonl)" '"kind":"ioctl"' "the log is written to a file of its own"
[ -f st/adapters/lab141/flash.bin ] && [ ! -L st/adapters/lab141/flash.bin ] || fail "flash.bin is a plain file"

# ---- bad inputs name their file and field
cat > huge.json <<'JSON'
{ "adapters": [ { "chip": "FCX141", "functions": [ { "ssvid": 1e999 } ] } ] }
JSON
vx --host huge.json -- true
expect_eq "$RC" 125 "number beyond any field"
expect_eq "$ERR" "vxemu: huge.json: adapters[0].functions[0].ssvid: number out of range" "number error"

cat > endless.json <<'JSON'
{ "adapters": [ { "chip": "FCX141", "flash": { "file": "/dev/zero" } } ] }
JSON
vx --host endless.json -- true
expect_eq "$RC" 125 "flash file without an end"
expect_eq "$ERR" "vxemu: endless.json: adapters[0].flash.file: /dev/zero: larger than 1048576 bytes" "bounded read"

vx --host /dev/zero -- true
expect_eq "$RC" 125 "host description without an end"
expect_eq "$ERR" "vxemu: /dev/zero: larger than 67108864 bytes" "host file bound"

rm -f st/adapters/lab141/flash.bin && ln -s /dev/zero st/adapters/lab141/flash.bin
vx --state st -- true
expect_eq "$RC" 125 "state file that is a link"
expect_has "$ERR" "$WORK/st/adapters/lab141/flash.bin: cannot open for reading" "state file named"
finish
