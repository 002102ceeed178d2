#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Regenerates the committed seed corpora (tests/fuzz/seeds/<target>/) from
# `vxemu mkimage` and the lab's example files. Usage: make-seeds.sh VXEMU
set -euo pipefail
vxemu=${1:?usage: make-seeds.sh VXEMU}
here=$(cd "$(dirname "$0")" && pwd)
lab=$here/../../examples/lab
seeds=$here/seeds
rm -rf "$seeds"
for t in option_rom firmware_image version_control subsystem_list preferences vpd_fields multiboot nvram preserve \
         vpd_image layout host_model; do
  mkdir -p "$seeds/$t"
done
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
mk() { "$vxemu" mkimage "$@" >/dev/null; }

# Option ROM chains, kept to a few 512-byte blocks per image.
mk optrom --out "$seeds/option_rom/bios-efi" --image bios:1.12:common:blocks=2 --image efi:2.05:blocks=2
mk optrom --out "$seeds/option_rom/fcode-bad" --image fcode:3.01:blocks=1 --image bios:1.08:no-param:blocks=1 --bad-checksum 1
mk optrom --out "$seeds/option_rom/bios-only" --chip FCX123 --image bios:1.62:no-param:blocks=1

# The targets that take parameters read them from the end of the input
# (libFuzzer's data provider): `seed OUT N:VALUE... -- FILE...` writes the
# files, then the parameters, first-read last, each N bytes little-endian.
seed() {
  local out=$1; shift
  local params=()
  while [ "$1" != -- ]; do params+=("$1"); shift; done
  shift
  python3 - "$out" "${params[@]}" -- "$@" <<'PY'
import sys
out, rest = sys.argv[1], sys.argv[2:]
split = rest.index('--')
params, files = rest[:split], rest[split + 1:]
data = b''.join(open(f, 'rb').read() for f in files)
for p in reversed(params):
    n, v = p.split(':')
    data += int(v, 0).to_bytes(int(n), 'little')
open(out, 'wb').write(data)
PY
}

# Firmware: chip (0 FCX140, 2 FCX160, 3 FCX150), firmware flag, own size?, size.
for spec in "FCX16:2:" "FCX16:3:--tamar" "FCX14:0:--bad-checksum"; do
  IFS=: read -r family chip extra <<<"$spec"
  mk firmware --out "$tmp/fw" --version 8.3.0 --family "$family" --words 32,8 ${extra:+$extra}
  seed "$seeds/firmware_image/$family-$chip" 1:"$chip" 1:1 1:0 4:0 -- "$tmp/fw"
done

# Boot code: chip (2 FCX123, 8 FCX160), model, SSVID, bus flag, region
# (1 BIOS/all), whole multiboot file?
mk optrom --out "$tmp/common" --chip FCX160 --image bios:1.12:common:blocks=2 --image efi:2.05:blocks=2 \
  --image fcode:3.01:blocks=1
mk optrom --out "$tmp/std" --chip FCX123 --image bios:1.62:blocks=2
seed "$seeds/multiboot/common-fcx160" 1:8 1:0 2:0x1DE5 1:0 1:1 1:1 -- "$tmp/common"
seed "$seeds/multiboot/standard-fcx123" 1:2 1:0 2:0x1DE5 1:0 1:1 1:0 -- "$tmp/std"

cp "$lab/flashwright.properties" "$seeds/version_control/lab"
cp "$here/../../examples/lab-legacy/flashwright.properties" "$seeds/version_control/lab-legacy"
cp "$lab/adapters.properties" "$seeds/subsystem_list/lab"
printf 'node.agent.polling.interval=30\nnode.agent.fabric.scanning.enable=1\nnode.agent.quiet.mode.enable=0\n' \
  >"$seeds/preferences/agent"

# VPD blocks. vpd_fields: keyword (0 PN, 2 SN, 13 RV), output size.
mk vpd --out "$tmp/vpd" --id "VX2162 HBA" --pn PN-1 --ec A --sn SN12345 --field V3=1.12 --rw V4=X --size 256
mk vpd --out "$tmp/vpd-bad" --id "VX2141" --sn S1 --bad-checksum --size 128
seed "$seeds/vpd_fields/sn" 1:2 2:32 -- "$tmp/vpd"
seed "$seeds/vpd_fields/rv-bad" 1:13 2:16 -- "$tmp/vpd-bad"

# NVRAM: extended?, variable, value.
mk nvram --out "$tmp/nv-ext" --ssvid 0x1DE5 --ssdid 0x0162 --wwpn 2100001DE5000001
mk nvram --out "$tmp/nv-basic" --format basic --ssvid 0x1DE5 --ssdid 0x1230
seed "$seeds/nvram/extended" 1:1 1:127 4:0x1E0F -- "$tmp/nv-ext"
seed "$seeds/nvram/basic" 1:0 1:5 4:1 -- "$tmp/nv-basic"

# Two buffers, the first one's length read first: current flash and new
# chain (block size 512); VPD and new chain (serial number room).
mk optrom --out "$tmp/cur" --image bios:1.08:blocks=2 --ssvid 0x1E0F --param-seed 7
mk optrom --out "$tmp/new" --image bios:1.12:blocks=2 --image efi:2.05:blocks=2
seed "$seeds/preserve/bios-into-bios-efi" 1:1 2:"$(stat -c %s "$tmp/cur")" -- "$tmp/cur" "$tmp/new"
seed "$seeds/vpd_image/vpd-and-chain" 1:16 2:"$(stat -c %s "$tmp/vpd")" -- "$tmp/vpd" "$tmp/new"

# A layout reply (flash size, count, then region, size, begin, end per
# entry) after a 16-byte write; device, subsystem IDs, region, sector size,
# offset and write length.
python3 - "$tmp/reply" <<'PY'
import struct, sys
rows = [(0x01, 0x40000, 0x80000, 0xBFFFF), (0x07, 0x20000, 0, 0x1FFFF), (0x14, 0x400, 0xFF000, 0xFF3FF)]
body = bytes(range(16)) + struct.pack('<II', 0x100000, len(rows)) + b''.join(struct.pack('<IIII', *r) for r in rows)
open(sys.argv[1], 'wb').write(body)
PY
seed "$seeds/layout/reply" 2:0x2532 2:0x1DE5 2:0x0162 4:0x07 3:0x1000 3:0x80100 2:16 -- "$tmp/reply"
cp "$lab/host.json" "$seeds/host_model/lab"
cp "$here/../../examples/lab-legacy/host.json" "$seeds/host_model/lab-legacy"
du -sh "$seeds"
