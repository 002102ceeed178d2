// SPDX-License-Identifier: MIT
// The update pass over every adapter.
#pragma once

// Status of the pass: 8 when there is no adapter.
int updateOptionROMAllHBAs();
