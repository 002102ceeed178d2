// SPDX-License-Identifier: MIT
// The caller's address space for the emulator's request services: a few
// blocks at fixed, well-spaced addresses, each of its exact size; anything
// else reads as unmapped, the way process_vm_readv fails on a bad pointer.
#pragma once

#include <cstring>
#include <map>
#include <span>
#include <vector>

#include "driver_service.h"

namespace fuzz {

class BlockMemory final : public vxemu::RemoteMemory {
public:
    // The address of block i.
    static constexpr uint64_t address(unsigned i) { return 0x10000000ull * (i + 1); }
    std::vector<uint8_t> &block(unsigned i) { return blocks_[address(i)]; }
    void clear() { blocks_.clear(); }

    bool read(uint64_t addr, std::span<uint8_t> out) override {
        uint8_t *p = find(addr, out.size());
        if (p == nullptr) return false;
        if (!out.empty()) std::memcpy(out.data(), p, out.size());
        return true;
    }
    bool write(uint64_t addr, std::span<const uint8_t> in) override {
        uint8_t *p = find(addr, in.size());
        if (p == nullptr) return false;
        if (!in.empty()) std::memcpy(p, in.data(), in.size());
        return true;
    }

private:
    uint8_t *find(uint64_t addr, size_t n) {
        auto it = blocks_.upper_bound(addr);
        if (it == blocks_.begin()) return nullptr;
        --it;
        const uint64_t at = addr - it->first;
        if (at > it->second.size() || n > it->second.size() - at) return nullptr;
        return it->second.data() + at;
    }
    std::map<uint64_t, std::vector<uint8_t>> blocks_;
};

}  // namespace fuzz
