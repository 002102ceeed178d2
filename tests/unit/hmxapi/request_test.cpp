// SPDX-License-Identifier: MIT
// Request headers as the driver sees them: bytes of both layouts and the
// request numbers.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "vx_dispatch.h"
#include "vx_instances.h"
#include "vx_ioctl.h"

namespace {

uint16_t le16_at(const uint8_t *p, std::size_t off) { return static_cast<uint16_t>(p[off] | (p[off + 1] << 8)); }
uint32_t le32_at(const uint8_t *p, std::size_t off) {
    return static_cast<uint32_t>(p[off]) | (static_cast<uint32_t>(p[off + 1]) << 8) |
           (static_cast<uint32_t>(p[off + 2]) << 16) | (static_cast<uint32_t>(p[off + 3]) << 24);
}
uint64_t le64_at(const uint8_t *p, std::size_t off) {
    return static_cast<uint64_t>(le32_at(p, off)) | (static_cast<uint64_t>(le32_at(p, off + 4)) << 32);
}

class RequestHeader : public ::testing::Test {
protected:
    void SetUp() override {
        vxapi_clear_table();
        api_priv_data[3].drvr_inst = 0x1234;
    }
    void TearDown() override { vxapi_clear_table(); }
    uint8_t request_[8]{};
    uint8_t response_[64]{};
};

TEST_F(RequestHeader, CurrentLayoutBytes) {
    EXT_IOCTL hdr;
    std::memset(&hdr, 0xAA, sizeof hdr);  // every byte must be written
    ASSERT_EQ(vxapi_init_ext_ioctl_n(&hdr, 0x0102, 7, request_, 8, response_, 64, 3), 0);
    const auto *b = reinterpret_cast<const uint8_t *>(&hdr);
    EXPECT_EQ(std::memcmp(b, "VARNIX\0\0", 8), 0);
    EXPECT_EQ(le16_at(b, 8), 2);
    EXPECT_EQ(le16_at(b, 10), 7);
    EXPECT_EQ(le16_at(b, 12), 0x0102);
    EXPECT_EQ(le16_at(b, 14), 7);
    EXPECT_EQ(le32_at(b, 16), 0u);
    EXPECT_EQ(le32_at(b, 20), 0u);
    EXPECT_EQ(le32_at(b, 24), 0u);
    EXPECT_EQ(le32_at(b, 28), 8u);
    EXPECT_EQ(le32_at(b, 32), 64u);
    EXPECT_EQ(le64_at(b, 36), reinterpret_cast<uintptr_t>(request_));
    EXPECT_EQ(le64_at(b, 44), reinterpret_cast<uintptr_t>(response_));
    EXPECT_EQ(le16_at(b, 52), 0x1234);
    for (std::size_t off = 54; off < 76; ++off) EXPECT_EQ(b[off], 0) << off;
    EXPECT_EQ(le64_at(b, 76), 2u);
    for (std::size_t off = 84; off < 116; ++off) EXPECT_EQ(b[off], 0) << off;
}

TEST_F(RequestHeader, OlderLayoutBytes) {
    EXT_IOCTL_O hdr;
    std::memset(static_cast<void *>(&hdr), 0xAA, sizeof hdr);
    ASSERT_EQ(vxapi_init_ext_ioctl_o(&hdr, 0x0102, 7, request_, 8, response_, 64, 3), 0);
    const auto *b = reinterpret_cast<const uint8_t *>(&hdr);
    const auto *sig = reinterpret_cast<const char *>(static_cast<uintptr_t>(le64_at(b, 0)));
    ASSERT_NE(sig, nullptr);
    EXPECT_EQ(std::memcmp(sig, "VARNIX\0\0", 8), 0);
    EXPECT_EQ(le16_at(b, 8), 2);
    EXPECT_EQ(le16_at(b, 10), 5);
    EXPECT_EQ(le16_at(b, 12), 0x0102);
    EXPECT_EQ(le16_at(b, 14), 7);
    EXPECT_EQ(le32_at(b, 28), 8u);
    EXPECT_EQ(le32_at(b, 32), 64u);
    EXPECT_EQ(le32_at(b, 36), 0u);  // alignment padding before the first pointer
    EXPECT_EQ(le64_at(b, 40), reinterpret_cast<uintptr_t>(request_));
    EXPECT_EQ(le64_at(b, 48), reinterpret_cast<uintptr_t>(response_));
    EXPECT_EQ(le16_at(b, 56), 0x1234);
    EXPECT_EQ(le64_at(b, 80), 2u);
}

TEST_F(RequestHeader, NoHeaderIsTheOnlyFailure) {
    EXPECT_EQ(vxapi_init_ext_ioctl_n(nullptr, 0, 0, nullptr, 0, nullptr, 0, 0), 1);
    EXPECT_EQ(vxapi_init_ext_ioctl_o(nullptr, 0, 0, nullptr, 0, nullptr, 0, 0), 1);
    EXT_IOCTL hdr;
    EXPECT_EQ(vxapi_init_ext_ioctl_n(&hdr, 0, 0, nullptr, 0, nullptr, 0, -1), 0);  // any index builds a header
}

TEST_F(RequestHeader, RecordSelectsTheLayout) {
    VxRequest req;
    api_priv_data[3].features = VXF_NEW_LAYOUT;
    ASSERT_EQ(req.init(3, 1, 0, nullptr, 0, response_, 64), 0);
    EXPECT_TRUE(req.current);
    EXPECT_EQ(req.header(), static_cast<void *>(&req.n));
    api_priv_data[3].features = VXF_IOCTL;
    ASSERT_EQ(req.init(3, 1, 0, nullptr, 0, response_, 64), 0);
    EXPECT_FALSE(req.current);
    EXPECT_EQ(req.header(), static_cast<void *>(&req.o));
}

TEST(RequestNumbers, CurrentAndOlderForms) {
    EXPECT_EQ(vxapi_ioctl_number(0x00), 0xC0747900u);
    EXPECT_EQ(vxapi_ioctl_number(0x0F), 0xC074790Fu);
    EXPECT_EQ(vxapi_ioctl_number(0xD2), 0xC07479D2u);
    EXPECT_EQ(vxapi_ioctl_number(0xFF), 0xC07479FFu);
    EXPECT_EQ(vxapi_ioctl_number_old(vxapi_ioctl_number(0xFE)), 0xC00879FEu);
    EXPECT_EQ(vxapi_ioctl_number_old(vxapi_ioctl_number(0x0A)), 0xC008790Au);
}

TEST(RequestSend, ClosedDescriptorFailsWithErrno) {
    vxapi_clear_table();
    api_priv_data[0].features = VXF_NEW_LAYOUT;
    EXT_CHIP chip{};
    uint32_t status = 0xDEAD;
    errno = 0;
    EXPECT_EQ(vxapi_query_chip(-1, 0, &chip, &status), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(status, 0u);  // the header's Status, untouched by a driver
    vxapi_clear_table();
}

TEST(RequestSend, RawFlashReadOfZeroLengthSendsNothing) {
    vxapi_clear_table();
    api_priv_data[0].features = VXF_NEW_LAYOUT | VXF_IOCTL;
    api_priv_data[0].device_id = 0x1600;  // FCX160
    uint8_t buf[4];
    uint32_t status = 0;
    errno = 0;
    // Returns 1 before any request: a request on fd -1 would give -1/EBADF.
    EXPECT_EQ(vxapi_read_optrom(-1, 0, buf, 0, 0xFFFF, 0, &status), 1);
    EXPECT_EQ(vxapi_read_optrom(-1, 0, buf, 4, 0x07, 0, &status), 1);  // region unknown without a layout
    vxapi_clear_table();
}

TEST(SectorAlign, WholeSectorsNeedNoCopy) {
    vxhmx::SectorAligned out;
    uint8_t data[0x2000] = {};
    uint32_t status = 0;
    ASSERT_EQ(vxapi_sector_align(-1, 0, data, sizeof data, 0x10000, 0x1000, &out, &status), 0);
    EXPECT_EQ(out.offset, 0x10000u);
    EXPECT_EQ(out.size, 0x2000u);
    EXPECT_TRUE(out.buffer.empty());
    vxhmx::SectorAligned bad;
    EXPECT_EQ(vxapi_sector_align(-1, 0, data, sizeof data, 0, 0, &bad, &status), 1);  // no sector size
    EXPECT_EQ(vxapi_sector_align(-1, 0, data, 0, 0, 0x1000, &bad, &status), 1);       // nothing to write
}

}  // namespace
