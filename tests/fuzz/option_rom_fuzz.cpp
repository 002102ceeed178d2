// SPDX-License-Identifier: MIT
// Option ROM files: the chain walk over a buffer and over a file, the
// checksum, the common-BIOS marker, and the save-and-load round trip.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_file.h"
#include "messages.h"
#include "option_rom.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_bSilentMode = 1;  // traces would drown the fuzzer's own output
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<uint8_t> image(data, data + size);
    std::vector<uint64_t> offsets;
    WalkOptionROMChain(image, [&](int, uint64_t offset, const uint8_t *header, const uint8_t *pcir) {
        if (offset >= size) std::abort();  // a visited image starts inside the buffer
        (void)IsBiosImage(pcir), (void)IsLastImage(pcir), (void)IsDriverImage(pcir), (void)IsVendorImage(pcir);
        (void)GetDataOffset(header), (void)GetImageLength(pcir), (void)GetDataLength(pcir);
        offsets.push_back(offset);
    });
    offsets.push_back(0);
    for (const uint64_t offset : offsets) {
        (void)isCommonBIOSImage(image, offset);
        // Sealing an image makes its checksum hold, and touches only its last byte.
        std::vector<uint8_t> sealed = image;
        if (ComputeChecksum(1, sealed, offset) == 1) {
            if (ComputeChecksum(0, sealed, offset) != 1) std::abort();
            size_t changed = 0;
            for (size_t i = 0; i < size; ++i) changed += sealed[i] != image[i];
            if (changed > 1) std::abort();
        }
    }

    // Saved to a file and loaded back, the bytes are the same.
    const char *path = fuzz::write_input(data, size);
    std::vector<uint8_t> loaded(size + 1);
    int32_t maxSize = static_cast<int32_t>(size + 1);
    const int status = validateOptionROMFile(path, loaded, &maxSize);
    if (status == 0 && (static_cast<size_t>(maxSize) != size || std::memcmp(loaded.data(), data, size) != 0))
        std::abort();
    scanOptionROMFile(nullptr, path);
    if (size > 0) {
        std::vector<uint8_t> saved(data, data + size);
        if (dumpFlashBufferToFile(nullptr, saved, static_cast<int32_t>(size), path) != 0) std::abort();
        if (std::memcmp(saved.data(), data, size) != 0) std::abort();
    }
    return 0;
}
