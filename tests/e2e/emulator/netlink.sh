#!/bin/sh
# SPDX-License-Identifier: MIT
# The driver's netlink protocol on sysfs adapters: the socket is answered by
# vxemu (bind and getsockname included), requests are checked, replies carry
# the driver's result.
. "$(dirname "$0")/lib.sh"

vx --state st -- sh -c './vxemu_probe nl 5 7 0; ./vxemu_probe nl 5 4; ./vxemu_probe nl18'
expect_eq "$RC" 0 "clean netlink run"
expect_eq "$(echo "$OUT" | sed -n 1p)" "len=2088 error=0 speed=4" "port parameters: 8 Gbit is speed code 4"
expect_has "$(echo "$OUT" | sed -n 2p)" "error=0" "event fetch"
expect_eq "$(echo "$OUT" | sed -n 3p)" "bind=0 join=0 recv=-1 errno=11" "transport socket: bound, joined, nothing queued"
expect_eq "$(log_lines st/traffic.jsonl '"kind":"netlink"')" 5 "three sockets and two requests logged"

# The driver answers before sendmsg returns: a receive that does not wait finds the reply.
vx --state st3 -- sh -c 'for i in 1 2 3 4 5; do ./vxemu_probe nl 5 7 0 nowait; done'
expect_eq "$RC" 0 "non-blocking receive"
expect_eq "$(echo "$OUT" | sort -u)" "len=2088 error=0 speed=4" "every reply was queued in time"

vx --state st2 -- sh -c './vxemu_probe nl 5 7 0 badlen; ./vxemu_probe nl 77 7 0'
expect_eq "$RC" 86 "malformed netlink requests are violations"
expect_eq "$(echo "$OUT" | tr "\n" " ")" "len=2088 error=6 speed=0 len=2088 error=6 speed=0 " "answered with invalid parameter"
expect_has "$(cat st2/traffic.jsonl)" "nlmsg_len 2000 does not match the message" "length checked"
expect_has "$(cat st2/traffic.jsonl)" "netlink request for unknown host 77" "host checked"
finish
