// SPDX-License-Identifier: MIT
// agent.properties: key=value preferences of the agent core.
#pragma once

#include <cstdint>
#include <cstdio>

constexpr int32_t kDefaultPollingInterval = 30;

FILE *PrefOpenPreferenceFile(const char *path);
int PrefClosePreferenceFile(FILE *file);
// The value of `key`, valid until the next call; nullptr when absent.
const char *PrefGetProperty(FILE *file, const char *key);

int CoreLoadPollingInterval();
int CoreLoadFabricScanning();
int CoreLoadQuietMode();

int32_t CoreGetPollingInterval();
int32_t CoreGetFabricScanning();
int32_t CoreGetQuietMode();
void CoreSetQuietMode(int32_t value);
// Back to the start-up values (30, 0, 0).
void CoreResetPreferences();
