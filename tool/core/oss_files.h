// SPDX-License-Identifier: MIT
// Opening the files a root process takes from directories: configuration
// files and images. In a directory that other users can write (/tmp/), a file
// is only taken when root owns it, nobody else can write it, it has a single
// name and it is not a link, and the directory is root's and sticky, so
// nobody else can replace its entry; any other file there counts as absent.
#pragma once

#include <cstdio>

// A configuration file ("adapters.properties", "flashwright.properties",
// "agent.properties"): fopen-like (mode "r" or "r+"); null with errno.
FILE *OSSOpenConfigFile(const char *path, const char *mode);

// Whether a configuration file is there to be taken (the rule above).
bool OSSConfigFileExists(const char *path);

// An image file: read-only, and only a regular file (never a device, FIFO
// or directory), under the same rule for shared directories.
FILE *OSSOpenImageFile(const char *path);
