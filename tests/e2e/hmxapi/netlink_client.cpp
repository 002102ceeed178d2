// SPDX-License-Identifier: MIT
// The library's netlink transport on a sysfs host, run inside the emulator.
// Linked against the library's objects: the operations it carries have no
// public call of their own.
//
//   netlink_client run VXEMU STATE     sockets, port parameters, the bridge
//                                      image, loopback, events, a refused receive
//   netlink_client closed              the same operations with both sockets closed
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vx_dispatch.h"
#include "vx_instances.h"
#include "vx_load.h"
#include "vx_netlink.h"
#include "vxhmx.h"

namespace {

void port_param(const char *tag, uint16_t dest_type, uint16_t mode, uint16_t speed) {
    INT_PORT_PARAM pp{};
    pp.FCScsiAddr.DestType = dest_type;
    pp.Mode = mode;
    pp.Speed = speed;
    uint32_t st = 0xEEEE;
    const int rc = vxapi_port_param(-1, 0, reinterpret_cast<uint8_t *>(&pp), sizeof pp, &st);
    std::printf("%s: rc %d status %u speed %u\n", tag, rc, st, pp.Speed);
}

void operations(bool open) {
    port_param("get", 2, 0, 0);
    port_param("set 3", 2, 1, 3);
    port_param("set by id", 1, 1, 4);
    port_param("set 16", 2, 1, 16);
    port_param("get", 2, 0, 0);
    std::vector<uint8_t> image(65537);
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<uint8_t>(i * 7);
    uint32_t st = 0xEEEE;
    int rc = vxapi_tamar_mgmt(-1, 0, 2, image.data(), static_cast<uint32_t>(image.size()), &st);
    std::printf("bridge firmware: rc %d status %u\n", rc, st);
    uint8_t mgmt[64] = {1, 2, 3};
    rc = vxapi_tamar_mgmt(-1, 0, 3, mgmt, sizeof mgmt, &st);
    std::printf("bridge management: rc %d status %u\n", rc, st);
    std::vector<uint8_t> back(image.size() + 3, 0);
    rc = vxapi_loopback_test(-1, 0, image.data(), static_cast<uint32_t>(image.size()), back.data(), static_cast<uint32_t>(back.size()), &st);
    std::printf("loopback: rc %d status %u\n", rc, st);
    if (!open) return;
    uint8_t big[131080];
    errno = 0;
    const long n = vxapi_rcv_msg(gnl_fd, 131073, big);
    std::printf("receive of 131073: %ld errno %d\n", n, errno);
}

void events(const char *vxemu, const char *state) {
    const std::string cmd = std::string(vxemu) + " event --state " + state + " nl0 0 0x8011 0x8014";
    if (std::system(cmd.c_str()) != 0) std::printf("raise failed\n");
    EXT_ASYNC_EVENT ev[8]{};
    uint32_t st = 0xEEEE, got = 0;
    const int rc = vxapi_async_event_get(-1, 0, ev, sizeof ev, &st, &got);
    std::printf("events: rc %d status %u bytes %u codes", rc, st, got);
    for (uint32_t i = 0; i < got / 16; ++i) std::printf(" 0x%X", ev[i].AsyncEventCode);
    std::printf("\n");
}

}  // namespace

int main(int argc, char **argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const bool run = argc == 4 && std::strcmp(argv[1], "run") == 0;
    const bool closed = argc == 2 && std::strcmp(argv[1], "closed") == 0;
    if (!run && !closed) {
        std::fprintf(stderr, "usage: netlink_client run VXEMU STATE | closed\n");
        return 2;
    }
    int h = 0;
    std::printf("open: 0x%08X\n", HmOpenDevice(0, &h));
    if (closed) vxapi_close_netlink_socket();
    std::printf("features: 0x%X\n", api_priv_data[0].features & (VXF_NL_MGMT | VXF_NL_SCSI_FC));
    operations(run);
    if (run) events(argv[2], argv[3]);
    std::printf("close: 0x%08X\n", HmCloseDevice(h));
    return 0;
}
