// SPDX-License-Identifier: MIT
// The update decision: compares what an adapter carries with its row of the
// version control file, component by component, under the chosen mode.
#pragma once

#include "version_control.h"

// The two chip kinds that decide how many components count: the 4 Gb kind
// (CoreGetFCX4GbType) and the 4/8 Gb kind (Get4GbAnd8GbFCXType).
struct UpdateChipKinds {
    int fcx4GbType;
    int fcx4And8GbType;
};

// 1 to write the adapter, 0 to leave it. Mode 0 looks at the 4 Gb kind and
// modes 2 and 3 at the 4/8 Gb kind, so under mode 0 an 8 Gb adapter is judged
// on its BIOS alone. An unknown mode reports an error and answers 0.
int DecideFlashUpdate(int mode, UpdateChipKinds kinds, const VersionCtrEntry &current,
                      const VersionCtrEntry &target);
