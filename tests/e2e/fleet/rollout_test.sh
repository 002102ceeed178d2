#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Rolls flashwright out with the Ansible role over eight emulated hosts (one
# vxemu state each): a first rollout changes every host and a second finds
# nothing to do; a check run writes nothing; a bad image on the canary stops
# the rollout before the next batch and leaves every other host untouched.
set -euo pipefail
vxemu=$1 flashwright=$2 lab=$3 ansible_dir=$4 work=$5
hosts=(h1 h2 h3 h4 h5 h6 h7 h8)
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
expect_eq() { [ "$1" = "$2" ] || fail "$3: expected [$2], got [$1]"; }

rm -rf "$work"
mkdir -p "$work"
cp -r "$lab" "$work/files"
cp -r "$lab" "$work/bad-files"
# The canary's image: the first image loses its 0x55 0xAA signature.
bad_image=$(awk -F, '!/^[#;]/ && NF >= 8 { print $8; exit }' "$work/files/flashwright.properties" | tr -d ' \r')
printf '\0\0' | dd of="$work/bad-files/$bad_image" bs=1 seek=0 count=2 conv=notrunc status=none

# inventory ROUND [CANARY_SOURCE]: every host runs the tool inside its own
# emulated host; state and staging directories are per round.
inventory() {
  local round=$1 canary_source=${2:-$work/files}
  echo "[fleet]"
  for h in "${hosts[@]}"; do
    local src=$work/files
    [ "$h" = h1 ] && src=$canary_source
    echo "$h flashwright_source_dir=$src flashwright_stage_dir=$work/$round/$h/stage" \
         "flashwright_command='$vxemu run --state $work/$round/$h/state -- $flashwright'"
  done
  echo "[fleet:vars]"
  echo "ansible_connection=local"
  echo "ansible_python_interpreter=/usr/bin/python3"
  echo "flashwright_report_dir=$work/$round/report"
}

# play ROUND [ANSIBLE_ARGS...]: runs the example playbook; the status is kept in $rc.
play() {
  local round=$1
  shift
  set +e
  ANSIBLE_CONFIG=$ansible_dir/ansible.cfg ANSIBLE_FORKS=8 ANSIBLE_NOCOLOR=1 \
    ansible-playbook -i "$work/$round.ini" "$ansible_dir/site.yml" "$@" >"$work/$round.log" 2>&1
  rc=$?
  set -e
}

# boot ROUND: starts every host once so that its adapters' files exist, and
# records their checksums (the canary's apart when the round is "bad": its
# other adapters may well be updated before the bad image is refused).
boot() {
  local round=$1
  for h in "${hosts[@]}"; do
    mkdir -p "$work/$round/$h"
    (cd "$work/$round/$h" && "$vxemu" run --state "$work/$round/$h/state" -- true)
  done
  local skip=none
  [ "$round" = bad ] && skip=h1
  (cd "$work/$round" && find . -path '*/state/adapters/*' -not -path "./$skip/*" -type f -print0 | sort -z |
    xargs -0 sha256sum) >"$work/$round.sums"
}
unchanged() { (cd "$work/$1" && sha256sum --quiet -c "$work/$1.sums") || fail "$1: adapter files changed"; }

summary_line() { grep -m1 "^$2: " "$work/$1/report/summary.txt" | sed "s/^$2: //"; }
host_status() { python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["result"]["status"])' "$work/$1/report/hosts/$2.json"; }

# ---- a first rollout changes every host; a second finds nothing to do ------
inventory first >"$work/first.ini"
play first
expect_eq "$rc" 0 "first rollout status"
expect_eq "$(summary_line first changed)" 8 "first rollout: hosts changed"
expect_eq "$(summary_line first failed)" 0 "first rollout: hosts failed"
for h in "${hosts[@]}"; do
  expect_eq "$(host_status first "$h")" changed "first rollout: $h"
  [ "$(stat -c %a "$work/first/$h/stage")" = 700 ] || fail "$h: staging directory is not root-only"
done
# The facts list every port before and after, with the versions each reports.
python3 - "$work/first/report/hosts/h1.json" <<'PY' || fail "facts before and after"
import json, sys
r = json.load(open(sys.argv[1]))
before, after = r["before"], r["after"]
assert before and len(before) == len(after), (len(before), len(after))
for port in before + after:
    for key in ("model", "serial", "port_wwn", "versions"):
        assert port.get(key), (key, port)
assert [p["port_wwn"] for p in before] == [p["port_wwn"] for p in after]
assert [p["versions"] for p in before] != [p["versions"] for p in after], "no version moved"
PY

inventory first >"$work/second.ini"
sed -i "s|flashwright_report_dir=.*|flashwright_report_dir=$work/second-report|" "$work/second.ini"
play second
expect_eq "$rc" 0 "second rollout status"
grep -E '^h[0-9] +:' "$work/second.log" | grep -v 'changed=0 ' && fail "second rollout changed a host"
expect_eq "$(grep -m1 '^ok: ' "$work/second-report/summary.txt")" "ok: 8" "second rollout: hosts ok"

# ---- a check run reports what would change and writes nothing ---------------
boot check
inventory check >"$work/check.ini"
play check --check
expect_eq "$rc" 0 "check run status"
expect_eq "$(summary_line check changed)" 8 "check run: hosts that would change"
unchanged check
for h in "${hosts[@]}"; do [ -e "$work/check/$h/stage" ] && fail "check run staged files on $h"; done

# ---- a bad image fails the canary and stops the rollout ----------------------
boot bad
inventory bad "$work/bad-files" >"$work/bad.ini"
play bad
[ "$rc" -ne 0 ] || fail "a failed canary must fail the rollout"
expect_eq "$(host_status bad h1)" failed "bad rollout: the canary"
expect_eq "$(summary_line bad 'not run')" 7 "bad rollout: hosts not run"
grep -q "^h1: failed (status [0-9]*) - .*$bad_image.*; Warning: Unable to update all HBAs" "$work/bad/report/summary.txt" ||
  fail "the summary carries the tool's own message: $(cat "$work/bad/report/summary.txt")"
unchanged bad

if [ "$failures" -ne 0 ]; then
  echo "$failures failure(s); logs in $work" >&2
  exit 1
fi
echo "fleet rollout: all checks passed"
