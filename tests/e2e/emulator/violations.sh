#!/bin/sh
# SPDX-License-Identifier: MIT
# The driver is strict: every malformed request is answered the way the driver
# answers it and recorded as a violation, and vxemu then ends with status 86
# whatever the command's own status was.
. "$(dirname "$0")/lib.sh"

vx --state st -- sh -c '
P=./vxemu_probe
for k in signature version addrmode command subcode short pointer number; do $P bad $k 0; done
$P -o query 0 1
head -c 600 /dev/zero > big.bin; $P nvram-set 0 big.bin
$P req 0 0xcc 0 32 8 1
printf "1:zz:10\0" > /sys/bus/pci/drivers/vxa2xxx/0000:05:00.0/host5/optrom_ctl 2>/dev/null
exit 3
'
expect_eq "$RC" 86 "violations give their own exit status"
line() { echo "$OUT" | sed -n "$1p"; }
expect_eq "$(line 1)" "rc=0 status=6 detail=0 resplen=696" "bad signature"
expect_eq "$(line 2)" "rc=0 status=13 detail=0 resplen=696" "bad version"
expect_eq "$(line 3)" "rc=0 status=6 detail=0 resplen=696" "bad AddrMode"
expect_eq "$(line 4)" "rc=-1 errno=22" "unknown command"
expect_eq "$(line 5)" "rc=0 status=12 detail=0 resplen=696" "unknown sub-code"
expect_eq "$(line 6)" "rc=0 status=16 detail=0 resplen=100" "response buffer shorter than the record"
expect_eq "$(line 7)" "rc=0 status=10 detail=0 resplen=696" "request buffer that cannot be read"
expect_eq "$(line 8)" "rc=-1 errno=22" "request number of an unknown size"
expect_eq "$(line 9)" "rc=-1 errno=22" "older header to an adapter of the current layout"
expect_has "$(line 10)" "status=6" "NVRAM write longer than the block"
expect_has "$(line 11)" "status=6" "failover request addressed to another instance"
expect_eq "$(log_lines st/traffic.jsonl violation)" 12 "every violation logged"
expect_has "$ERR" "vxemu: 12 protocol violation(s); first: bad signature" "summary on stderr"
expect_has "$(grep '"subcode":77' st/traffic.jsonl)" '"violation":"unknown query sub-code 77"' "violation text"

# Requests reach the driver only on its node: on any other file the kernel's
# answer (ENOTTY) comes back, and asking there is the caller's mistake.
vx --state st3 -- sh -c 'VXPROBE_NODE=/dev/zero ./vxemu_probe count; ./vxemu_probe count'
expect_eq "$RC" 86 "request on another file is a violation"
expect_eq "$(echo "$OUT" | tr "\n" "|")" "rc=-1 errno=25 count=0|rc=0 status=0 detail=0 resplen=0 count=2|" "ENOTTY off the node, answered on it"
expect_has "$(cat st3/traffic.jsonl)" '"violation":"request on a descriptor that is not the driver'"'"'s node"' "logged"

# An adapter of the older generation takes only the 88-byte header.
cat > old.json <<'JSON'
{ "adapters": [ { "name": "old", "chip": "FCX123", "transport": "ioctl_old", "flash": { "bios": "1.00", "firmware": "3.3.1" },
                  "functions": [ { "pci": "0000:04:00.0", "host": 4 } ] } ] }
JSON
vx --host old.json --state st2 -- sh -c './vxemu_probe bind 0; ./vxemu_probe -o count; ./vxemu_probe -o bind 0; ./vxemu_probe -o query 0 1; ./vxemu_probe -o layout 0; cat /sys/class/vxa2x00/vxa2x00/dev'
expect_eq "$RC" 0 "older layout run is clean"
expect_eq "$(echo "$OUT" | sed -n 1p)" "rc=0 status=1 detail=0 resplen=0" "current header cannot bind an older adapter"
expect_has "$(echo "$OUT" | sed -n 2p)" "count=1" "older header counts"
expect_eq "$(echo "$OUT" | sed -n 3p)" "rc=0 status=0 detail=4 resplen=0" "older header binds"
expect_has "$(echo "$OUT" | sed -n 4p)" 'model="' "older header query"
expect_has "$(echo "$OUT" | sed -n 5p)" "regions=2 ff:100000@0 5:100000@0" "older header layout"
expect_eq "$(echo "$OUT" | sed -n 6p)" "1:3" "older driver's class device"
vx --host old.json --state st2 -- ./vxemu_probe query 0 1
expect_eq "$RC" 86 "current header to an older adapter"
expect_eq "$OUT" "rc=-1 errno=22" "refused with EINVAL"

# A writer killed between its start and its closing "0" leaves an access the
# driver ends with it: logged once against that process, and the next
# process, which does everything right, is not blamed for it.
vx --state st4 -- sh -c '
H=/sys/bus/pci/drivers/vxa2xxx/0000:05:00.0/host5
sh -c "printf \"2:148000:6\\0\" > $H/optrom_ctl; printf KILLED > $H/optrom; kill -9 \$\$"
printf "1:148000:6\0" > $H/optrom_ctl; cat $H/optrom | od -An -c | tr -d " "; printf "0\0" > $H/optrom_ctl
'
expect_eq "$RC" 0 "the next caller is not blamed"
expect_eq "$OUT" '377377377377377377' "the killed writer's bytes never reached the flash"
expect_eq "$(log_lines st4/traffic.jsonl '"op":"abandoned"')" 1 "the abandoned access is logged once"
expect_eq "$(log_lines st4/traffic.jsonl violation)" 0 "no violation"
# A live process that starts over without its "0" is still a violation.
vx --state st4 -- sh -c '
H=/sys/bus/pci/drivers/vxa2xxx/0000:05:00.0/host5
printf "1:148000:6\0" > $H/optrom_ctl; printf "1:148000:6\0" > $H/optrom_ctl; printf "0\0" > $H/optrom_ctl
'
expect_eq "$RC" 86 "a skipped 0 of a live caller"
expect_has "$ERR" "first: optrom_ctl 1:148000:6 while an earlier access is still open" "named"
finish
