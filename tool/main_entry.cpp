// SPDX-License-Identifier: MIT
int flashwright_main(int argc, char **argv);
int main(int argc, char **argv) { return flashwright_main(argc, argv); }
