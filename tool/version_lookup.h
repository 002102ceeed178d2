// SPDX-License-Identifier: MIT
// The two version records of one adapter port: its row in the version
// control file and the record of what it carries now.
#pragma once

#include "core.h"
#include "version_control.h"

// Copies the first row whose ID texts equal the port's "0x%04x" subsystem
// device and vendor IDs (ignoring case) into `entry`; a port without a row
// leaves `entry` as it was. nullptr for no device.
VersionCtrEntry *GetVersionFromFlashCtrFile(const HMXDevice *device, VersionCtrEntry *entry);
// Fills `entry` with the port's IDs, model and current versions; nullptr for
// no device.
VersionCtrEntry *BuildFlashCtrListFromHBA(const HMXDevice *device, VersionCtrEntry *entry);
