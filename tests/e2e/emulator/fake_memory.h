// SPDX-License-Identifier: MIT
// A caller address space for driving the emulated driver in-process: separate
// blocks at well-spaced addresses; anything else reads as unmapped, the way
// process_vm_readv fails on a bad pointer.
#pragma once

#include <cstring>
#include <map>
#include <span>
#include <vector>

#include "driver_service.h"

namespace vxemu {

class FakeMemory final : public RemoteMemory {
public:
    uint64_t map(std::vector<uint8_t> bytes) {
        const uint64_t addr = next_;
        next_ += 0x1000000;  // room for the largest reply buffer the library offers
        blocks_[addr] = std::move(bytes);
        return addr;
    }
    std::vector<uint8_t> &at(uint64_t addr) { return blocks_.at(addr); }
    bool read(uint64_t addr, std::span<uint8_t> out) override {
        auto *b = find(addr, out.size());
        if (b == nullptr) return false;
        std::memcpy(out.data(), b, out.size());
        return true;
    }
    bool write(uint64_t addr, std::span<const uint8_t> in) override {
        auto *b = find(addr, in.size());
        if (b == nullptr) return false;
        std::memcpy(b, in.data(), in.size());
        return true;
    }

private:
    uint8_t *find(uint64_t addr, size_t n) {
        auto it = blocks_.upper_bound(addr);
        if (it == blocks_.begin()) return nullptr;
        --it;
        if (addr - it->first + n > it->second.size()) return nullptr;
        return it->second.data() + (addr - it->first);
    }
    std::map<uint64_t, std::vector<uint8_t>> blocks_;
    uint64_t next_ = 0x10000;
};

}  // namespace vxemu
