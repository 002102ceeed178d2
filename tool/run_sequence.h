// SPDX-License-Identifier: MIT
// Start-up and shut-down steps of the run sequence.
#pragma once

int getConfigPath();
int CmdInit(int argc, char **argv);
void cleanup();
void CtrlHandler(int signalNumber);
int flashwright_main(int argc, char **argv);
