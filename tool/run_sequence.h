// SPDX-License-Identifier: MIT
// Start-up and shut-down steps of the run sequence.
#pragma once

// Exit statuses fixed by the run sequence itself; the modes return their own.
enum ExitStatus : int {
    kExitSuccess = 0,
    kExitNotRoot = 1,       // also: no process mutex, interrupted
    kExitVersion = 2,
    kExitNoConfiguration = 5,
    kExitUsage = 7,
};

int getConfigPath();
int CmdInit(int argc, char **argv);
void cleanup();
void CtrlHandler(int signalNumber);
int flashwright_main(int argc, char **argv);
