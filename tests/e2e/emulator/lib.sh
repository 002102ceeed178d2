# SPDX-License-Identifier: MIT
# Helpers shared by the emulator's end-to-end scripts. Each script is called
# as: script VXEMU PROBE WORKDIR [SYSFS_PROBE]. WORKDIR is recreated empty and becomes the
# working directory, so everything the sandboxed command needs lies inside it.
set -u
# The scripts exercise both transports side by side on one host of their own.
MIXED_HOST=$(cd "$(dirname "$0")" && pwd)/hosts/mixed.json
VXEMU=$1
PROBE_SRC=$2
WORK=$3
rm -rf "$WORK"
mkdir -p "$WORK"
cd "$WORK" || exit 1
cp "$PROBE_SRC" ./vxemu_probe
[ -n "${4:-}" ] && cp "$4" ./vxemu_sysfs_probe
PROBE=./vxemu_probe
FAILS=0

fail() {
    echo "FAIL: $*" >&2
    FAILS=$((FAILS + 1))
}
expect_eq() {  # actual expected what
    [ "$1" = "$2" ] || fail "$3: expected [$2], got [$1]"
}
expect_has() {  # text needle what
    case "$1" in *"$2"*) ;; *) fail "$3: [$1] does not contain [$2]" ;; esac
}
expect_lacks() {
    case "$1" in *"$2"*) fail "$3: [$1] contains [$2]" ;; *) ;; esac
}
# Runs vxemu (on the mixed host unless --host is given); stdout in $OUT, stderr in $ERR, exit status in $RC.
vx() {
    case " $* " in
    *" --host "*) OUT=$("$VXEMU" run "$@" 2>"$WORK/.err") ;;
    *) OUT=$("$VXEMU" run --host "$MIXED_HOST" "$@" 2>"$WORK/.err") ;;
    esac
    RC=$?
    ERR=$(cat "$WORK/.err")
}
# The lines of a traffic log that match a pattern.
log_lines() { grep -c -- "$2" "$1" || true; }
finish() {
    if [ "$FAILS" -ne 0 ]; then
        echo "$FAILS check(s) failed" >&2
        exit 1
    fi
    echo "ok"
    exit 0
}
