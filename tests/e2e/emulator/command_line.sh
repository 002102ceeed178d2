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

# ---- every command takes "--opt value" and "--opt=value" alike
"$VXEMU" mkimage firmware --out fw1.bin --version 5.2.0; expect_eq "$?" 0 "mkimage --out FILE"
"$VXEMU" mkimage firmware --out=fw2.bin --version=5.2.0; expect_eq "$?" 0 "mkimage --out=FILE"
"$VXEMU" mkimage firmware --version=5.2.0 --out fw3.bin --tamar; expect_eq "$?" 0 "mkimage options in any order"
cmp -s fw1.bin fw2.bin || fail "mkimage: both forms write the same file"
"$VXEMU" mkimage vpd --field V0=a --out v.bin --field=V1=b; expect_eq "$?" 0 "mkimage repeated option, both forms"
"$VXEMU" mkimage firmware --out=x.bin --version 1.0.0 --tamar=yes 2> err.txt
expect_eq "$?:$(cat err.txt)" "2:vxemu mkimage: option --tamar takes no value
Try 'vxemu mkimage --help'." "mkimage: a flag with a value"
"$VXEMU" mkimage nvram --out x.bin --wwpn 2> err.txt
expect_eq "$?:$(cat err.txt)" "2:vxemu mkimage: option --wwpn needs a value
Try 'vxemu mkimage --help'." "mkimage: missing value"
"$VXEMU" mkimage nvram --out x.bin stray 2> err.txt
expect_eq "$?:$(cat err.txt)" "2:vxemu mkimage: unexpected argument 'stray'
Try 'vxemu mkimage --help'." "mkimage: stray argument"
"$VXEMU" mkimage nvram --out x.bin --version 1 2> err.txt
expect_eq "$?:$(cat err.txt)" "2:vxemu mkimage: unknown option --version
Try 'vxemu mkimage --help'." "mkimage: an option of another kind"
out=$("$VXEMU" mkimage vpd --help); expect_eq "$?:$(echo "$out" | head -1)" "0:Usage: vxemu mkimage KIND --out FILE [OPTIONS]" "mkimage KIND --help"
for form in "--state=st-none" "--state st-none" "-s st-none"; do
    # shellcheck disable=SC2086
    "$VXEMU" event $form ad 0 0x8011 2> err.txt
    expect_eq "$?" 1 "event $form reaches the state"
    expect_has "$(cat err.txt)" "vxemu: event: " "event $form: no run there"
done
"$VXEMU" event --state st-none --bogus ad 0 2> err.txt
expect_eq "$?:$(cat err.txt)" "2:vxemu: unknown option --bogus
Try 'vxemu event --help'." "event: unknown option"
out=$("$VXEMU" capture --help); expect_eq "$?:$(echo "$out" | head -1)" "0:Usage: vxemu capture --out DIR" "capture --help"
"$VXEMU" capture 2> err.txt
expect_eq "$?:$(cat err.txt)" "2:vxemu-capture: --out DIR is needed
Try 'vxemu capture --help'." "capture needs --out"
"$VXEMU" capture --out= 2> err.txt
expect_eq "$?" 2 "capture --out= (empty)"
"$VXEMU" capture --out d extra 2> err.txt
expect_eq "$?:$(cat err.txt)" "2:vxemu-capture: unexpected argument 'extra'
Try 'vxemu capture --help'." "capture: stray argument"
"$VXEMU" capture --outdir=d 2> err.txt
expect_eq "$?:$(cat err.txt)" "2:vxemu-capture: unknown option --outdir
Try 'vxemu capture --help'." "capture: unknown option"
out=$("$VXEMU" --help)
for c in run show diff capture chips mkimage event; do
    expect_has "$out" "  vxemu $c " "vxemu --help lists $c"
done

# ---- not root
setpriv --reuid=65534 --regid=65534 --clear-groups "$VXEMU" run -- true 2> err.txt
expect_eq "$?" 125 "not root"
expect_eq "$(cat err.txt)" "vxemu: run needs root: it builds namespaces and mounts (run it as root, for example with sudo)" "not root message"
setpriv --reuid=65534 --regid=65534 --clear-groups "$VXEMU" capture --out "$WORK/nobody" 2> err.txt
expect_eq "$?:$(cat err.txt)" "1:vxemu-capture: needs root: the adapter management library opens the driver as root only" "capture: not root"

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
