// SPDX-License-Identifier: MIT
// The least a program can do to write what the default update writes: the
// images patched once beforehand ("prepare", with the tool's own patch
// routines and no adapter), then, inside the emulator, only the library's
// region writes with those bytes ("write"). The update benchmark times the
// tool against this.
//
// Plan lines: INSTANCE CHIP SSVID MODEL IMAGE REGION:OFFSET:SIZE[,...]
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "flash_defaults.h"
#include "multiboot.h"
#include "vxhmx.h"

namespace {

struct Write {
    uint32_t region, offset, size;
};

struct Step {
    uint32_t instance = 0;
    std::string chip, model, image;
    uint16_t ssvid = 0;
    std::vector<Write> writes;
};

std::vector<Step> read_plan(const char *path) {
    std::vector<Step> plan;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        Step s;
        std::string ssvid, writes;
        fields >> s.instance >> s.chip >> ssvid >> s.model >> s.image >> writes;
        s.ssvid = static_cast<uint16_t>(std::strtoul(ssvid.c_str(), nullptr, 0));
        std::istringstream list(writes);
        std::string w;
        while (std::getline(list, w, ',')) {
            char *end = nullptr;
            const auto region = static_cast<uint32_t>(std::strtoul(w.c_str(), &end, 0));
            const auto offset = static_cast<uint32_t>(std::strtoul(*end == ':' ? end + 1 : end, &end, 0));
            const auto size = static_cast<uint32_t>(std::strtoul(*end == ':' ? end + 1 : end, &end, 0));
            s.writes.push_back({region, offset, size});
        }
        plan.push_back(s);
    }
    return plan;
}

std::vector<uint8_t> load(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

int prepare(const std::vector<Step> &plan, const std::string &dir) {
    for (const Step &s : plan) {
        std::vector<uint8_t> image = load(s.image);
        uint32_t region = 0xFF;
        const int rc = ValidateMultibootForChip(s.chip.c_str(), s.ssvid, image, static_cast<int32_t>(image.size()),
                                                s.model.c_str(), 0, &region);
        if (rc != 0) {
            std::fprintf(stderr, "%s: check failed (%d)\n", s.image.c_str(), rc);
            return 1;
        }
        // What the region update hands over: a blank region buffer.
        const std::vector<uint8_t> blank(image.size(), 0);
        PreserveFlashDefaultsForChip(s.chip == "FCX160" ? 1 : 0, blank, image);
        std::ofstream out(dir + "/" + s.image + ".patched", std::ios::binary);
        out.write(reinterpret_cast<const char *>(image.data()), static_cast<std::streamsize>(image.size()));
        if (!out) return 1;
    }
    return 0;
}

int write(const std::vector<Step> &plan, const std::string &dir) {
    // Every handle stays open until the end: the library unloads at the last
    // close, and the tool, too, holds all its ports open for the whole run.
    std::vector<int> handles;
    int status = 0;
    for (const Step &s : plan) {
        int handle = 0;
        if (HmOpenDevice(s.instance, &handle) != 0) {
            status = 1;
            break;
        }
        handles.push_back(handle);
    }
    for (size_t i = 0; status == 0 && i < handles.size(); ++i) {
        const Step &s = plan[i];
        std::vector<uint8_t> image = load(dir + "/" + s.image + ".patched");
        for (const Write &w : s.writes) {
            const uint32_t rc = static_cast<uint64_t>(w.offset) + w.size > image.size()
                                    ? 1
                                    : HmUpdateOptionRomEx(handles[i], 0, image.data() + w.offset, w.size, w.region);
            if (rc != 0) {
                std::fprintf(stderr, "instance %u region 0x%x: 0x%x\n", s.instance, w.region, rc);
                status = 1;
                break;
            }
        }
    }
    for (int handle : handles) HmCloseDevice(handle);
    return status;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: update_bench_client prepare|write PLAN DIR\n");
        return 2;
    }
    const std::vector<Step> plan = read_plan(argv[2]);
    const std::string mode = argv[1];
    if (mode == "prepare") return prepare(plan, argv[3]);
    if (mode == "write") return write(plan, argv[3]);
    return 2;
}
