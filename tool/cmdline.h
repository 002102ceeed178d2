// SPDX-License-Identifier: MIT
// Command line: the two-pass parser and the mode dispatcher.
#pragma once

#include <cstdint>

#include "messages.h"

// Parse results.
enum ParseStatus : int {
    kParseGoOn = 0,
    kParseHelp = 1,
    kParseVersion = 2,
    kParseUsage = 7,
    kParseNoMemory = 10,
};

// Update modes.
enum FlashMode : int {
    kFlashModeDefault = 0,
    kFlashModeWrite = 1,
    kFlashModeRewrite = 2,
    kFlashModeDowngrade = 3,
};

constexpr int kArgumentSlots = 128;
constexpr int kMaxArguments = 127;

extern int32_t g_bHelp;
extern int32_t g_bHostInfo;
extern int32_t g_bDisplayHBAInfo;
extern int32_t g_bUpdateFlash;
extern int32_t g_iFlashMode;

void InitializeParameters();
int FirstPassParseArg(int argc, char **argv);
int SecondPassParseArg();
void CleanUpArgumentList();
int ParseArg(int argc, char **argv);
int ProcessArg();

// Number of arguments the first pass copied; 0 again once ParseArg returns.
uint16_t GetArgumentCount();
