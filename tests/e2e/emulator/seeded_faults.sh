#!/bin/sh
# SPDX-License-Identifier: MIT
# The seeded fault kinds (bit flips, lying and partial writes) and the power
# cut: each does what it says to the bytes, is named in the traffic log, and
# the same seed gives the same run again.
. "$(dirname "$0")/lib.sh"

hex() { od -An -v -tx1 "$@" | tr -d ' \n'; }
# Bytes COUNT at OFFSET of a file, in hex.
at() { dd if="$1" bs=1 skip=$(($2)) count=$3 2>/dev/null | hex; }
differing_bits() {  # two files of one size: how many bits differ
    n=0
    for d in $(cmp -l "$1" "$2" | while read -r _ x y; do echo $((0$x ^ 0$y)); done); do
        while [ "$d" -ne 0 ]; do n=$((n + (d & 1))); d=$((d >> 1)); done
    done
    echo "$n"
}

cat > host.json <<'JSON'
{
  "seed": 7,
  "adapters": [
    { "name": "io", "chip": "FCX141", "transport": "ioctl", "flash": { "bios": "1.00", "firmware": "5.0.1" },
      "functions": [ { "pci": "0000:07:00.0", "host": 7 } ] },
    { "name": "sy", "chip": "FCX144", "transport": "sysfs", "flash": { "bios": "1.00", "firmware": "5.0.1" },
      "functions": [ { "pci": "0000:09:00.0", "host": 9 } ] }
  ],
  "faults": [
    { "command": "0x0F", "kind": "bitflip", "bits": 1, "times": 1 },
    { "attribute": "nvram", "operation": "read", "kind": "bitflip", "bits": 3 },
    { "command": "0x0A", "subcode": "0xFF", "kind": "lie", "store": "nothing", "times": 1 },
    { "command": "0x0A", "subcode": "0xFF", "kind": "partial", "times": 1 },
    { "command": "0x12", "kind": "lie", "store": "other" }
  ]
}
JSON
printf 'ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/' > d64.bin
head -c 512 /dev/zero | tr '\0' 'V' > v512.bin
probe_script='
P=./vxemu_probe
H=/sys/bus/pci/drivers/vxa2xxx/0000:09:00.0/host9
$P readflash 0 0xff 0x1000 64 flipped.bin
$P readflash 0 0xff 0x1000 64 clean.bin
cat $H/nvram > nv.bin
$P writeflash 0 0xff 0x3000 d64.bin
$P writeflash 0 0xff 0x3000 d64.bin
$P vpd-set 0 v512.bin
'
vx --host host.json --state st -- sh -c "$probe_script"
expect_eq "$RC" 0 "seeded faults are not violations"
expect_eq "$(differing_bits flipped.bin clean.bin)" 1 "one bit flipped in the flash read"
expect_eq "$(hex clean.bin)" "$(at st/adapters/io/flash.bin 0x1000 64)" "the flip was in the reply, not the flash"
expect_eq "$(differing_bits nv.bin st/adapters/sy/nvram.0.bin)" 3 "three bits flipped in the attribute read"
expect_has "$(echo "$OUT" | sed -n 3p)" "status=0" "a lying write reports success"
expect_has "$(echo "$OUT" | sed -n 4p)" "status=1" "a partial write reports failure"
kept=$(sed -n 's/.*"fault":"partial; kept \([0-9]*\) of 64".*/\1/p' st/traffic.jsonl)
expect_eq "$(at st/adapters/io/flash.bin 0x3000 "$kept")" "$(at d64.bin 0 "$kept")" "the partial write's prefix reached the flash"
expect_lacks "$(at st/adapters/io/flash.bin 0x3000 64)" "$(hex d64.bin)" "its rest did not"
expect_has "$(echo "$OUT" | sed -n 5p)" "status=0" "a VPD write that lies reports success"
expect_lacks "$(hex st/adapters/io/vpd.0.bin)" "$(hex v512.bin)" "and stores other bytes"
expect_eq "$(log_lines st/traffic.jsonl '"fault":"bitflip [0-9]*:[0-7]')" 2 "every flip is logged with its place"
expect_eq "$(log_lines st/traffic.jsonl '"fault":"lie')" 2 "every lie is logged"

# The same seed replays the same run; another seed chooses other bytes.
mv flipped.bin flipped.first; mv nv.bin nv.first; cp st/adapters/io/vpd.0.bin vpd.first
vx --host host.json --state st2 -- sh -c "$probe_script"
expect_eq "$(hex flipped.bin)$(hex nv.bin)" "$(hex flipped.first)$(hex nv.first)" "same seed, same flips"
expect_eq "$(hex st2/adapters/io/vpd.0.bin)" "$(hex vpd.first)" "same seed, same lie"
expect_eq "$(grep -o '"fault":"[^"]*"' st2/traffic.jsonl)" "$(grep -o '"fault":"[^"]*"' st/traffic.jsonl)" "same seed, same log"
vx --host host.json --state st3 --seed 8 -- sh -c "$probe_script"
expect_lacks "$(hex nv.bin)" "$(hex nv.first)" "--seed replaces the host's seed"

# The power cut: the first store is whole, the second is cut after a seeded
# number of bytes with the rest of its range erased, nothing after it is
# stored, and the command is killed.
cat > plain.json <<'JSON'
{ "adapters": [
    { "name": "io", "chip": "FCX141", "transport": "ioctl", "flash": { "bios": "1.00", "firmware": "5.0.1" },
      "functions": [ { "pci": "0000:07:00.0", "host": 7 } ] },
    { "name": "sy", "chip": "FCX144", "transport": "sysfs", "flash": { "bios": "1.00", "firmware": "5.0.1" },
      "functions": [ { "pci": "0000:09:00.0", "host": 9 } ] } ] }
JSON
cut_script='
P=./vxemu_probe
$P writeflash 0 0xff 0x3000 d64.bin
$P writeflash 0 0xff 0x4000 d64.bin
$P writeflash 0 0xff 0x5000 d64.bin
echo survived
'
vx --host plain.json --state pc --power-cut 2 --seed 3 -- sh -c "$cut_script"
expect_eq "$RC" 137 "the command is killed"
expect_lacks "$OUT" "survived" "and runs no further"
expect_eq "$(at pc/adapters/io/flash.bin 0x3000 64)" "$(hex d64.bin)" "the store before the cut is whole"
done_bytes=$(sed -n 's/.*"fault":"power cut at store 2 after \([0-9]*\) of 64 bytes.*/\1/p' pc/traffic.jsonl)
expect_eq "$(at pc/adapters/io/flash.bin 0x4000 "$done_bytes")" "$(at d64.bin 0 "$done_bytes")" "the cut store kept its prefix"
expect_eq "$(at pc/adapters/io/flash.bin $((0x4000 + done_bytes)) $((64 - done_bytes)) | tr -d f)" "" "and left the rest erased"
expect_lacks "$(at pc/adapters/io/flash.bin 0x5000 64)" "$(hex d64.bin)" "nothing is stored after the cut"
vx --host plain.json --state pc2 --power-cut 2 --seed 3 -- sh -c "$cut_script"
expect_eq "$(hex pc2/adapters/io/flash.bin)" "$(hex pc/adapters/io/flash.bin)" "the same seed cuts at the same byte"

# Through sysfs the store is the commit of the staged window.
vx --host plain.json --state ps --power-cut 1 --seed 11 -- sh -c '
H=/sys/bus/pci/drivers/vxa2xxx/0000:09:00.0/host9
printf "2:2000:40\0" > $H/optrom_ctl; cat d64.bin > $H/optrom; printf "3\0" > $H/optrom_ctl; printf "0\0" > $H/optrom_ctl
echo survived'
expect_eq "$RC" 137 "a sysfs commit can be cut too"
expect_lacks "$OUT" "survived" "and the command dies there"
done_bytes=$(sed -n 's/.*"fault":"power cut at store 1 after \([0-9]*\) of 64 bytes.*/\1/p' ps/traffic.jsonl)
expect_eq "$(at ps/adapters/sy/flash.bin 0x2000 "$done_bytes")$(at ps/adapters/sy/flash.bin $((0x2000 + done_bytes)) $((64 - done_bytes)) | tr -d f)" \
    "$(at d64.bin 0 "$done_bytes")" "the committed window holds the prefix, then erased bytes"

vx --host plain.json --state bad --power-cut 0 -- true
expect_eq "$RC" 2 "a power cut counts stores from 1"
finish
