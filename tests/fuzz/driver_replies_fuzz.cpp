// SPDX-License-Identifier: MIT
// Driver replies as the library's public calls decode them: the property
// records, discovered ports, statistics, layout, NVRAM, VPD and flash reads
// and the failover records. The driver is this target: `ioctl` on its
// descriptor answers each request from the input (the call's result, the
// header's Status, DetailStatus and ResponseLen, and the response bytes),
// writing only into the buffer the request offers, as the kernel does.
// Every other descriptor gets the real call.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <vector>

#include "vx_instances.h"
#include "vx_load.h"
#include "vxhmx.h"

namespace {

int g_driver_fd = -1;
FuzzedDataProvider *g_in = nullptr;

uint32_t le32(const uint8_t *p) { return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24; }
uint64_t le64(const uint8_t *p) { return le32(p) | static_cast<uint64_t>(le32(p + 4)) << 32; }
void put32(uint8_t *p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// One request: header at `arg` in the current (116-byte) or the older
// (88-byte) layout, response address and length read from it.
int answer(unsigned long request, void *arg) {
    FuzzedDataProvider &in = *g_in;
    if (in.ConsumeBool()) {
        errno = in.PickValueInArray({EIO, EFAULT, EINVAL, ENOMEM, EBUSY});
        return -1;
    }
    auto *hdr = static_cast<uint8_t *>(arg);
    const bool current = (request & 0xFFFF0000UL) == 0xC0740000UL;
    const size_t resp_adr_at = current ? 44 : 48;
    const uint32_t resp_len = le32(hdr + 32);
    auto *resp = reinterpret_cast<uint8_t *>(static_cast<uintptr_t>(le64(hdr + resp_adr_at)));
    // Status codes live in a small range; any value may come back.
    put32(hdr + 16, in.ConsumeBool() ? in.ConsumeIntegralInRange<uint32_t>(0, 0x30) : in.ConsumeIntegral<uint32_t>());
    put32(hdr + 20, in.ConsumeIntegral<uint32_t>());
    const std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(in.ConsumeIntegralInRange<uint32_t>(0, resp_len));
    if (resp != nullptr && !bytes.empty()) std::memcpy(resp, bytes.data(), bytes.size());
    // The length the driver reports: what it wrote, or anything at all.
    put32(hdr + 32, in.ConsumeBool() ? in.ConsumeIntegral<uint32_t>() : static_cast<uint32_t>(bytes.size()));
    return 0;
}

template <typename Char, size_t N>
void expect_terminated(const Char (&field)[N]) {
    if (std::memchr(field, '\0', N) == nullptr) std::abort();
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) {
    va_list ap;
    va_start(ap, request);
    void *arg = va_arg(ap, void *);
    va_end(ap);
    if (fd == g_driver_fd && g_in != nullptr) return answer(request, arg);
    return static_cast<int>(::syscall(SYS_ioctl, fd, request, arg));
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    g_driver_fd = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    return g_driver_fd < 0 ? 1 : 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    // One port served by driver requests; its chip and header layout come
    // from the input.
    vxapi_clear_table();
    vxapi_priv_db_t &rec = api_priv_data[0];
    std::strcpy(rec.phys_path, "/dev/vxa2xxx");
    rec.oshandle = g_driver_fd;
    rec.apihandle = vxapi_create_apihandle(0);
    rec.features = VXF_IOCTL | (in.ConsumeBool() ? VXF_NEW_LAYOUT : 0);
    rec.vendor_id = 0x1DE5;
    rec.device_id = in.PickValueInArray<uint16_t>({0x1000, 0x1200, 0x1230, 0x1270, 0x1410, 0x1440, 0x1500, 0x1600, 0x1800, 0x1810});
    rec.host_no = 3;
    const int dev = static_cast<int>(rec.apihandle);
    g_in = &in;

    const std::function<void()> calls[] = {
        [&] {
            DEVICENODEPROPERTY p{};
            if (HmGetHbaDeviceNodeProperty(dev, &p) == 0) {
                expect_terminated(p.Manufacturer);
                expect_terminated(p.Model);
                expect_terminated(p.SerialNumber);
                expect_terminated(p.DriverVersion);
                expect_terminated(p.FirmwareVersion);
                expect_terminated(p.OptionRomVersion);
                if (std::strlen(p.Model) > 15) std::abort();  // formatted into 16 bytes
            }
        },
        [&] {
            DEVICEPORTPROPERTY p{};
            if (HmGetHbaDevicePortProperty(dev, 0, &p) == 0) expect_terminated(p.DeviceName);
        },
        [&] {
            CHIPPROPERTY p{};
            (void)HmGetHbaDeviceChipProperty(dev, &p);
        },
        [&] {
            DRIVERPROPERTY p{};
            if (HmGetHbaDeviceDriverProperty(dev, &p) == 0) expect_terminated(p.Version);
        },
        [&] {
            FIRMWAREPROPERTY p{};
            if (HmGetHbaDeviceFirmwareProperty(dev, &p) == 0) expect_terminated(p.Version);
        },
        [&] {
            DISCPORTPROPERTY p{};
            (void)HmGetDiscTargetProperty(dev, 0, in.ConsumeIntegral<uint16_t>(), in.ConsumeIntegralInRange(0, 2), &p);
            (void)HmGetDiscPortProperty(dev, 0, in.ConsumeIntegral<uint16_t>(), &p);
        },
        [&] {
            std::vector<uint8_t> buf(in.ConsumeIntegralInRange<uint32_t>(0, 2048));
            (void)HmGetPortDatabase(dev, in.ConsumeIntegral<uint16_t>(), buf.data(), static_cast<uint32_t>(buf.size()));
        },
        [&] {
            STATISTICS s{};
            (void)HmGetStatistics(dev, 0, &s);
            (void)HmGetStatisticsFC(dev, 0, &s);
            const uint8_t wwpn[8] = {0x21, 0, 0, 0x1D, 0xE5, 0, 0, 1};
            (void)HmGetPortStatisticsFC(dev, 0, wwpn, &s);
        },
        [&] {
            std::vector<uint8_t> buf(in.ConsumeIntegralInRange<uint32_t>(0, 1024));
            (void)HmGetCnaPortData(dev, buf.data(), static_cast<uint32_t>(buf.size()));
            (void)HmGetSFPData(dev, buf.data(), static_cast<uint32_t>(buf.size()));
            uint32_t mode = 0;
            (void)HmGetBeaconControl(dev, &mode);
        },
        [&] {
            // Room for exactly the regions the caller says it has.
            const uint32_t room = in.ConsumeIntegralInRange<uint32_t>(1, 64);
            auto *layout = static_cast<HMX_OPT_ROM_LAYOUT *>(
                std::calloc(1, offsetof(HMX_OPT_ROM_LAYOUT, Region) + room * sizeof(HMX_OPT_ROM_REGION)));
            layout->NoOfRegions = room;
            (void)HmGetOptionRomLayout(dev, 0, layout);
            std::free(layout);
        },
        [&] {
            std::vector<uint8_t> buf(in.ConsumeIntegralInRange<uint32_t>(0, 4096));
            (void)HmGetNVRam(dev, 0, in.ConsumeIntegralInRange(0, 3), buf.data(), static_cast<uint32_t>(buf.size()));
            uint32_t n = static_cast<uint32_t>(buf.size());
            (void)HmGetVpd(dev, 0, buf.data(), &n);
        },
        [&] {
            std::vector<uint8_t> buf(in.ConsumeIntegralInRange<uint32_t>(0, 8192));
            (void)HmGetOptionRomEx(dev, 0, buf.data(), static_cast<uint32_t>(buf.size()),
                                   in.PickValueInArray<uint32_t>({0x01, 0x07, 0x05, 0xFF, 0x14, 0x2B}));
            (void)HmGetOptionRomOffset(dev, 0, buf.data(), static_cast<uint32_t>(buf.size()),
                                       in.ConsumeIntegralInRange<uint32_t>(0, 0x200000));
        },
        [&] {
            uint32_t cap = 0;
            (void)IHmFoGetFoCapability(dev, &cap);
            HMFO_DRIVER_VERSION v{};
            (void)IHmFoGetFoDriverVersion(dev, &v);
            HMFO_SYS_PARAMS sp{};
            (void)IHmFoGetSysParams(dev, &sp);
        },
    };
    while (in.remaining_bytes() > 0) calls[in.ConsumeIntegralInRange<size_t>(0, std::size(calls) - 1)]();
    g_in = nullptr;
    vxapi_clear_table();
    return 0;
}
