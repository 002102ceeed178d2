// SPDX-License-Identifier: MIT
// The library's VPD: keyword look-up, the serial number, version fields
// written from a new boot image (sealed again), and the VPD image carried
// from the current flash into a new one.
#include <cstdlib>
#include <cstring>

#include "split_input.h"
#include "vx_vpdimage.h"

using namespace vxhmx;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const size_t cap = in.ConsumeIntegralInRange<size_t>(0, 64);
    auto [vpd, image] = fuzz::split_two(in);

    for (const char *kw : {"SN", "PN", "RV", "V3", "", "S"}) {
        const auto field = vxvpd_find_keyword(vpd, kw);
        if (field && (field->data() < vpd.data() || field->data() + field->size() > vpd.data() + vpd.size()))
            std::abort();
    }
    std::vector<char> serial(cap);
    if (vxvpd_serial_number(vpd, serial.data(), cap) && std::memchr(serial.data(), '\0', cap) == nullptr)
        std::abort();

    // Writing the same versions twice: the second time changes nothing.
    std::vector<uint8_t> updated = vpd;
    if (vxvpd_update_versions_from_image(updated, image) == VpdUpdateStatus::Updated) {
        const std::vector<uint8_t> once = updated;
        if (!vxvpd_update_ok(vxvpd_update_versions_from_image(updated, image)) || updated != once) std::abort();
    }

    // The VPD buffer stands for the current flash, the image for the new one.
    std::vector<uint8_t> merged = image;
    const VpdMergeStatus status = vxvpd_merge_vpd_image(vpd, merged);
    if (!vxvpd_merge_ok(status) && merged != image) std::abort();  // a refused merge writes nothing
    return 0;
}
