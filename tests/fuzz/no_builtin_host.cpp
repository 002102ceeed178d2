// SPDX-License-Identifier: MIT
// The host model refers to the built-in lab host; the fuzz target parses
// only its inputs and never asks for it.
namespace vxemu {
extern const char *const kBuiltinHostJson;
const char *const kBuiltinHostJson = "{}";
}  // namespace vxemu
