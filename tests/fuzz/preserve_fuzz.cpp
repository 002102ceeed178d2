// SPDX-License-Identifier: MIT
// The preserving image path: the current flash's parameter block and
// subsystem vendor ID carried into a new option ROM chain, the chain walk,
// and the doubled boot image.
#include <cstdlib>
#include <cstring>

#include "split_input.h"
#include "vx_preserve.h"

using namespace vxhmx;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const size_t block = in.ConsumeBool() ? 512 : in.ConsumeIntegralInRange<size_t>(0, 0x20000);
    auto [current, image] = fuzz::split_two(in);

    const auto chain = vxrom_walk_chain(image, 16);
    for (const RomImage &r : chain)
        if (r.offset >= image.size() || r.pcir >= image.size()) std::abort();

    const std::vector<uint8_t> before = image;
    const PreserveReport rep = vxpreserve_adapter_data(current, image, block);
    if (rep.ssvid_copied > rep.images_walked || rep.blocks_copied > rep.images_walked ||
        rep.resealed > rep.images_walked)
        std::abort();
    if (!rep.current_is_x86 && image != before) std::abort();  // nothing to carry over
    if (rep.ssvid_copied + rep.blocks_copied == 0 && image != before) std::abort();

    // Only for a chain: the doubled image is half a megabyte each time.
    if (!chain.empty()) {
        const std::vector<uint8_t> doubled = vxpreserve_double_boot_image(image);
        if (doubled.size() != std::max(image.size(), kDoubledBootSize)) std::abort();
        const size_t copied = std::min(image.size(), kBootCopyOffset);
        if (copied > 0 && std::memcmp(doubled.data() + kBootCopyOffset, image.data(), copied) != 0) std::abort();
    }
    return 0;
}
