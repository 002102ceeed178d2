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
         vpd_image layout host_model release_file sysfs_attrs driver_replies netlink_replies shared_state emu_state \
         mkimage_args driver_requests attr_sessions emu_netlink journal_record; do
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

# Release files: the file's pick (0 SuSE, 1 Red Hat, 2 both), then its text.
printf '\000openSUSE 15.5 (x86_64)\nVERSION = 15.5\n' >"$seeds/release_file/suse"
printf '\001Red Hat Enterprise Linux Server release 7.9 (Maipo)\n' >"$seeds/release_file/redhat"

# mkimage: one argument per line, both option forms.
printf 'optrom\n--out\nrom\n--image\nbios:1.12:common:blocks=2\n--image=efi:2.05:blocks=1\n--bad-checksum\n1' \
  >"$seeds/mkimage_args/optrom"
printf 'firmware\n--out=fw\n--version\n8.3.0\n--family\nFCX16\n--words\n32,8\n--tamar' >"$seeds/mkimage_args/firmware"
printf 'multiboot\n--out\nmb\n--chip\nFCX160\n--bios\n1.12\n--efi\n2.05\n--firmware\n8.3.0\n--size\n4096' \
  >"$seeds/mkimage_args/multiboot"
printf 'nvram\n--out\nnv\n--format\nbasic\n--ssvid\n0x1DE5\n--var\n5=1' >"$seeds/mkimage_args/nvram"
printf 'vpd\n--out\nvpd\n--id\nVX2162 HBA\n--sn\nSN1\n--field\nV3=1.12\n--rw\nV4=X\n--size\n256' \
  >"$seeds/mkimage_args/vpd"

# Update journal records, written here on their own from the record's
# documented layout: a boot code piece with a VPD block, and one without VPD.
mk vpd --out "$tmp/vpd-j" --id "VX2162 HBA" --sn VXA4200160 --size 128
python3 - "$seeds/journal_record" "$tmp/vpd-j" <<'PY'
import struct, sys, zlib
out, vpd = sys.argv[1], open(sys.argv[2], 'rb').read()
def record(wwpn, serial, image, flash, vpd):
    body = bytes.fromhex(wwpn) + serial.ljust(32, b'\0') + image.ljust(256, b'\0')
    body += struct.pack('<II', len(flash), len(vpd)) + flash + vpd
    return b'FWJRNL01' + struct.pack('<II', 16 + len(body), zlib.crc32(body)) + body
flash = b'\x55\xaa' + bytes(30) + b'\xe5\x1d' + bytes(30) + b'MEFCX ' + bytes(range(250))
open(out + '/with-vpd', 'wb').write(record('2100001de5160000', b'VXA4200160', b'dual160.bin', flash, vpd))
open(out + '/flash-only', 'wb').write(record('2100001de5120100', b'', b'/var/tmp/old120.bin', flash[:64], b''))
PY

# The targets that ask their input for one value after another
# (FuzzedDataProvider) get inputs built call by call with fdp.py.
mk nvram --out "$tmp/nv512" --ssvid 0x1DE5 --ssdid 0x0141 --wwpn 2100001DE5000001
mk vpd --out "$tmp/vpd512" --id "VX2141 HBA" --pn PN-2 --sn SN77 --size 512
PYTHONPATH=$here python3 - "$seeds" "$tmp" <<'PY'
import sys
from fdp import Input
seeds, tmp = sys.argv[1], sys.argv[2]
nv512 = open(tmp + '/nv512', 'rb').read()
vpd512 = open(tmp + '/vpd512', 'rb').read()

def write(target, name, inp):
    open(f'{seeds}/{target}/{name}', 'wb').write(inp.build())

# sysfs: bus id, host directories, then the texts of the device, SCSI host
# and FC host attributes; config space, NVRAM and VPD blocks, buffer sizes.
for name, device in (('fcx141', '0x1410'), ('fcx120', '0x1200')):
    i = Input()
    for text in ('0000:03:00.0', 'host5', 'host12',
                 '0x1de5', device, '0x1de5', '0x0141', '17',
                 'VX2141', 'SN77', '8.07.03-k', '5.03.02', '1.12', '3.01', '2.05', '5.3.2', '128',
                 '0x20000024ff000001', '0x21000024ff000001', '0x010200', 'Link Up - F_Port', '8 Gbit', '2', '1'):
        i.string(text + '\n')
    i.int(0, 80, 64).bytes(bytes(0x10) + b'\x01\xe0\x00\x00' + b'\x00\x00\x10\xfe' + bytes(40))
    i.int(0, 600, len(nv512)).bytes(nv512).int(0, 700, 512).int(0, 700, 512).bytes(vpd512)
    write('sysfs_attrs', name, i)

# The state file: one adapter of this process, a full-size file whose list
# holds it beside a stale one, two instances claimed, and a ring with
# indexes past its end; then five events and room for three.
entry = lambda path, host: path.ljust(240, b'\0') + bytes(14) + b'\x01' + host.to_bytes(2, 'little') + b'\x02'
listing = entry(b'/dev/vxa2xxx', 0) + entry(b'/dev/vxa2xxx-gone', 7)
flags = (5).to_bytes(4, 'little') + (1).to_bytes(4, 'little')
ring = b''.join((k + 1).to_bytes(4, 'little') + bytes(12) for k in range(64)) + bytes([70, 200]) + bytes(6)
i = Input().int(0, 6, 1).bool(True).int(0, 3, 0).int(0, 7, 2).int(0, 8256, len(listing)).bytes(listing)
i.int(0, 9312 - 8256, len(flags)).bytes(flags)
i.int(0, 4, 1).int(0, 7, 1).int(0, 31, 0).int(0, 1032, len(ring)).bytes(ring)
i.int(-1, 32, 0).int(0, 70, 5)
for code in (0x8001, 0x8002, 0x8012, 0, 0x8011):
    i.u(code, 4)
i.int(0, 70, 3)
write('shared_state', 'two-instances', i)
i = Input().int(0, 6, 2).bool(True).int(0, 3, 0).bool(False).int(0, 3, 1).int(0, 7, 1).bool(True).bytes(bytes(7998))
write('shared_state', 'older-file', i)

# vxemu state: the 1 MiB adapter with a piece of its flash replaced, both
# functions' blocks of the right size; then the 2 MiB one from a short file.
i = Input().int(0, 2, 1).int(0, 3, 1).int(0, 8, 1).int(0, 0xFFFFF, 0x100).int(0, 512, 4).bytes(b'\x55\xaa\x01\x02')
for _ in range(2):
    i.int(0, 3, 1).bytes(nv512).int(0, 3, 1).bytes(vpd512)
write('emu_state', 'fcx141-patched', i)
write('emu_state', 'fcx160-short', Input().int(0, 2, 2).int(0, 3, 2).int(0, 4096, 16).bytes(bytes(16)).int(0, 3, 0).int(0, 3, 0))
PY
du -sh "$seeds"
