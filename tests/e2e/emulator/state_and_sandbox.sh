#!/bin/sh
# SPDX-License-Identifier: MIT
# State persists from one run to the next; the sandbox keeps /etc, /usr/lib,
# /tmp, /dev, System V IPC and the mount table of the machine untouched, also
# when the command or vxemu itself is killed; exit statuses.
. "$(dirname "$0")/lib.sh"


# ---- run 1 writes flash, NVRAM, /etc, /usr/lib, /tmp and a semaphore
vx --state st -- sh -c '
H=/sys/bus/pci/drivers/vxa2xxx/0000:05:00.0/host5
printf "2:148000:6\0" > $H/optrom_ctl; printf "RUN-1!" > $H/optrom; printf "3\0" > $H/optrom_ctl; printf "0\0" > $H/optrom_ctl
head -c 512 /dev/zero | tr "\0" "N" > $H/nvram
echo "release 9" > /etc/vxemu-e2e-release
echo "log line" >> /usr/lib/vxemu-e2e.log
touch /tmp/vxemu-e2e-tmpfile
ipcmk -S 1 > /dev/null && ipcs -s | grep -c 0x && ipcs -s | awk "/^0x/ {print \$1}" > semkey.txt
ls /tmp | grep -v "^$(echo "$PWD" | cut -d/ -f3)\$" | wc -l
cat /proc/sys/kernel/ostype
'
expect_eq "$RC" 0 "run 1"
expect_eq "$(echo "$OUT" | tr "\n" " ")" "1 1 Linux " "private semaphores, fresh /tmp, ostype"
expect_eq "$(cat st/etc-upper/vxemu-e2e-release)" "release 9" "/etc change lands in the state"
expect_eq "$(cat st/usrlib-upper/vxemu-e2e.log)" "log line" "/usr/lib change lands in the state"
[ -e /etc/vxemu-e2e-release ] && fail "real /etc touched"
[ -e /usr/lib/vxemu-e2e.log ] && fail "real /usr/lib touched"
[ -e /tmp/vxemu-e2e-tmpfile ] && fail "real /tmp touched"
[ -e st/.run ] && fail "run directory left behind"

# ---- run 2 boots from the state of run 1
vx --state st -- sh -c '
H=/sys/bus/pci/drivers/vxa2xxx/0000:05:00.0/host5
printf "1:148000:6\0" > $H/optrom_ctl; cat $H/optrom; echo; printf "0\0" > $H/optrom_ctl
head -c 4 $H/nvram; echo
cat /etc/vxemu-e2e-release
'
expect_eq "$(echo "$OUT" | tr "\n" " ")" "RUN-1! NNNN release 9 " "second run sees the first run's state"

# ---- host description: /etc files, ostype, /proc/devices
cat > host.json <<'JSON'
{ "ostype": "VMkernel", "etc": { "/etc/redhat-release": "Red Hat Enterprise Linux release 9.2\n" } }
JSON
vx --host host.json -- sh -c 'cat /proc/sys/kernel/ostype /etc/redhat-release; grep -c vxa2xxx /proc/devices; grep "^  1 " /proc/devices'
expect_eq "$(echo "$OUT" | tr "\n" "|")" "VMkernel|Red Hat Enterprise Linux release 9.2|1|  1 mem|  1 vxa2xxx|" "host description in the sandbox"

# ---- a file of the host description never writes through a link out of /etc
if [ -L /etc/mtab ]; then
    mtab_target=$(readlink /etc/mtab)
    cat > host-link.json <<'JSON'
{ "etc": { "/etc/mtab": "emulated mtab\n" } }
JSON
    vx --host host-link.json --state st-link -- sh -c 'cat /etc/mtab; [ -L /etc/mtab ] || echo plain'
    expect_eq "$RC" 0 "linked /etc file replaced inside the sandbox"
    expect_eq "$(echo "$OUT" | tr "\n" " ")" "emulated mtab plain " "the sandbox sees a plain file"
    expect_eq "$(readlink /etc/mtab)" "$mtab_target" "real /etc/mtab link untouched"
fi
cat > host-up.json <<'JSON'
{ "etc": { "/etc/./x": "y" } }
JSON
vx --host host-up.json -- true
expect_eq "$RC" 125 "an /etc path with a dot component is refused"
expect_has "$ERR" "etc file outside /etc: /etc/./x" "refusal names the path"

# ---- the working directory stays visible when it lies under /tmp
tmpwork=$(mktemp -d /tmp/vxemu-e2e-XXXXXX)
cp "$PROBE" "$tmpwork/"
echo hello > "$tmpwork/seen"
(cd "$tmpwork" && "$VXEMU" run --host "$MIXED_HOST" -- sh -c 'cat seen; ls /tmp; ./vxemu_probe count' > out 2>&1)
expect_eq "$(cat "$tmpwork/out" | tr "\n" " ")" "hello $(basename "$tmpwork") rc=0 status=0 detail=0 resplen=0 count=2 " "working directory under /tmp"
rm -rf "$tmpwork"
(cd /tmp && "$VXEMU" run -- true 2>/dev/null)
expect_eq "$?" 125 "/tmp itself as working directory would expose the real /tmp"

# ---- exit statuses; the scratch state directory goes away
mkdir scratch
TMPDIR=$WORK/scratch "$VXEMU" run -- sh -c 'exit 7'
expect_eq "$?" 7 "command status passes through"
expect_eq "$(ls -A scratch)" "" "scratch state removed"
vx -- sh -c 'kill -9 $$'
expect_eq "$RC" 137 "killed command"
vx -- ./no-such-command
expect_eq "$RC" 127 "command not found"
echo '{ "adapters": [ { "chip": 12 } ] }' > bad.json
vx --host bad.json -- true
expect_eq "$RC" 125 "bad host description"
expect_has "$ERR" "bad.json" "the message names the host file"
vx --bogus -- true
expect_eq "$RC" 2 "bad command line"
expect_eq "$ERR" "vxemu: unknown option --bogus
Try 'vxemu run --help'." "bad command line message"
help=$("$VXEMU" --help)
expect_eq "$?" 0 "help"
expect_has "$help" "vxemu run [--host FILE] [--state DIR] [--log FILE] -- COMMAND [ARGS...]" "help names run"
expect_has "$help" "86   COMMAND ran, but the driver saw at least one malformed request" "help names the violation status"

# ---- served until the last process is gone, even after the command's main process exits
vx -- sh -c '(sleep 0.3; ./vxemu_probe count > late.txt) & exit 0'
expect_eq "$RC" 0 "background run"
expect_has "$(cat late.txt 2>/dev/null)" "count=2" "background process still served"

# ---- vxemu killed by SIGTERM: the command dies with it and nothing stays behind
"$VXEMU" run --state st3 -- sh -c '(sleep 29.123 &); touch started.txt; sleep 30; echo survived > survived.txt' &
vxpid=$!
# The command runs once the host is up; a loaded machine may take a while.
i=0
while [ ! -e started.txt ] && [ $i -lt 200 ]; do sleep 0.05; i=$((i + 1)); done
sleep 0.1
kill -TERM "$vxpid"
wait "$vxpid"
expect_eq "$?" 143 "vxemu ends on SIGTERM"
sleep 0.2
[ -e survived.txt ] && fail "command survived vxemu"
expect_eq "$(ps -eo args | grep -c '^sleep 29.123')" 0 "orphaned background process killed too"
[ -e st3/.run ] && fail "run directory left after SIGTERM"
[ -e st3/adapters/lab160/flash.bin ] || fail "state written after SIGTERM"

# Other tests may run beside this one: look for our own traces only.
expect_eq "$(grep -c -e vxsysfs -e "$WORK" /proc/self/mountinfo)" 0 "no mounts left"
[ -s semkey.txt ] || fail "semaphore key not seen inside"
expect_eq "$(ipcs -s | grep -c "^$(cat semkey.txt) ")" 0 "the sandbox's semaphore is not on the machine"
finish
