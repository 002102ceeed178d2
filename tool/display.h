// SPDX-License-Identifier: MIT
// The two adapter listings: the summary of "/l" and the details of "/i".
#pragma once

int DisplayAllHBAs();
int DisplayAllHBAInformation();
