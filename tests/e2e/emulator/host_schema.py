#!/usr/bin/python3
# SPDX-License-Identifier: MIT
# The JSON Schema of host descriptions against vxemu's own reader: every
# example host and every fixture host under tests/ passes the schema (and one
# that uses every member, vxemu too); each bad description is refused by both.
# Called as: host_schema.py VXEMU SCHEMA SOURCE_DIR WORKDIR
import glob
import json
import os
import shutil
import subprocess
import sys

try:
    import jsonschema
except ImportError:
    sys.exit("host_schema: python3-jsonschema is missing (scripts/setup.sh installs it)")

vxemu, schema_path, source, work = sys.argv[1:5]
shutil.rmtree(work, ignore_errors=True)
os.makedirs(work)
schema = json.load(open(schema_path))
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)
fails = []


def schema_errors(doc):
    return [e.message for e in validator.iter_errors(doc)]


def vxemu_status(path):
    return subprocess.run([vxemu, "run", "--host", path, "--", "true"], cwd=work, capture_output=True).returncode


hosts = sorted(glob.glob(os.path.join(source, "examples/*/host.json")))
hosts += sorted(glob.glob(os.path.join(source, "tests/**/hosts/*.json"), recursive=True))
if len(hosts) < 8:
    fails.append("only %d host files found" % len(hosts))
for path in hosts:
    errors = schema_errors(json.load(open(path)))
    if errors:
        fails.append("%s: %s" % (os.path.relpath(path, source), errors[0]))

every = os.path.join(source, "tests/e2e/emulator/hosts/every_field.json")
if vxemu_status(every) != 0:
    fails.append("vxemu refuses every_field.json")

# Each bad description breaks one rule the reader enforces.
bad = {
    "unknown member": {"drivers": {}},
    "unknown chip": {"adapters": [{"chip": "FCX999"}]},
    "short WWN": {"adapters": [{"functions": [{"wwpn": "21:00:00"}]}]},
    "region without size": {"adapters": [{"layout": {"regions": [{"code": "0xFF"}]}}]},
    "fault with command and attribute": {"faults": [{"command": 10, "attribute": "optrom"}]},
    "fault with neither": {"faults": [{"kind": "busy"}]},
    "adapter name with a slash": {"adapters": [{"name": "../x"}]},
    "driver version of five parts": {"driver": {"version": "1.2.3.4.5"}},
    "unknown transport": {"driver": {"transport": "pci"}},
    "number text": {"adapters": [{"functions": [{"ssvid": "1DE5"}]}]},
    "PCI address": {"adapters": [{"functions": [{"pci": "05:00.0"}]}]},
    "boot version of three parts": {"adapters": [{"flash": {"bios": "1.2.3"}}]},
    "flash file with versions": {"adapters": [{"flash": {"file": "x.bin", "bios": "1.10"}}]},
    "VPD checksum keyword": {"adapters": [{"functions": [{"vpd": {"RV": "x"}}]}]},
    "path outside /etc": {"etc": {"/var/x": "y"}},
    "negative number": {"instances": {"count": -1}},
    "more than 32 adapters": {"adapters": [{"name": "a%d" % i, "chip": "FCX120",
                                            "functions": [{"pci": "0000:%02x:00.0" % (i + 1)}]} for i in range(33)]},
}
for what, doc in sorted(bad.items()):
    path = os.path.join(work, "bad.json")
    json.dump(doc, open(path, "w"))
    if not schema_errors(doc):
        fails.append("schema accepts: " + what)
    if vxemu_status(path) != 125:
        fails.append("vxemu accepts: " + what)

for f in fails:
    print("FAIL: " + f, file=sys.stderr)
if fails:
    sys.exit(1)
print("ok: %d hosts, %d bad descriptions" % (len(hosts), len(bad)))
