// SPDX-License-Identifier: MIT
// request_bench ioctl N VXEMU STATE | netlink N   (inside `vxemu run`; see request_bench.sh)
// Linked against the library's objects: the netlink exchange has no public call.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "vx_dispatch.h"
#include "vx_ioctl.h"
#include "vx_netlink.h"
#include "vxhmx.h"

namespace {

using Clock = std::chrono::steady_clock;

double us_since(Clock::time_point t0) { return std::chrono::duration<double, std::micro>(Clock::now() - t0).count(); }

template <class F>
void time_each(const char *what, long n, F &&f) {
    const auto t0 = Clock::now();
    for (long i = 0; i < n; ++i) f();
    std::printf("%-44s %10.1f us\n", what, us_since(t0) / static_cast<double>(n));
}

DESTINATIONADDRESS dest(uint8_t last) {
    DESTINATIONADDRESS d{};
    d.AddressType = 2;
    const uint8_t wwn[8] = {0x50, 0x06, 0x0E, 0x80, 0x10, 0x00, 0x01, last};
    std::memcpy(d.AddressUsing, wwn, 8);
    return d;
}

int ioctl_bench(int h, long n, const char *vxemu, const char *state) {
    CHIPPROPERTY chip;
    time_each("plain driver request (chip property)", n, [&] { HmGetHbaDeviceChipProperty(h, &chip); });
    uint8_t resp[512], sense[32];
    DESTINATIONADDRESS a = dest(0x0A);
    time_each("INQUIRY", n, [&] { HmSendScsiInquiryCmdFC(h, &a, resp, sizeof resp, sense, sizeof sense); });
    DESTINATIONADDRESS b = dest(0x0B);
    uint8_t luns[2048];
    time_each("REPORT LUNS probe over 256 LUNs", 3, [&] {
        b.LunNumber = 0;
        HmSendScsiReportLunsCmdFC(h, &b, luns, sizeof luns, sense, sizeof sense);
    });
    // One event: raised in the driver, taken by HmGetAen once the event
    // thread's pass has fetched it.
    if (HmEnableAen(h) != 0) return 1;
    const std::string raise = std::string(vxemu) + " event --state " + state + " b0 0 0x8011";
    const auto t0 = Clock::now();
    if (std::system(raise.c_str()) != 0) return 1;
    ASYNCEVENT ev[4];
    uint32_t count = 0;
    while (count == 0 && us_since(t0) < 40e6) {
        HmGetAen(h, ev, sizeof ev, &count);
        if (count == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::printf("%-44s %10.1f us\n", "event round trip (driver event to HmGetAen)", us_since(t0));
    return 0;
}

int netlink_bench(long n) {
    INT_PORT_PARAM pp{};
    pp.FCScsiAddr.DestType = 2;
    uint32_t st = 0;
    time_each("netlink port-parameter exchange", n, [&] {
        pp.Mode = 0;
        vxapi_port_param(-1, 0, reinterpret_cast<uint8_t *>(&pp), sizeof pp, &st);
    });
    return st == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) return 2;
    const long n = std::strtol(argv[2], nullptr, 10);
    int h = 0;
    if (HmOpenDevice(0, &h) != 0) return 1;
    int rc = 2;
    if (std::strcmp(argv[1], "ioctl") == 0 && argc == 5) rc = ioctl_bench(h, n, argv[3], argv[4]);
    else if (std::strcmp(argv[1], "netlink") == 0) rc = netlink_bench(n);
    HmCloseDevice(h);
    return rc;
}
