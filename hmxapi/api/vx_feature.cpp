// SPDX-License-Identifier: MIT
// The adapter feature table (HmGetHbaSupportedFeatureList).
#include "vx_feature.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "vx_instances.h"
#include "vx_os.h"
#include "vx_public.h"

namespace {

constexpr uint32_t kFeatureVersion = 1;
constexpr uint32_t kTableFlags = 0x2;
constexpr uint32_t kHandedOutFlags = 0x60;
constexpr uint32_t kFromOptionLine = 0x10;
constexpr std::size_t kMaxLine = 65536;

enum : uint32_t { kPersistentOnly = 1, kPersistentNew = 2, kBindWwpn = 4, kBindPid = 8, kNewOnly = 16 };
enum { kOptBind = 0, kOptConfigRequired = 1 };

struct FeatureRow {
    uint32_t id, group, minimum, maximum, initial, current;
    const char *name;
};

// Up to 32 rows; the first zero id ends the table.
constexpr std::array<FeatureRow, 6> kFeatureTable{{
    {kPersistentOnly, 2, 0, 1, 0, 0, "Persistent Only"},
    {kPersistentNew, 2, 0, 1, 1, 1, "Persistent+New"},
    {kNewOnly, 2, 0, 2, 2, 2, "New Only"},
    {kBindWwpn, 1, 0, 1, 1, 1, "Bind by WWPN"},
    {kBindPid, 1, 0, 1, 0, 0, "Bind by PID"},
    {0, 0, 0, 0, 0, 0, ""},
}};

constexpr std::array<const char *, 4> kModuleConfigFiles{
    "/etc/conf.modules", "/etc/modprobe.conf.local", "/etc/modprobe.conf", "/etc/modules.conf"};

uint32_t table_count() {
    uint32_t n = 0;
    while (n < kFeatureTable.size() && n < 32 && kFeatureTable[n].id != 0) ++n;
    return n;
}

bool parse_decimal(std::string_view text, int32_t *out) {
    if (text.empty()) return false;
    std::string s(text);
    char *end = nullptr;
    errno = 0;
    const long v = std::strtol(s.c_str(), &end, 10);
    if (end == s.c_str() || *end != '\0' || errno == ERANGE || v < INT32_MIN || v > INT32_MAX) return false;
    *out = static_cast<int32_t>(v);
    return true;
}

}  // namespace

namespace vxhmx {

std::span<const char *const> module_config_files() { return kModuleConfigFiles; }

uint32_t find_option_line(std::span<const char *const> files, std::string_view driver, std::string *line) {
    if (line == nullptr) return HMX_ERR_INVALID_PARAMETER;
    FILE *f = nullptr;
    for (const char *path : files) {
        if (vxos::access(path, F_OK) != 0) continue;
        f = vxos::fopen_read(path);
        break;  // only the first file that exists is searched
    }
    if (f == nullptr) return HMX_ERR_NO_OPTION_LINE;
    std::unique_ptr<FILE, int (*)(FILE *)> closer(f, &std::fclose);
    std::unique_ptr<char[]> buf(new (std::nothrow) char[kMaxLine]);
    if (!buf) return HMX_ERR_OUT_OF_MEMORY;
    const std::string wanted = "options " + std::string(driver);
    while (std::fgets(buf.get(), kMaxLine, f) != nullptr) {
        const char *p = buf.get();
        while (*p == ' ' || *p == '\t') ++p;
        if (*p == '#') continue;
        if (std::strstr(buf.get(), wanted.c_str()) != nullptr) {
            *line = buf.get();
            return HMX_STATUS_OK;
        }
    }
    return HMX_ERR_NO_OPTION_LINE;
}

void default_options(vxapi_drv_option_t (&options)[kDrvOptionCount]) {
    std::memset(options, 0, sizeof options);
    std::snprintf(options[kOptBind].name, sizeof options[kOptBind].name, "%s", "Bind=");
    std::snprintf(options[kOptConfigRequired].name, sizeof options[kOptConfigRequired].name, "%s", "ConfigRequired=");
}

void parse_option_line(std::string_view line, vxapi_drv_option_t (&options)[kDrvOptionCount]) {
    std::size_t pos = 0;
    while (pos < line.size()) {
        const std::size_t start = line.find_first_not_of(" \t\n", pos);
        if (start == std::string_view::npos) break;
        std::size_t end = line.find_first_of(" \t\n", start);
        if (end == std::string_view::npos) end = line.size();
        const std::string_view token = line.substr(start, end - start);
        pos = end;
        for (auto &opt : options) {
            const std::string_view name(opt.name, strnlen(opt.name, sizeof opt.name));
            if (token.size() <= name.size() || token.substr(0, name.size()) != name) continue;
            int32_t value = 0;
            if (!parse_decimal(token.substr(name.size()), &value)) continue;
            opt.value = value;
            opt.found = 1;
            break;  // next token
        }
    }
}

uint32_t build_feature_list(const vxapi_drv_option_t (&options)[kDrvOptionCount], HMX_HBA_FEATURE_LIST *list) {
    if (list == nullptr) return HMX_ERR_INVALID_PARAMETER;
    const uint32_t needed = table_count();
    if (list->Count < needed) {
        list->Count = needed;
        return HMX_ERR_BUFFER_TOO_SMALL;
    }
    const vxapi_drv_option_t &bind = options[kOptBind];
    const vxapi_drv_option_t &cfg = options[kOptConfigRequired];
    uint32_t written = 0;
    for (uint32_t i = 0; i < needed; ++i) {
        const FeatureRow &row = kFeatureTable[i];
        HMX_HBA_FEATURE f{};
        f.Version = kFeatureVersion;
        f.Size = sizeof(HMX_HBA_FEATURE);
        f.FeatureId = row.id;
        f.Group = row.group;
        f.Minimum = row.minimum;
        f.Maximum = row.maximum;
        f.InitialValue = row.initial;
        f.CurrentValue = row.current;
        f.Flags = kTableFlags + kHandedOutFlags;
        std::snprintf(f.Name, sizeof f.Name, "%s", row.name);
        switch (row.id) {
        case kPersistentOnly:
            if (cfg.found) {
                f.CurrentValue = static_cast<uint32_t>(cfg.value);  // copied as given, range unchecked
                f.Flags += kFromOptionLine;
            }
            break;
        case kPersistentNew:
            if (cfg.found) {
                f.CurrentValue = cfg.value == 0 ? 1 : 0;
                f.Flags += kFromOptionLine;
            }
            break;
        case kNewOnly:
            if (cfg.found) {
                f.CurrentValue = cfg.value == 2 ? 1 : 0;
                f.Flags += kFromOptionLine;
            }
            break;
        case kBindWwpn:
            if (bind.found) {
                if (bind.value == 0) f.CurrentValue = 1;
                if (bind.value == 1) f.CurrentValue = 0;
                f.Flags += kFromOptionLine;
            }
            break;
        case kBindPid:
            if (bind.found) {
                if (bind.value == 0) f.CurrentValue = 0;
                if (bind.value == 1) f.CurrentValue = 1;
                f.Flags += kFromOptionLine;
            }
            break;
        default:
            continue;  // unknown ids are not handed out
        }
        std::memcpy(&list->Feature[written], &f, sizeof f);
        ++written;
    }
    list->Count = written;
    return HMX_STATUS_OK;
}

}  // namespace vxhmx

uint32_t vxapi_get_drv_param_optline(int api_idx, char *line, std::size_t line_size) {
    if (line == nullptr || line_size == 0) return HMX_ERR_INVALID_PARAMETER;
    if (!vxapi_valid_index(api_idx)) return HMX_ERR_INVALID_PARAMETER;
    const vxapi_priv_db_t &rec = api_priv_data[api_idx];
    std::string found;
    const uint32_t rc = vxhmx::find_option_line(vxhmx::module_config_files(),
                                                std::string_view(rec.model, strnlen(rec.model, sizeof rec.model)), &found);
    if (rc != HMX_STATUS_OK) return rc;
    std::snprintf(line, line_size, "%s", found.c_str());
    return HMX_STATUS_OK;
}

uint32_t fea_load_int_features(uint32_t handle, vxapi_drv_option_t (&options)[kDrvOptionCount]) {
    vxhmx::default_options(options);
    uint16_t idx = 0;
    if (check_handle(handle, &idx) != 0) return HMX_ERR_INVALID_PARAMETER;
    std::string found;
    const vxapi_priv_db_t &rec = api_priv_data[idx];
    const uint32_t rc = vxhmx::find_option_line(vxhmx::module_config_files(),
                                                std::string_view(rec.model, strnlen(rec.model, sizeof rec.model)), &found);
    if (rc == HMX_ERR_NO_OPTION_LINE) return HMX_STATUS_OK;  // nothing configured is not an error
    if (rc != HMX_STATUS_OK) return rc;
    vxhmx::parse_option_line(found, options);
    return HMX_STATUS_OK;
}

extern "C" uint32_t HmGetHbaSupportedFeatureList(int Device, HMX_HBA_FEATURE_LIST *pList) {
    return guarded([&]() -> uint32_t {
        if (pList == nullptr) return HMX_ERR_INVALID_PARAMETER;
        vxapi_drv_option_t options[kDrvOptionCount];
        const uint32_t rc = fea_load_int_features(static_cast<uint32_t>(Device), options);
        if (rc != HMX_STATUS_OK) return rc;
        return vxhmx::build_feature_list(options, pList);
    });
}
