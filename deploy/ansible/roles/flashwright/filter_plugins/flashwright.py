# SPDX-License-Identifier: MIT
"""Filters of the flashwright role: what the version control file names, what
"flashwright /i" reports per port, and what an update would change.

They read the tool's own texts, so a rollout needs nothing on the target but
flashwright itself."""

import re

SEPARATOR = "-" * 70

# Label of an "/i" line -> key of the port record.
INFO_KEYS = {
    "HBA Model": "model",
    "HBA Port": "port",
    "Node Name": "node_wwn",
    "Port Name": "port_wwn",
    "Port ID": "port_id",
    "Serial Number": "serial",
    "HBA Instance": "instance",
    "HBA ID": "hba_id",
    "Driver Version": "driver_version",
    "Actual Connection Mode": "connection_mode",
    "Actual Data Rate": "data_rate",
    "PortType (Topology)": "topology",
    "Subsystem Vendor ID": "ssvid",
    "Subsystem Device ID": "ssdid",
    "HBA Chip ID": "chip_id",
    "HBA Status": "status",
}
# Version lines, kept under "versions".
VERSION_KEYS = {
    "BIOS Version": "bios",
    "FCode Version": "fcode",
    "EFI Version": "efi",
    "Firmware Version": "firmware",
    "Flash BIOS Version": "flash_bios",
    "Flash FCode Version": "flash_fcode",
    "Flash EFI Version": "flash_efi",
    "Flash Firmware Version": "flash_firmware",
}
INT_KEYS = ("port", "instance", "chip_id")

MODES = {"standard": 0, "force": 1, "rewrite": 2, "downgrade": 3}
SWITCHES = {"standard": "", "force": "/f", "rewrite": "/e", "downgrade": "/g"}


def flashwright_ports(text):
    """The port blocks of "flashwright /i" output, in listing order."""
    ports = []
    port = None
    for raw in (text or "").splitlines():
        line = raw.rstrip("\r")
        if line == SEPARATOR:
            port = {"versions": {}}
            ports.append(port)
            continue
        if port is None or ":" not in line:
            continue
        label, value = line.split(":", 1)
        label, value = label.strip(), value.strip()
        if label in VERSION_KEYS:
            port["versions"][VERSION_KEYS[label]] = value
        elif label in INFO_KEYS:
            key = INFO_KEYS[label]
            port[key] = int(value) if key in INT_KEYS and value.lstrip("-").isdigit() else value
    return ports


def _tokens(line):
    return [t for t in re.split(r"[\n\t,]+", line) if t]


def _rows(vc_text):
    """Rows of the version control file as the tool reads them: comments and
    blank lines skipped, fields cut at runs of tabs and commas."""
    rows = []
    for raw in (vc_text or "").splitlines():
        line = raw.lstrip()
        if not line or line[0] in ";#":
            continue
        tokens = _tokens(line)
        if tokens:
            rows.append(tokens)
    return rows


def flashwright_images(vc_text):
    """Image file names the version control file refers to, each once."""
    names = []
    for tokens in _rows(vc_text):
        if len(tokens) >= 8:
            name = tokens[7].strip()
            if name and name not in names:
                names.append(name)
    return names


def _version_bytes(text, width):
    """A dotted version as the tool stores it: digits and points kept, each
    component a decimal number cut to 8 bits; missing components are 0."""
    clean = re.sub(r"[^0-9.]", "", text or "")
    parts = [p for p in clean.split(".")][:width]
    out = []
    for p in parts:
        out.append(int(p) & 0xFF if p.isdigit() else 0)
    return (out + [0] * width)[:width]


def _row_versions(tokens):
    get = lambda i: tokens[i] if len(tokens) > i else ""
    return {
        "bios": _version_bytes(get(3), 2),
        "efi": _version_bytes(get(4), 2),
        "fcode": _version_bytes(get(5), 2),
        "firmware": _version_bytes(get(6), 3),
    }


def _kinds(chip_id):
    """(4 Gb kind, combined 4/8 Gb kind) of a chip type number."""
    if chip_id in (140, 141):
        return 1, 1
    if chip_id in (144, 145):
        return 2, 2
    if chip_id == 160:
        return 0, 4
    if chip_id == 150:
        return 0, 3
    return 0, 0


def _flash(port, key):
    value = port["versions"].get(key, "")
    return "" if value == "N/A" else value


def _current_versions(port, kind48):
    v = port["versions"]
    boot = v.get("bios") or v.get("fcode") or ""
    if kind48 < 1:
        return {
            "bios": _version_bytes(boot, 2),
            "efi": [0, 0],
            "fcode": [0, 0],
            "firmware": _version_bytes(v.get("firmware", ""), 3),
        }
    return {
        "bios": _version_bytes(boot, 2),
        "efi": _version_bytes(_flash(port, "flash_efi"), 2),
        "fcode": _version_bytes(_flash(port, "flash_fcode"), 2),
        "firmware": _version_bytes(_flash(port, "flash_firmware"), 3),
    }


def _decide(mode, kind4, kind48, a, r):
    """The tool's update decision for one port (1 update, 0 leave)."""
    order = ("bios", "efi", "fcode", "firmware")
    if mode == 1:
        return True
    if mode == 0:
        if kind4 < 1:
            return a["bios"] < r["bios"]
        for c in order[:3]:
            if a[c] < r[c]:
                return True
        fa, fr = a["firmware"], r["firmware"]
        if fa[0] == fr[0]:
            return fa[1:] < fr[1:]
        # Majors that differ are not compared: only the minor decides.
        return fa[1] < fr[1]
    if mode == 2:
        comps = order if kind48 >= 1 else order[:1]
        return any(a[c] <= r[c] for c in comps)
    if mode == 3:
        comps = order if kind48 >= 1 else order[:1]
        return any(a[c] != r[c] for c in comps)
    return False


def flashwright_plan(ports, vc_text, mode="standard"):
    """What an update in `mode` would do to each port: the row it matches (if
    any) and whether the versions call for a write."""
    if mode not in MODES:
        raise ValueError("unknown flashwright mode %r" % mode)
    rows = _rows(vc_text)
    plan = []
    for port in ports:
        entry = {
            "port_wwn": port.get("port_wwn", ""),
            "model": port.get("model", ""),
            "serial": port.get("serial", ""),
            "row": False,
            "update": False,
        }
        ssdid, ssvid = port.get("ssdid", "").lower(), port.get("ssvid", "").lower()
        row = next((t for t in rows if len(t) >= 2 and t[0].lower() == ssdid and t[1].lower() == ssvid), None)
        if row is not None:
            kind4, kind48 = _kinds(port.get("chip_id", 0))
            current = _current_versions(port, kind48)
            target = _row_versions(row)
            entry.update(
                row=True,
                image=row[7].strip() if len(row) >= 8 else "",
                update=_decide(MODES[mode], kind4, kind48, current, target),
            )
        plan.append(entry)
    return plan


def flashwright_switch(mode):
    if mode not in SWITCHES:
        raise ValueError("unknown flashwright mode %r" % mode)
    return SWITCHES[mode]


def flashwright_outcome(rc, stdout, stderr):
    """Ansible's view of one update run: 0 changed, 1 ok, anything else failed,
    with the tool's own words."""
    out = [l.rstrip("\r") for l in (stdout or "").splitlines() if l.strip()]
    err = [l.rstrip("\r") for l in (stderr or "").splitlines() if l.strip()]
    status = {0: "changed", 1: "ok"}.get(rc, "failed")
    if status == "failed":
        message = "; ".join(err + out[-1:]) or "flashwright exited with status %d" % rc
    else:
        message = out[-1] if out else ""
    return {"status": status, "rc": rc, "message": message}


class FilterModule(object):
    def filters(self):
        return {
            "flashwright_ports": flashwright_ports,
            "flashwright_images": flashwright_images,
            "flashwright_plan": flashwright_plan,
            "flashwright_switch": flashwright_switch,
            "flashwright_outcome": flashwright_outcome,
        }
