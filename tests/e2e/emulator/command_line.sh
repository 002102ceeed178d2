#!/bin/sh
# SPDX-License-Identifier: MIT
# vxemu's command line: options in both forms, help for each command, the
# version, the chip list, the message for a user who is not root, a log kept
# per run and the host description saved with the state.
. "$(dirname "$0")/lib.sh"

# ---- help, version, chips
out=$("$VXEMU" --version); expect_eq "$?" 0 "version"
expect_eq "$(echo "$out" | sed 's/[0-9][0-9]*\.[0-9][0-9]*\.[0-9][0-9]*$/X.Y.Z/')" "vxemu X.Y.Z" "version line"
out=$("$VXEMU" run --help); expect_eq "$?" 0 "run --help"
expect_eq "$(echo "$out" | head -1)" "Usage: vxemu run [--host FILE] [--state DIR] [--log FILE] [--] COMMAND [ARGS...]" "run usage"
expect_has "$out" "  -H, --host FILE   host description" "run options"
out=$("$VXEMU" chips --help); expect_eq "$?" 0 "chips --help"
expect_eq "$(echo "$out" | head -1)" "Usage: vxemu chips" "chips usage"
"$VXEMU" mkimage --help > /dev/null; expect_eq "$?" 0 "mkimage --help"
out=$("$VXEMU" chips); expect_eq "$?" 0 "chips"
expect_eq "$(echo "$out" | head -1)" "CHIP     DEVICE    FAMILY  FLASH     NVRAM         FIRMWARE" "chips header"
expect_eq "$(echo "$out" | grep '^FCX141 ')" "FCX141   0x1410    FCX14   1024 KiB  extended/512  yes" "an FCX14x-class chip"
expect_eq "$(echo "$out" | grep '^FCX120 ')" "FCX120   0x1200    FCX12    128 KiB  basic/256     no" "an older chip"

# ---- both option forms, short forms, bad command lines
cat > h.json <<'JSON'
{ "ostype": "VxFormTest" }
JSON
for form in "--host h.json" "--host=h.json" "-H h.json" "-Hh.json"; do
    # shellcheck disable=SC2086
    vx $form --state=st-forms -- cat /proc/sys/kernel/ostype
    expect_eq "$RC:$OUT" "0:VxFormTest" "host given as $form"
done
vx --bogus -- true
expect_eq "$RC" 2 "unknown option"
expect_eq "$ERR" "vxemu: unknown option --bogus
Try 'vxemu run --help'." "unknown option message"
vx --host
expect_eq "$RC:$ERR" "2:vxemu: option --host needs a value
Try 'vxemu run --help'." "missing value"
"$VXEMU" chips extra 2> err.txt
expect_eq "$?:$(cat err.txt)" "2:vxemu: unexpected argument 'extra'
Try 'vxemu chips --help'." "chips takes no argument"

# ---- not root
setpriv --reuid=65534 --regid=65534 --clear-groups "$VXEMU" run -- true 2> err.txt
expect_eq "$?" 125 "not root"
expect_eq "$(cat err.txt)" "vxemu: run needs root: it builds namespaces and mounts (run it as root, for example with sudo)" "not root message"

# ---- one log per run; the description is saved with the state
vx --host h.json --state st -- ./vxemu_probe count
vx --host h.json --state st -- true
vx --host h.json --state st -- ./vxemu_probe count
expect_eq "$(ls st | grep traffic | tr "\n" " ")" "traffic.1.jsonl traffic.2.jsonl traffic.jsonl " "logs kept"
expect_has "$(cat st/traffic.1.jsonl)" '"kind":"ioctl"' "first run's log"
expect_eq "$(wc -c < st/traffic.2.jsonl)" 0 "second run's log"
expect_has "$(cat st/traffic.jsonl)" '"kind":"ioctl"' "last run's log"
cmp -s st/host.json h.json || fail "host description saved"
vx --state st -- true
expect_eq "$(head -c 1 st/host.json)" "{" "the built-in host is saved too"
expect_has "$(cat st/host.json)" '"lab160"' "the built-in host's text"
finish
