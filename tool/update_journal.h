// SPDX-License-Identifier: MIT
// The update journal: an update that is cut short (power lost, process
// killed) must never cost the adapter its own data, and the next run must
// finish it.
//
// Before its first write to an adapter, the tool saves in
// /var/lib/flashwright/wwpn-<port WWN> (see journal_record.h and
// journal_store.h) the flash as it is then (boot code with the parameter
// block and "SSVID" bytes, and on older chips the VPD image) and the VPD
// block, with the image file it is about to write. The record goes once the
// update has succeeded.
//
// When a record is found at the start of a write, the update before was cut
// short and the flash may be half written. The saved flash and VPD are put
// back first (plain writes, no preserving steps), and the update then runs
// exactly as the first time, so the library carries the adapter's data from
// the restored bytes, never from the torn ones. Such an adapter is written
// whatever the mode's version comparison says: after a cut between the boot
// code and the firmware, the versions read back can look up to date.
#pragma once

#include "core.h"

inline constexpr const char kJournalDirectory[] = "/var/lib/flashwright";

// Whether an update of this adapter port was left unfinished.
bool JournalHasUnfinished(const HMXDevice *device);
// Before the first write to the adapter: saves its data, or puts the saved
// data back. 0, or -1 after printing why (then nothing may be written).
int JournalBeginWrite(const HMXDevice *device, const char *imageFile);
// After a successful update of the adapter: the record goes.
void JournalFinish(const HMXDevice *device);
