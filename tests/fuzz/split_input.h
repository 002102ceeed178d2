// SPDX-License-Identifier: MIT
// Two buffers from one input: a 16-bit length, then the first buffer, then
// the second. Each lands in a heap block of its exact size, so a read past
// either end is caught.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <vector>

namespace fuzz {

struct TwoBuffers {
    std::vector<uint8_t> first;
    std::vector<uint8_t> second;
};

inline TwoBuffers split_two(FuzzedDataProvider &in) {
    TwoBuffers b;
    const size_t n = in.ConsumeIntegral<uint16_t>();
    b.first = in.ConsumeBytes<uint8_t>(n);
    b.second = in.ConsumeRemainingBytes<uint8_t>();
    return b;
}

}  // namespace fuzz
