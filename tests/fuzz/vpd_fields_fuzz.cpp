// SPDX-License-Identifier: MIT
// The tool's VPD routines: the field walk and rendering, the start and end
// tags, the blank test and the "RV" checksum, on a buffer of any size.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "messages.h"
#include "vpd_fields.h"

namespace {
constexpr const char *kKeywords[] = {"PN", "EC", "SN", "V0", "V1", "V2", "V3", "V4", "V5", "MN",
                                     "YA", "FC", "FN", "RV", "RW", "",   "\x82", "Z"};
void no_trace(const char *) {}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_bSilentMode = 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const char *keyword = in.PickValueInArray(kKeywords);
    const size_t outSize = in.ConsumeIntegralInRange<size_t>(0, 300);
    const std::vector<uint8_t> vpd = in.ConsumeRemainingBytes<uint8_t>();

    // Exact-size output, so a write past the caller's field is caught.
    std::vector<char> output(outSize);
    (void)RetrieveVPDFieldFromBuffer(vpd, keyword, output, no_trace);
    (void)RetrieveVPDFieldFromBuffer(vpd, keyword, output);

    if (vpd.size() >= 2) {
        std::vector<char> text(outSize + 1);
        const size_t length = vpd.size() - 2;
        GetVPDDataField(std::span(vpd).first(2), std::span(vpd).subspan(2), length, text);
        if (std::memchr(text.data(), '\0', text.size()) == nullptr) std::abort();
    }
    (void)verifyVpdStartTag(vpd);
    (void)verifyVpdEndTag(vpd);
    (void)IsBlankVpd(vpd, no_trace);
    const int checksum = verifyVpdChecksum(vpd, no_trace);
    if (checksum != 0 && checksum != 161 && checksum != 162) std::abort();
    return 0;
}
