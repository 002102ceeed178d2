// SPDX-License-Identifier: MIT
// One whole run of a library user that makes every public call, inside the
// emulator, on a port of each transport: every call returns, nothing is
// printed to standard error, the driver sees no malformed request, and the
// adapter ends byte for byte as it began (the client writes back what it
// read). Under the sanitizer build this is the library's whole-run check.
#include <gtest/gtest.h>
#include <dirent.h>

#include <map>
#include <string>
#include <vector>

#include "process.h"

namespace {

// Every file of the adapters' state: flash, NVRAM and VPD per adapter.
std::map<std::string, std::string> adapter_state(const std::string &state) {
    std::map<std::string, std::string> files;
    const std::string root = state + "/adapters";
    DIR *adapters = opendir(root.c_str());
    if (adapters == nullptr) return files;
    while (const dirent *a = readdir(adapters)) {
        if (a->d_name[0] == '.') continue;
        const std::string dir = root + "/" + a->d_name;
        DIR *d = opendir(dir.c_str());
        if (d == nullptr) continue;
        while (const dirent *f = readdir(d))
            if (f->d_name[0] != '.')
                files[std::string(a->d_name) + "/" + f->d_name] = fwtest::read_file(dir + "/" + f->d_name);
        closedir(d);
    }
    closedir(adapters);
    return files;
}

class EveryCall : public ::testing::Test {
protected:
    fwtest::RunResult run(const std::string &host, const std::vector<std::string> &command) {
        fwtest::write_file(dir_ / "host.json", host);
        return fwtest::run_in_vxemu(dir_, command);
    }
    // Runs the client on instance 0 after a run that only records the
    // adapters, and checks what every whole run must leave behind.
    std::string every_call(const std::string &host) {
        EXPECT_EQ(run(host, {"/bin/true"}).status, 0);
        const auto before = adapter_state(dir_ / "state");
        EXPECT_FALSE(before.empty());
        const auto r = run(host, {fwtest::bin_path("every_call_client"), "0"});
        EXPECT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        const std::string log = fwtest::read_file(dir_ / "state/traffic.jsonl");
        EXPECT_EQ(log.find("violation"), std::string::npos) << log;
        const auto after = adapter_state(dir_ / "state");
        EXPECT_EQ(after.size(), before.size());
        for (const auto &[name, bytes] : before) EXPECT_TRUE(after.count(name) && after.at(name) == bytes) << name;
        return r.out;
    }
    fwtest::TempDir dir_{"hmxevery"};
};

// What the client prints on a failover-capable ioctl port with a target.
const char *const kIoctlPort = R"(HmGetVersion: 0x05000700 v5.00 build7Pre1
IHmFoGetApiVersion: 0x03000106 3.0.1 build6
HmGetErrorString: Command not supported
HmXlateHMXErr: 0x20000040
HmOpenDevice: 0x00000000
HmGetHbaDeviceNodeProperty: 0x00000000 model VX2141 ports 1
HmGetHbaDevicePortProperty: 0x00000000 state 3 targets 1
HmGetHbaDeviceChipProperty: 0x00000000 device 0x1410
HmGetHbaDeviceDriverProperty: 0x00000000
HmGetHbaDeviceFirmwareProperty: 0x00000000
HmGetDiscTargetProperty: 0x00000000
HmGetDiscPortProperty: 0x00000000
HmGetPortDatabase: 0x00000000
HmGetStatistics: 0x00000000
HmGetStatisticsFC: 0x00000000
HmGetPortStatisticsFC: 0x00000000
HmResetStatistics: 0x20000066
HmGetCnaPortData: 0x20000070
HmGetSFPData: 0x00000000
HmGetBeaconControl: 0x00000000
HmUpdateBeaconControl: 0x00000000
HmGetDriverParameters: 0x20000066
HmGetFirmwareParameters: 0x20000066
HmVerifyHbaNVRam: 0x20000066
HmGetTargetIDMALinkSpeed: 0x20000066
HmSetTargetIDMALinkSpeed: 0x20000066
HmGetHbaSupportedFeatureList: 0x00000000 count 5
IHmFoGetFoCapability: 0x00000000 0x30000004
IHmFoGetFoDriverVersion: 0x00000000
IHmFoGetSysParams: 0x00000000
IHmFoSetSysParams: 0x00000000
IHmFoGetPaths: 0x00000000
IHmFoSetCurrentPath: 0x00000000
IHmFoGetStatistics: 0x00000000
IHmFoResetStatistics: 0x00000000
IHmFoGetLunData: 0x00000000
IHmFoGetLunData(store): 0x00000000
IHmFoSetLunData: 0x00000000
IHmFoGetTargetData(store): 0x00000000
IHmFoSetTargetData: 0x00000000
HmGetNVRam: 0x00000000
HmGetVariableValue: 0x0141
HmSetVariableValue: 0x00000000
HmGetVariableValue(changed copy): 0x1234
HmUpdateNVRam: 0x00000000
HmGetVpd: 0x00000000 size 512
HmUpdateVpd: 0x00000000
HmGetOptionRomLayout(count): 0x20000072 regions 5
HmGetOptionRomLayout: 0x00000000 flash 0x100000 boot region 0x07 of 0x40000
HmGetOptionRomEx: 0x00000000
HmUpdateOptionRomEx: 0x00000000
HmUpdateOptionRomEx2: 0x00000000
HmUpdateOptionRom: 0x00000000
HmGetOptionRomOffset: 0x00000000
HmUpdateOptionRomOffset: 0x00000000
HmEnableAen: 0x00000000
HmGetAen: 0x00000000 count 0
HmDisableAen: 0x00000000
HmSendScsiPassThruFC: 0x00000000
HmSendScsiInquiryCmdFC: 0x00000000
HmSendScsiReadCapacityCmdFC: 0x00000000
HmSendScsiReportLunsCmdFC: 0x00000000
HmCloseDevice: 0x00000000
)";

// Replaces in `listing` the line of each call by the given one; a line
// "Name(note): ..." replaces "Name(note): ..." or else "Name: ...".
std::string with_lines(std::string listing, const std::vector<std::string> &lines) {
    for (const std::string &line : lines) {
        const std::string name = line.substr(0, line.find(':'));
        auto at = listing.find("\n" + name + ":");
        if (at == std::string::npos) at = listing.find("\n" + name.substr(0, name.find('(')) + ":");
        if (at == std::string::npos) {
            ADD_FAILURE() << name;
            continue;
        }
        const auto end = listing.find('\n', at + 1);
        listing.replace(at + 1, end - at - 1, line);
    }
    return listing;
}

// Keeps only the call names of the lines that start with one of `names`.
std::string without_statuses(std::string listing, const std::vector<std::string> &names) {
    std::string out;
    for (size_t at = 0; at < listing.size();) {
        const size_t end = listing.find('\n', at);
        std::string line = listing.substr(at, end - at);
        for (const std::string &n : names)
            if (line.rfind(n + ":", 0) == 0) line = n;
        out += line + "\n";
        at = end + 1;
    }
    return out;
}

}  // namespace

TEST_F(EveryCall, OnAPortOfTheIoctlDriver) {
    // A failover-capable driver, an FCX141 with one target behind its port.
    const std::string out = every_call(R"({
  "driver": { "name": "vxa2xxx", "version": "8.7.3.0", "transport": "ioctl", "attributes": "0x1" },
  "adapters": [ { "name": "i141", "chip": "FCX141", "model": "VX2141", "serial": "VXI0000141",
    "flash": { "bios": "1.05", "fcode": "1.20", "efi": "1.02", "firmware": "5.1.0" },
    "functions": [ { "pci": "0000:06:00.0", "ssvid": "0x1DE5", "ssdid": "0x0141", "host": 6,
      "wwnn": "20:00:00:1d:e5:14:10:00", "wwpn": "21:00:00:1d:e5:14:10:00",
      "targets": [ { "wwpn": "50:06:0e:80:10:00:01:0a", "luns": [ { "lun": 0 }, { "lun": 1 } ] } ] } ] } ] })");
    EXPECT_EQ(out, kIoctlPort);
}

TEST_F(EveryCall, OnAPortServedThroughSysfs) {
    const std::string out = every_call(R"({
  "driver": { "name": "vxa2xxx", "version": "8.7.3.0", "transport": "sysfs" },
  "adapters": [ { "name": "s160", "chip": "FCX160", "model": "VX2162", "serial": "VXS0000160",
    "flash": { "bios": "1.10", "fcode": "2.05", "efi": "1.07", "firmware": "8.2.1" },
    "functions": [ { "pci": "0000:05:00.0", "ssvid": "0x1DE5", "ssdid": "0x0162", "host": 5,
      "wwnn": "20:00:00:1d:e5:16:00:00", "wwpn": "21:00:00:1d:e5:16:00:00" } ] } ] })");
    // Requests that only the driver node takes are not served through sysfs.
    const std::string unsupported = ": 0x20000066";
    std::vector<std::string> lines{
        "HmGetHbaDeviceNodeProperty: 0x00000000 model VX2162 ports 1",
        "HmGetHbaDevicePortProperty: 0x00000000 state 3 targets 0",
        "HmGetHbaDeviceChipProperty: 0x00000000 device 0x1600",
        "HmUpdateBeaconControl(not asked): 0x00000000",
        "IHmFoGetFoCapability: 0x00000000 0x30000002",
        "IHmFoSetSysParams(not asked): 0x00000000",
        "IHmFoSetLunData(not asked): 0x00000000",
        "IHmFoSetTargetData(not asked): 0x00000000",
        "HmGetVariableValue: 0x0162",
        "HmGetOptionRomLayout(count): 0x20000072 regions 12",
        "HmGetOptionRomLayout: 0x00000000 flash 0x100000 boot region 0x07 of 0x80000",
        "HmUpdateOptionRom: 0x20000075"};
    for (const char *call : {"HmGetDiscTargetProperty", "HmGetDiscPortProperty", "HmGetPortDatabase", "HmGetStatistics",
                             "HmGetStatisticsFC", "HmGetPortStatisticsFC", "HmGetCnaPortData", "HmGetSFPData",
                             "HmGetBeaconControl", "IHmFoGetFoDriverVersion", "IHmFoGetSysParams", "IHmFoGetPaths",
                             "IHmFoSetCurrentPath", "IHmFoGetStatistics", "IHmFoResetStatistics", "IHmFoGetLunData",
                             "IHmFoGetLunData(store)", "IHmFoGetTargetData(store)"})
        lines.push_back(call + unsupported);
    // Events and SCSI commands of a sysfs port go through its SCSI generic
    // node and transport socket: here only that each call returned counts.
    const std::vector<std::string> unchecked{"HmEnableAen", "HmDisableAen", "HmSendScsiPassThruFC",
                                             "HmSendScsiInquiryCmdFC", "HmSendScsiReadCapacityCmdFC",
                                             "HmSendScsiReportLunsCmdFC"};
    EXPECT_EQ(without_statuses(out, unchecked), without_statuses(with_lines(kIoctlPort, lines), unchecked));
}
