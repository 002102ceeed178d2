// SPDX-License-Identifier: MIT
// Adapter inventory on hand-built records: the chip-class views of a port,
// the open loop's retry rules, the two orderings of the tool's device list,
// the port numbering and the status word of the listings, and the targets,
// LUNs and event reporting of a port's record.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "adapter_list.h"
#include "chip_class.h"
#include "core.h"
#include "display.h"
#include "oem_rules.h"

namespace {

HMXDevice *device(uint32_t instance, const char *wwpnText, const char *wwnnText = "2000001de5000000") {
    auto *d = static_cast<HMXDevice *>(CoreZMalloc(sizeof(HMXDevice)));
    d->instance = instance;
    for (int i = 0; i < 8; ++i) {
        d->portProperty.WWN[i] = static_cast<uint8_t>(std::stoul(std::string(wwpnText + 2 * i, 2), nullptr, 16));
        d->nodeProperty.WWN[i] = static_cast<uint8_t>(std::stoul(std::string(wwnnText + 2 * i, 2), nullptr, 16));
    }
    return d;
}

std::vector<uint32_t> instances(const DeviceList *list) {
    std::vector<uint32_t> out;
    for (const HMXDevice *d = list->first; d != nullptr; d = d->next) out.push_back(d->instance);
    return out;
}

// The adapter records the serial ordering and the numbering look ports up in.
class InventoryLists : public testing::Test {
protected:
    void TearDown() override {
        for (DeviceList *l : lists_) FreeDeviceListCopy(l);
        g_AdapterList.remove_all([](Adapter *a) { CoreFree(a); });
    }
    // A port of an adapter with this serial ("" for none).
    HMXDevice *port(uint32_t instance, const char *wwpnText, const char *serial) {
        HMXDevice *d = device(instance, wwpnText);
        Adapter *a = CreateNewAdapter();
        a->instance = instance;
        std::memcpy(a->nodeWWN, d->nodeProperty.WWN, 8);
        std::memcpy(a->portWWN, d->portProperty.WWN, 8);
        std::strcpy(a->serialNumber, serial);
        EXPECT_EQ(AddAdapterToAdapterList(a), 0);
        return d;
    }
    DeviceList *list(std::vector<HMXDevice *> nodes) {
        auto *l = static_cast<DeviceList *>(CoreZMalloc(sizeof(DeviceList)));
        for (HMXDevice *n : nodes) l->append(n);
        lists_.push_back(l);
        return l;
    }
    DeviceList *keep(DeviceList *l) {
        lists_.push_back(l);
        return l;
    }
    std::vector<DeviceList *> lists_;
};

}  // namespace

TEST(ChipClassViews, EveryChipOfTheClassTable) {
    struct Row {
        uint16_t id;
        int type, fourGb, eightGb, fourAndEight, twoG, eighteenY;
    };
    const Row rows[] = {
        {0x1000, 0, 0, 0, 0, -1, 0},  {0x1100, 1, 0, 0, 0, 0, 0},   {0x1200, 2, 0, 0, 0, 1, 0},
        {0x1210, 3, 0, 0, 0, 1, 0},   {0x1220, 4, 0, 0, 0, 1, 0},   {0x1230, 5, 0, 0, 0, 3, 0},
        {0x1260, 6, 0, 0, 0, 2, 0},   {0x1270, 7, 0, 0, 0, 4, 0},   {0x1440, 8, 2, 0, 2, -1, 0},
        {0x1450, 9, 2, 0, 2, -1, 0},  {0x1400, 10, 1, 0, 1, -1, 0}, {0x1410, 11, 1, 0, 1, -1, 0},
        {0x1600, 12, 0, 1, 4, -1, 0}, {0x1500, 13, 0, 0, 3, -1, 0}, {0x1820, 14, 0, 0, 0, -1, 1},
        {0x1800, 15, 0, 0, 0, -1, 2}, {0x1830, 16, 0, 0, 0, -1, 3}, {0x1810, 17, 0, 0, 0, -1, 4},
        {0x1840, 18, 0, 0, 0, -1, 5}, {0x1850, 19, 0, 0, 0, -1, 6}, {0x2532, 100, 0, 0, 0, -1, 0},
    };
    HMXDevice d{};
    for (const Row &r : rows) {
        d.chipProperty.DeviceID = r.id;
        EXPECT_EQ(CoreGetFCXType(&d), r.type) << std::hex << r.id;
        EXPECT_EQ(CoreGetFCX4GbType(&d), r.fourGb) << std::hex << r.id;
        EXPECT_EQ(CoreGetFCX8GbType(&d), r.eightGb) << std::hex << r.id;
        EXPECT_EQ(Get4GbAnd8GbFCXType(&d), r.fourAndEight) << std::hex << r.id;
        EXPECT_EQ(FindWhichFCX2GType(&d), r.twoG) << std::hex << r.id;
        EXPECT_EQ(CoreGetFCX18yType(&d), r.eighteenY) << std::hex << r.id;
    }
    EXPECT_EQ(CoreGetFCXType(nullptr), 0);
    EXPECT_EQ(CoreGetFCX4GbType(nullptr), 0);
    EXPECT_EQ(CoreGetFCX8GbType(nullptr), 0);
    EXPECT_EQ(CoreGetFCX18yType(nullptr), 0);
    EXPECT_EQ(Get4GbAnd8GbFCXType(nullptr), -1);
    EXPECT_EQ(FindWhichFCX2GType(nullptr), -1);
}

namespace {

// A scripted library: the statuses each instance answers in turn (the last
// one repeats), and what the loop did with them.
struct FakeLibrary {
    std::map<uint32_t, std::vector<uint32_t>> answers;
    std::vector<uint32_t> opened;
    std::vector<uint32_t> found;
    unsigned slept = 0;
};
FakeLibrary *g_fake;

uint32_t fake_open(uint32_t instance, int *handle) {
    g_fake->opened.push_back(instance);
    auto it = g_fake->answers.find(instance);
    if (it == g_fake->answers.end()) return HMX_ERR_DEVICE_NOT_FOUND;
    std::vector<uint32_t> &seq = it->second;
    const uint32_t status = seq.front();
    if (seq.size() > 1) seq.erase(seq.begin());
    *handle = static_cast<int>(instance) + 1;
    return status;
}
void fake_sleep(unsigned seconds) { g_fake->slept += seconds; }
void fake_found(int, uint32_t instance) { g_fake->found.push_back(instance); }

FakeLibrary run_loop(std::map<uint32_t, std::vector<uint32_t>> answers) {
    FakeLibrary fake;
    fake.answers = std::move(answers);
    g_fake = &fake;
    CoreRunOpenLoop(OpenLoopCalls{fake_open, fake_sleep, fake_found});
    g_fake = nullptr;
    return fake;
}

constexpr uint32_t kRetry = HMX_ERR_UNSUPPORTED_VERSION;

}  // namespace

TEST(OpenLoop, TheRetryAllowanceIsSharedAndRenewedOnlyByASuccessfulOpen) {
    // Two ports that keep failing: the first is retried twice, the second
    // is skipped at once; the loop ends at the first "not found".
    auto f = run_loop({{0, {0}}, {1, {kRetry}}, {2, {kRetry}}, {3, {0}}});
    EXPECT_EQ(f.opened, (std::vector<uint32_t>{0, 1, 1, 1, 2, 3, 4}));
    EXPECT_EQ(f.found, (std::vector<uint32_t>{0, 3}));
    EXPECT_EQ(f.slept, 10u);

    // A success in between gives the allowance back.
    f = run_loop({{0, {kRetry, 0}}, {1, {kRetry, kRetry, 0}}, {2, {kRetry}}});
    EXPECT_EQ(f.opened, (std::vector<uint32_t>{0, 0, 1, 1, 1, 2, 2, 2, 3}));
    EXPECT_EQ(f.found, (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(f.slept, 25u);
}

TEST(OpenLoop, OtherErrorsSkipTheInstanceAndInstance30IsTheLast) {
    auto f = run_loop({{0, {HMX_ERR_INVALID_PARAMETER}}, {1, {5 /* EIO */}}, {2, {0}}});
    EXPECT_EQ(f.opened, (std::vector<uint32_t>{0, 1, 2, 3}));
    EXPECT_EQ(f.found, (std::vector<uint32_t>{2}));
    EXPECT_EQ(f.slept, 0u);

    std::map<uint32_t, std::vector<uint32_t>> all;
    for (uint32_t i = 0; i < 32; ++i) all[i] = {0};
    f = run_loop(all);
    EXPECT_EQ(f.found.size(), 31u);
    EXPECT_EQ(f.opened.back(), 30u);

    // No adapter at all: one open, nothing found.
    f = run_loop({});
    EXPECT_EQ(f.opened, (std::vector<uint32_t>{0}));
    EXPECT_TRUE(f.found.empty());
}

TEST_F(InventoryLists, PortWWNOrderKeepsArrivalOrderForEqualNames) {
    DeviceList *l = list({});
    InsertDeviceOrdered(l, device(0, "21000024ff000003"), CompareByPortWWNText);
    InsertDeviceOrdered(l, device(1, "21000024ff000001"), CompareByPortWWNText);
    InsertDeviceOrdered(l, device(2, "21000024ff000003"), CompareByPortWWNText);
    InsertDeviceOrdered(l, device(3, "21000024ff0000a0"), CompareByPortWWNText);
    InsertDeviceOrdered(l, device(4, "21000024ff000002"), CompareByPortWWNText);
    EXPECT_EQ(instances(l), (std::vector<uint32_t>{1, 4, 0, 2, 3}));
    EXPECT_EQ(l->count, 5u);
    EXPECT_EQ(l->last->instance, 3u);
    EXPECT_EQ(l->last->prev->instance, 2u);
}

TEST_F(InventoryLists, SerialOrderThenPortWWNAndThePortNumbers) {
    // Already in port-WWN order, as the serial ordering receives them.
    DeviceList *byWWPN = list({
        port(4, "2100001de5000000", "VXB2"),
        port(3, "2100001de5000001", "VXA1"),
        port(2, "2100001de5000010", "VXB2"),
        port(0, "2100001de5000011", "VXA1"),
        port(1, "2100001de5000012", ""),
        port(5, "2100001de5000013", "N/A"),
    });
    DeviceList *bySerial = keep(BuildUTILDeviceList(byWWPN));
    ASSERT_NE(bySerial, nullptr);
    EXPECT_EQ(instances(bySerial), (std::vector<uint32_t>{1, 5, 3, 0, 4, 2}));
    EXPECT_EQ(instances(byWWPN), (std::vector<uint32_t>{4, 3, 2, 0, 1, 5}));  // left as it was

    NumberPorts(bySerial);
    std::map<uint32_t, uint32_t> index;
    for (const HMXDevice *d = bySerial->first; d != nullptr; d = d->next) index[d->instance] = d->portIndex;
    // Ports without a serial share the one count of "N/A" across adapters.
    EXPECT_EQ(index, (std::map<uint32_t, uint32_t>{{1, 1}, {5, 2}, {3, 1}, {0, 2}, {4, 1}, {2, 2}}));
}

TEST_F(InventoryLists, PortNamesDifferingInTheLastDigit) {
    DeviceList *l = list({});
    InsertDeviceOrdered(l, port(0, "2100001de5160001", "VXA4200160"), CompareByPortWWNText);
    InsertDeviceOrdered(l, port(1, "2100001de5160000", "VXA4200160"), CompareByPortWWNText);
    InsertDeviceOrdered(l, port(2, "2100001de5140000", "VXA4200141"), CompareByPortWWNText);
    NumberPorts(l);
    EXPECT_EQ(instances(l), (std::vector<uint32_t>{2, 1, 0}));
    EXPECT_EQ(FindAdapterByWWPN(l->first->portProperty.WWN), nullptr);  // not the tool's list
    EXPECT_EQ(l->first->portIndex, 1u);
    EXPECT_EQ(l->first->next->portIndex, 1u);
    EXPECT_EQ(l->last->portIndex, 2u);
    EXPECT_EQ(GetPortIndex(nullptr), 1u);
}

TEST_F(InventoryLists, ASecondRecordOfTheSamePortIsNotAdded) {
    HMXDevice *d = port(0, "2100001de5160000", "S1");
    Adapter *again = CreateNewAdapter();
    std::memcpy(again->nodeWWN, d->nodeProperty.WWN, 8);
    std::memcpy(again->portWWN, d->portProperty.WWN, 8);
    EXPECT_EQ(AddAdapterToAdapterList(again), -1);
    again->portId[2] = 1;  // another port ID is another port
    EXPECT_EQ(AddAdapterToAdapterList(again), 0);
    EXPECT_EQ(g_AdapterList.count, 2u);
    EXPECT_STREQ(GetAdapterSerial(d), "S1");
    DeleteDevice(d);
}

TEST(StatusWord, ReadsTheFirstFieldAdjustedByThePortStateWithoutChangingIt) {
    HMXDevice d{};
    struct Case {
        uint32_t instance;
        uint8_t state;
        const char *text;
    };
    const Case cases[] = {
        {0, 3, "Loop down"},     {0, 1, "Online"}, {0, 2, "Online"},       {1, 1, "Online"},
        {2, 2, "System Error"},  {2, 3, "Unknown"},  // two bits set
        {4, 0, "Lip occurred"},  {8, 2, "Loop up"}, {0x1001, 1, "Online"}, {0x1000, 1, "Send loop down update"},
        {16, 4, "Port update"},  {3, 1, "System Error"}, {5, 2, "Unknown"},
    };
    for (const Case &c : cases) {
        d.instance = c.instance;
        d.portProperty.PortState = c.state;
        EXPECT_STREQ(GetAdapterStatusText(GetAdapterStatusWord(&d)), c.text) << c.instance << "/" << int(c.state);
        EXPECT_EQ(d.instance, c.instance);
    }
    EXPECT_STREQ(GetAdapterStatusText(8192), "Alt WWN active");
    EXPECT_STREQ(GetAdapterStatusText(16384), "Disable");
    EXPECT_STREQ(GetAdapterStatusText(32768), "Currently up");
}

TEST(OemRules, BladeSuffixIsAppendedOnceAndNeverPastTheBuffer) {
    char model[32] = "VX2462M";
    EXPECT_EQ(UpdateModelStringForBladeServer(model, sizeof model), 1);
    EXPECT_STREQ(model, "VX2462M-BS");
    EXPECT_EQ(UpdateModelStringForBladeServer(model, sizeof model), 0);
    EXPECT_STREQ(model, "VX2462M-BS");

    char rack[32] = "VX2462";
    EXPECT_EQ(UpdateModelStringForBladeServer(rack, sizeof rack), 0);
    EXPECT_STREQ(rack, "VX2462");

    char tight[10] = "VX2160M";  // 7 + 3 characters leave no room for the zero
    EXPECT_EQ(UpdateModelStringForBladeServer(tight, sizeof tight), 0);
    EXPECT_STREQ(tight, "VX2160M");
    EXPECT_EQ(isSingleBIOSChipOEM(nullptr), -1);
    EXPECT_EQ(hasSingleBIOSChip(nullptr), -1);
}

namespace {

// A scripted fabric behind one port: what each target answers, and every
// SCSI call the retrieval made.
struct FakeTarget {
    uint8_t wwpn[8];
    uint32_t inquiryStatus = 0;
    uint32_t reportStatus = 0;
    std::vector<uint8_t> reportList;  // the REPORT LUNS answer
    std::map<uint16_t, uint32_t> capacityStatus;
};
struct FakeFabric {
    std::vector<FakeTarget> targets;
    uint32_t failAtTarget = UINT32_MAX;
    std::vector<std::string> calls;
};
FakeFabric *g_fabric;

const FakeTarget *addressed(const DESTINATIONADDRESS *a) {
    for (const FakeTarget &t : g_fabric->targets)
        if (a->AddressType == 2 && std::memcmp(a->AddressUsing, t.wwpn, 8) == 0) return &t;
    ADD_FAILURE() << "a command to no target";
    return nullptr;
}
std::string lun_of(const DESTINATIONADDRESS *a) {
    return std::to_string(a->AddressUsing[7]) + "/" + std::to_string(a->LunNumber);
}

uint32_t fake_disc_target(int handle, uint16_t port, uint32_t index, uint32_t getType, DISCPORTPROPERTY *p) {
    EXPECT_EQ(handle, 7);
    EXPECT_EQ(port, 0);
    EXPECT_EQ(getType, 0u);
    g_fabric->calls.push_back("target " + std::to_string(index));
    if (index >= g_fabric->failAtTarget || index >= g_fabric->targets.size()) return HMX_ERR_DEVICE_NOT_FOUND;
    std::memcpy(p->PortWWN, g_fabric->targets[index].wwpn, 8);
    return 0;
}
uint32_t fake_inquiry(int, DESTINATIONADDRESS *a, uint8_t *resp, uint32_t size, uint8_t *, uint32_t) {
    g_fabric->calls.push_back("inquiry " + lun_of(a) + " " + std::to_string(size));
    const FakeTarget *t = addressed(a);
    if (t == nullptr || t->inquiryStatus != 0) return t == nullptr ? HMX_ERR_UNKNOWN : t->inquiryStatus;
    std::memset(resp, 0, size);
    std::memcpy(resp + 8, "VARNIX  ", 8);
    return 0;
}
uint32_t fake_report_luns(int, DESTINATIONADDRESS *a, uint8_t *resp, uint32_t size, uint8_t *, uint32_t) {
    g_fabric->calls.push_back("report " + lun_of(a));
    const FakeTarget *t = addressed(a);
    if (t == nullptr) return HMX_ERR_UNKNOWN;
    std::memset(resp, 0, size);
    std::memcpy(resp, t->reportList.data(), std::min<size_t>(size, t->reportList.size()));
    return t->reportStatus;
}
uint32_t fake_read_capacity(int, DESTINATIONADDRESS *a, uint8_t *resp, uint32_t size, uint8_t *, uint32_t) {
    g_fabric->calls.push_back("capacity " + lun_of(a));
    const FakeTarget *t = addressed(a);
    if (t == nullptr || size != 8) return HMX_ERR_UNKNOWN;
    auto it = t->capacityStatus.find(a->LunNumber);
    if (it != t->capacityStatus.end()) return it->second;
    const uint8_t answer[8] = {0, 0x1F, 0xFF, static_cast<uint8_t>(a->LunNumber), 0, 0, 0x02, 0};
    std::memcpy(resp, answer, 8);
    return 0;
}

// A REPORT LUNS answer: the list length, then one entry per LUN.
std::vector<uint8_t> lun_list(std::vector<std::array<uint8_t, 2>> entries, uint32_t length = UINT32_MAX) {
    if (length == UINT32_MAX) length = static_cast<uint32_t>(entries.size() * 8);
    std::vector<uint8_t> b{static_cast<uint8_t>(length >> 24), static_cast<uint8_t>(length >> 16),
                           static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), 0, 0, 0, 0};
    for (const auto &e : entries) b.insert(b.end(), {e[0], e[1], 0, 0, 0, 0, 0, 0});
    return b;
}

struct ProbedPort {
    HMXDevice *device;
    std::vector<std::string> calls;
    ~ProbedPort() { DeleteDevice(device); }
};

std::unique_ptr<ProbedPort> probe(FakeFabric fabric, uint16_t reportedTargets) {
    auto port = std::make_unique<ProbedPort>();
    port->device = static_cast<HMXDevice *>(CoreZMalloc(sizeof(HMXDevice)));
    port->device->handle = 7;
    port->device->portProperty.DiscTargetCount = reportedTargets;
    g_fabric = &fabric;
    CoreReadTargets(port->device, TargetProbeCalls{fake_disc_target, fake_inquiry, fake_report_luns,
                                                   fake_read_capacity});
    g_fabric = nullptr;
    port->calls = fabric.calls;
    return port;
}

// "lun:lastBlock/blockSize" per LUN, "lun:-" where READ CAPACITY failed.
std::vector<std::string> luns(const HMXTarget *t) {
    std::vector<std::string> out;
    for (const HMXLun *l = t->luns.first; l != nullptr; l = l->next)
        out.push_back(std::to_string(l->lun) + ":" +
                      (l->capacityValid ? std::to_string(l->lastBlock) + "/" + std::to_string(l->blockSize) : "-"));
    return out;
}

}  // namespace

TEST(TargetRetrieval, EachTargetIsAskedItsLunsAndTheirCapacitiesAndAFailureStopsNothingElse) {
    FakeFabric fabric;
    // A: two LUNs, the second in flat addressing; LUN 0 does not report its size.
    fabric.targets.push_back({{0x50, 0, 0, 0, 0, 0, 0, 0xA}, 0, 0, lun_list({{0, 0}, {0x40, 0x05}}),
                              {{0, HMX_ERR_SCSI_CHECK_CONDITION}}});
    // B: does not know REPORT LUNS; the library's probe found LUNs 0 and 2
    // and measured them already.
    fabric.targets.push_back(
        {{0x50, 0, 0, 0, 0, 0, 0, 0xB}, 0, HMX_ERR_NOT_FROM_DEVICE, lun_list({{0, 0}, {0, 2}}), {}});
    // C: answers neither INQUIRY nor REPORT LUNS.
    fabric.targets.push_back({{0x50, 0, 0, 0, 0, 0, 0, 0xC}, HMX_ERR_UNKNOWN, HMX_ERR_SCSI_CHECK_CONDITION,
                              lun_list({{0, 1}}), {}});
    auto p = probe(fabric, 3);
    EXPECT_EQ(p->calls, (std::vector<std::string>{"target 0", "inquiry 10/0 36", "report 10/0", "capacity 10/0",
                                                  "capacity 10/5", "target 1", "inquiry 11/0 36", "report 11/0",
                                                  "target 2", "inquiry 12/0 36",
                                                  "report 12/0"}));
    const TargetList &targets = p->device->targets;
    ASSERT_EQ(targets.count, 3u);
    const HMXTarget *a = targets.first;
    EXPECT_TRUE(a->inquiryValid);
    EXPECT_EQ(std::memcmp(a->inquiry + 8, "VARNIX", 6), 0);
    EXPECT_EQ(luns(a), (std::vector<std::string>{"0:-", "5:2096901/512"}));
    EXPECT_EQ(luns(a->next), (std::vector<std::string>{"0:-", "2:-"}));
    EXPECT_FALSE(targets.last->inquiryValid);
    EXPECT_EQ(luns(targets.last), std::vector<std::string>{});
}

TEST(TargetRetrieval, TheListEndsAtTheFirstTargetTheDriverDoesNotKnowAndLongLunListsAreCut) {
    FakeFabric fabric;
    // The list length counts 300 LUNs; only as many as fit are read.
    std::vector<std::array<uint8_t, 2>> many;
    for (int i = 0; i < 300; ++i) many.push_back({static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)});
    fabric.targets.push_back({{0x50, 0, 0, 0, 0, 0, 0, 1}, 0, 0, lun_list(many), {}});
    fabric.targets.push_back({{0x50, 0, 0, 0, 0, 0, 0, 2}, 0, 0, lun_list({}), {}});
    fabric.failAtTarget = 1;
    auto p = probe(fabric, 5);
    ASSERT_EQ(p->device->targets.count, 1u);
    const std::vector<std::string> found = luns(p->device->targets.first);
    ASSERT_EQ(found.size(), 256u);
    EXPECT_EQ(found.back(), "255:2097151/512");
    EXPECT_EQ(p->calls.back(), "target 1");

    // No target reported: nothing is asked.
    EXPECT_EQ(probe(FakeFabric{}, 0)->calls, std::vector<std::string>{});
}

namespace {
uint32_t g_enableStatus;
int g_enabledHandle;
uint32_t fake_enable(int handle) {
    g_enabledHandle = handle;
    return g_enableStatus;
}
}  // namespace

TEST(EventReporting, TheFlagFollowsTheLastEnable) {
    HMXDevice d{};
    d.handle = 4;
    d.statusFlags = kDeviceFailoverKindA;
    g_enableStatus = 0;
    CoreEnableEvents(&d, fake_enable);
    EXPECT_EQ(g_enabledHandle, 4);
    EXPECT_EQ(d.statusFlags, kDeviceFailoverKindA | kDeviceAenEnabled);
    g_enableStatus = HMX_ERR_NOT_SUPPORTED;
    CoreEnableEvents(&d, fake_enable);
    EXPECT_EQ(d.statusFlags, kDeviceFailoverKindA);
}
