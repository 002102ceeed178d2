// SPDX-License-Identifier: MIT
// NVRAM variables: where each named setting lives inside an NVRAM image, in
// both image formats, and the pure read/write routines over an image buffer.
// Nothing here talks to an adapter; the public calls hand in the image the
// caller read with HmGetNVRam.
#ifndef VX_HMNVR_H
#define VX_HMNVR_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "vxhmx.h"

namespace vxhmx {

// Variable numbers are the public EnumNVRAMVar; its order is part of the
// public interface and the variable tables are indexed by it.
static_assert(NVRAMVarCheckSum == 129 && NVRAMVarEnd == 130);
static_assert(NVRAMVarPortName3 == 27 && NVRAMVarEnableAltBootDevice == 93 &&
              NVRAMVarAlt2BootLUNNumber == 115);

// The two image formats. The FCX14x-class chips use the extended one.
enum class NvramFormat { Basic, Extended };

// Size of a whole NVRAM block per format (what HmGetNVRam returns).
inline constexpr std::size_t kNvramBasicSize = 256;
inline constexpr std::size_t kNvramExtendedSize = 512;

// Place marker of a variable that the extended format does not carry.
inline constexpr uint32_t kNvramNotPresent = 0xDEADDEADu;

// Place of one variable in one format. Basic: `pos` is a 16-bit word index
// into the image; extended: a byte offset (or kNvramNotPresent).
struct NvramPlace {
    uint32_t pos;
    uint8_t bit;
    uint8_t len;
};

// Setting bits carried per variable. The read-only and visible mask tables
// select from them by the adapter's subsystem device ID (variable 128).
inline constexpr uint16_t kNvSetFactory = 0x0001;   // identity data, written at manufacture
inline constexpr uint16_t kNvSetUser = 0x0002;      // ordinary user setting
inline constexpr uint16_t kNvSetBoot = 0x0004;      // boot device selection
inline constexpr uint16_t kNvSetAdvanced = 0x0008;  // firmware tuning, for experts
inline constexpr uint16_t kNvSetName = 0x0010;      // world-wide names
inline constexpr uint16_t kNvSetLegacy = 0x0020;    // loop-era options, hidden on new adapters

// Extended format for FCX140, FCX141, FCX144, FCX145, FCX150, FCX160, FCX180.
bool vxhmnvr_uses_extended_format(uint16_t pci_device_id);
inline NvramFormat vxhmnvr_format_for_device(uint16_t pci_device_id) {
    return vxhmnvr_uses_extended_format(pci_device_id) ? NvramFormat::Extended : NvramFormat::Basic;
}
inline std::size_t vxhmnvr_block_size(NvramFormat format) {
    return format == NvramFormat::Extended ? kNvramExtendedSize : kNvramBasicSize;
}
// The NVRAM block of the chip, which is also the parameter block a boot
// code write keeps: 512 bytes on FCX14x-class chips, 256 on the older ones.
inline std::size_t vxhmnvr_block_size(uint16_t pci_device_id) {
    return vxhmnvr_block_size(vxhmnvr_format_for_device(pci_device_id));
}

// Table accessors. Out-of-range numbers give a not-present place, empty
// texts and no setting bits.
NvramPlace vxhmnvr_place(NvramFormat format, uint32_t var);
const char *vxhmnvr_short_name(uint32_t var);
// The description list is one entry short from NVRAMVarEnableAltBootDevice
// on ("Enable Alt Boot DeviceEnable Boot Order List" is a single text), so
// descriptions stand one place later than their variables; the last one is "".
const char *vxhmnvr_description(uint32_t var);
// 2^n - 1 for n = 0..32; n above 32 gives 0.
uint32_t vxhmnvr_mask(uint32_t nbits);

// Value of a variable in the image; 0 for a number above 129, an absent
// place, or a place that lies (partly) beyond the end of the image.
uint32_t VXHMNVR_GetVariableValue(std::span<const uint8_t> image, NvramFormat format, uint32_t var);

// Changes one variable in the image. 0x20000064 for a number above 129 or a
// place beyond the end of the image (nothing written); 0 without change for
// a place absent from the format or a value already in place. The NVRAM
// checksum is left alone: the NVRAM write recomputes it.
uint32_t VXHMNVR_SetVariableValue(std::span<uint8_t> image, NvramFormat format, uint32_t var,
                                  uint32_t value);

// 0 when the variable's setting bits meet the read-only (visible) mask
// chosen by variable 128 of the image (0..8, anything else entry 9);
// 0x20000075 otherwise; 0x20000064 for a number above 129.
uint32_t VXHMNVR_IsVariableReadOnly(std::span<const uint8_t> image, NvramFormat format, uint32_t var);
uint32_t VXHMNVR_IsVariableVisible(std::span<const uint8_t> image, NvramFormat format, uint32_t var);

}  // namespace vxhmx

#endif  // VX_HMNVR_H
