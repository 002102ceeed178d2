// SPDX-License-Identifier: MIT
#include "vx_hmnvr.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

using namespace vxhmx;

namespace {

struct Place {
    uint32_t pos, bit, len;
};

struct ListedVar {
    uint32_t var;
    Place basic;
    std::optional<Place> extended;
};

// The places the tool relies on, as the adapters' images carry them.
std::vector<ListedVar> listed_places() {
    std::vector<ListedVar> v{
        {NVRAMVarNodeNameOption, {4, 14, 1}, Place{0x2C, 14, 1}},
        {NVRAMVarDisableBIOS, {35, 1, 1}, Place{0x100, 1, 1}},
        {NVRAMVarEnableSelectableBoot, {35, 3, 1}, Place{0x100, 3, 1}},
        {NVRAMVarPCIParityDisable, {35, 6, 1}, std::nullopt},
        {NVRAMVarEnableExtendedLogging, {35, 7, 1}, std::nullopt},
        {NVRAMVarBootLUNNumber, {40, 0, 8}, Place{0x11C, 0, 16}},
        {NVRAMVarSelectiveLogin, {55, 0, 1}, Place{0x144, 0, 1}},
        {NVRAMVarEnableAltBootDevice, {55, 1, 1}, Place{0x144, 1, 1}},
        {NVRAMVarForceWorldLogin, {55, 7, 1}, Place{0x144, 7, 1}},
        {NVRAMVarAlt2BootLUNNumber, {73, 0, 16}, Place{0x134, 0, 16}},
        {NVRAMVarSubSystemVendorID1, {125, 0, 16}, Place{0x1F8, 0, 16}},
        {NVRAMVarSubSystemDeviceID1, {126, 0, 16}, Place{0x1FA, 0, 16}},
    };
    auto names = [&](uint32_t first, uint32_t word, std::optional<uint32_t> byte) {
        for (uint32_t i = 0; i < 8; ++i)
            v.push_back({first + i, {word + i / 2, 8 * (i % 2), 8},
                         byte ? std::optional<Place>(Place{*byte + i, 0, 8}) : std::nullopt});
    };
    names(NVRAMVarPortName0, 9, 0x14);
    names(NVRAMVarNodeName0, 15, 0x1C);
    names(NVRAMVarBootNodeName0, 36, 0x114);
    names(NVRAMVarFcodeBootPortName0, 43, std::nullopt);
    names(NVRAMVarAlt2BootPortName0, 69, 0x12C);
    return v;
}

// The image bytes a field of `len` bits at image bit `first` covers, set to all ones.
std::vector<uint8_t> ones_at(std::size_t size, uint32_t first, uint32_t len) {
    std::vector<uint8_t> img(size, 0);
    for (uint32_t b = first; b < first + len; ++b) img[b / 8] |= static_cast<uint8_t>(1u << (b % 8));
    return img;
}

}  // namespace

// Writing all ones into a listed variable must set exactly its bits (and the
// value reads back); writing zero into an all-ones image must clear only them.
TEST(NvramVariables, ListedPlacesInBothFormats) {
    for (const auto &lv : listed_places()) {
        SCOPED_TRACE("variable " + std::to_string(lv.var));
        struct Case {
            NvramFormat fmt;
            std::size_t size;
            std::optional<Place> place;
            uint32_t unit_bits;
        };
        for (const Case &c : {Case{NvramFormat::Basic, kNvramBasicSize, lv.basic, 16},
                              Case{NvramFormat::Extended, kNvramExtendedSize, lv.extended, 8}}) {
            std::vector<uint8_t> img(c.size, 0);
            const uint32_t all = vxhmnvr_mask(c.place ? c.place->len : 0);
            EXPECT_EQ(VXHMNVR_SetVariableValue(img, c.fmt, lv.var, 0xFFFFFFFFu), 0u);
            if (!c.place) {
                EXPECT_EQ(img, std::vector<uint8_t>(c.size, 0));
                EXPECT_EQ(VXHMNVR_GetVariableValue(img, c.fmt, lv.var), 0u);
                continue;
            }
            const uint32_t first = c.place->pos * c.unit_bits + c.place->bit;
            EXPECT_EQ(img, ones_at(c.size, first, c.place->len));
            EXPECT_EQ(VXHMNVR_GetVariableValue(img, c.fmt, lv.var), all);

            std::vector<uint8_t> full(c.size, 0xFF);
            EXPECT_EQ(VXHMNVR_SetVariableValue(full, c.fmt, lv.var, 0), 0u);
            auto expect = ones_at(c.size, first, c.place->len);
            for (auto &b : expect) b = static_cast<uint8_t>(~b);
            EXPECT_EQ(full, expect);
        }
    }
}

TEST(NvramVariables, NumbersAboveTheTable) {
    std::vector<uint8_t> img(kNvramExtendedSize, 0xFF);
    for (auto fmt : {NvramFormat::Basic, NvramFormat::Extended}) {
        EXPECT_EQ(VXHMNVR_GetVariableValue(img, fmt, NVRAMVarEnd), 0u);
        EXPECT_EQ(VXHMNVR_SetVariableValue(img, fmt, NVRAMVarEnd, 1), 0x20000064u);
        EXPECT_EQ(VXHMNVR_SetVariableValue(img, fmt, 0xFFFFFFFFu, 1), 0x20000064u);
        EXPECT_EQ(VXHMNVR_IsVariableVisible(img, fmt, NVRAMVarEnd), 0x20000064u);
    }
    EXPECT_EQ(img, std::vector<uint8_t>(kNvramExtendedSize, 0xFF));
}

TEST(NvramVariables, PortName3InBasicChangesOnlyHighByteOfWord10) {
    std::vector<uint8_t> img(kNvramBasicSize);
    for (std::size_t i = 0; i < img.size(); ++i) img[i] = static_cast<uint8_t>(i);
    auto expect = img;
    expect[21] = 0xC3;
    EXPECT_EQ(VXHMNVR_SetVariableValue(img, NvramFormat::Basic, NVRAMVarPortName3, 0xC3), 0u);
    EXPECT_EQ(img, expect);
    EXPECT_EQ(VXHMNVR_GetVariableValue(img, NvramFormat::Basic, NVRAMVarPortName2), 20u);
}

TEST(NvramVariables, SubsystemIdsAreLittleEndianWordsInBothFormats) {
    std::vector<uint8_t> basic(kNvramBasicSize, 0), ext(kNvramExtendedSize, 0);
    for (auto *img : {&basic, &ext}) {
        const auto fmt = img == &basic ? NvramFormat::Basic : NvramFormat::Extended;
        EXPECT_EQ(VXHMNVR_SetVariableValue(*img, fmt, NVRAMVarSubSystemVendorID1, 0x1E0F), 0u);
        EXPECT_EQ(VXHMNVR_SetVariableValue(*img, fmt, NVRAMVarSubSystemDeviceID1, 0x12BA), 0u);
        EXPECT_EQ(VXHMNVR_GetVariableValue(*img, fmt, NVRAMVarSubSystemVendorID1), 0x1E0Fu);
        EXPECT_EQ(VXHMNVR_GetVariableValue(*img, fmt, NVRAMVarSubSystemDeviceID1), 0x12BAu);
    }
    EXPECT_EQ(std::vector<uint8_t>(basic.begin() + 250, basic.begin() + 254),
              (std::vector<uint8_t>{0x0F, 0x1E, 0xBA, 0x12}));
    EXPECT_EQ(std::vector<uint8_t>(ext.begin() + 0x1F8, ext.begin() + 0x1FC),
              (std::vector<uint8_t>{0x0F, 0x1E, 0xBA, 0x12}));
}

// The id is text: copied up to a zero byte, the rest cleared; an equal value
// is not written at all (so bytes after an inner zero survive).
TEST(NvramVariables, IdIsFourCharactersOfText) {
    std::vector<uint8_t> img(kNvramBasicSize, 0x55);
    EXPECT_EQ(VXHMNVR_SetVariableValue(img, NvramFormat::Basic, NVRAMVarId, 0x41004243), 0u);
    EXPECT_EQ(std::vector<uint8_t>(img.begin(), img.begin() + 5), (std::vector<uint8_t>{'C', 'B', 0, 0, 0x55}));

    std::vector<uint8_t> ext(kNvramExtendedSize, 0);
    const uint8_t odd[4] = {'A', 'B', 0, 'X'};
    std::copy(odd, odd + 4, ext.begin());
    const uint32_t now = VXHMNVR_GetVariableValue(ext, NvramFormat::Extended, NVRAMVarId);
    EXPECT_EQ(now, 0x58004241u);
    EXPECT_EQ(VXHMNVR_SetVariableValue(ext, NvramFormat::Extended, NVRAMVarId, now), 0u);
    EXPECT_EQ(ext[3], 'X');
}

// Images shorter than a place are neither read nor written past their end
// (the sanitizer build proves the "past").
TEST(NvramVariables, ShortImagesAreNeverOverrun) {
    std::vector<uint8_t> small(0x100, 0xAB);
    EXPECT_EQ(VXHMNVR_GetVariableValue(small, NvramFormat::Extended, NVRAMVarSubSystemVendorID1), 0u);
    EXPECT_EQ(VXHMNVR_SetVariableValue(small, NvramFormat::Extended, NVRAMVarSubSystemVendorID1, 1), 0x20000064u);
    std::vector<uint8_t> tiny(21, 0xAB);  // word 10 would need bytes 20 and 21
    EXPECT_EQ(VXHMNVR_SetVariableValue(tiny, NvramFormat::Basic, NVRAMVarPortName3, 1), 0x20000064u);
    EXPECT_EQ(tiny, std::vector<uint8_t>(21, 0xAB));
    EXPECT_EQ(VXHMNVR_GetVariableValue({}, NvramFormat::Basic, NVRAMVarId), 0u);
    // The last place of each full-size image is still reachable.
    std::vector<uint8_t> ext(kNvramExtendedSize, 0);
    EXPECT_EQ(VXHMNVR_SetVariableValue(ext, NvramFormat::Extended, NVRAMVarCheckSum, 0xA1B2C3D4), 0u);
    EXPECT_EQ(ext[511], 0xA1);
}

TEST(NvramVariables, ExtendedFormatChips) {
    const std::pair<uint16_t, bool> chips[] = {
        {0x0100, false}, {0x0110, false}, {0x1200, false}, {0x1210, false}, {0x1220, false},
        {0x1230, false}, {0x1260, false}, {0x1270, false}, {0x1400, true},  {0x1410, true},
        {0x1440, true},  {0x1450, true},  {0x1500, true},  {0x1600, true},  {0x1800, true},
        {0x0142, false}, {0x0000, false}};
    for (auto [id, ext] : chips) EXPECT_EQ(vxhmnvr_uses_extended_format(id), ext) << std::hex << id;
}

TEST(NvramVariables, DescriptionsKeepTheirShift) {
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarId), "Adapter ID");
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarVersion), "Adapter Version");
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarRiscVersion), "Firmare Version");
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarRiscEnableHardLoopID), "Enable Hard Loop ID");
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarSelectiveLogin), "Selective Login");
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarEnableAltBootDevice), "Enable Alt Boot DeviceEnable Boot Order List");
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarEnableBootOrderList), "Enable Selective LUN");
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarSubSystemDeviceID1), "Checksum");
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarCheckSum), "");
    EXPECT_STREQ(vxhmnvr_description(NVRAMVarEnd), "");
    EXPECT_STREQ(vxhmnvr_short_name(NVRAMVarPortName3), "PortName3");
    EXPECT_STREQ(vxhmnvr_short_name(NVRAMVarCheckSum), "CheckSum");
}

// Variable 128 of the same image picks the mask: 0..8 their own entry,
// anything above entry 9.
TEST(NvramVariables, ReadOnlyAndVisibleFollowSubsystemDevice) {
    struct Case {
        uint32_t ssdid;
        uint32_t var;
        uint32_t read_only;
        uint32_t visible;
    };
    const Case cases[] = {
        {3, NVRAMVarId, 0, 0},
        {0x12BA, NVRAMVarId, 0, 0},
        {8, NVRAMVarPortName0, 0x20000075, 0},
        {9, NVRAMVarPortName0, 0, 0},
        {0x12BA, NVRAMVarPortName0, 0, 0},
        {8, NVRAMVarEnableFairness, 0x20000075, 0},
        {9, NVRAMVarEnableFairness, 0x20000075, 0x20000075},
        {0x12BA, NVRAMVarPCIParityDisable, 0x20000075, 0x20000075},
        {0x12BA, NVRAMVarBootLUNNumber, 0x20000075, 0},
    };
    for (const Case &c : cases) {
        for (auto fmt : {NvramFormat::Basic, NvramFormat::Extended}) {
            std::vector<uint8_t> img(fmt == NvramFormat::Basic ? kNvramBasicSize : kNvramExtendedSize, 0);
            ASSERT_EQ(VXHMNVR_SetVariableValue(img, fmt, NVRAMVarSubSystemDeviceID1, c.ssdid), 0u);
            EXPECT_EQ(VXHMNVR_IsVariableReadOnly(img, fmt, c.var), c.read_only) << c.ssdid << " " << c.var;
            EXPECT_EQ(VXHMNVR_IsVariableVisible(img, fmt, c.var), c.visible) << c.ssdid << " " << c.var;
        }
    }
}
