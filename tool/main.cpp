// SPDX-License-Identifier: MIT
int flashwright_main(int, char **) { return 0; }
