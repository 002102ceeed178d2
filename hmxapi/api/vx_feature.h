// SPDX-License-Identifier: MIT
// The adapter feature table: binding and configuration-store features with
// their current values from the driver's module option line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "vxhmx.h"

// A driver option read from the option line (40 bytes).
struct vxapi_drv_option_t {
    uint16_t found;
    uint16_t reserved;
    int32_t value;
    char name[32];
};
static_assert(sizeof(vxapi_drv_option_t) == 40);
static_assert(sizeof(HMX_HBA_FEATURE) == 88);

inline constexpr int kDrvOptionCount = 2;  // "Bind=", "ConfigRequired="

namespace vxhmx {

// The module configuration files, searched in this order; only the first
// that exists is read.
std::span<const char *const> module_config_files();

// Finds the "options <driver>" line in the first existing file of files.
// Returns 0, HMX_ERR_NO_OPTION_LINE, HMX_ERR_OUT_OF_MEMORY or
// HMX_ERR_INVALID_PARAMETER.
uint32_t find_option_line(std::span<const char *const> files, std::string_view driver, std::string *line);

// Sets the option records from the tokens of an option line.
void parse_option_line(std::string_view line, vxapi_drv_option_t (&options)[kDrvOptionCount]);
void default_options(vxapi_drv_option_t (&options)[kDrvOptionCount]);

// Fills the caller's list from the table and the options.
uint32_t build_feature_list(const vxapi_drv_option_t (&options)[kDrvOptionCount], HMX_HBA_FEATURE_LIST *list);

}  // namespace vxhmx

uint32_t vxapi_get_drv_param_optline(int api_idx, char *line, std::size_t line_size);
uint32_t fea_load_int_features(uint32_t handle, vxapi_drv_option_t (&options)[kDrvOptionCount]);
