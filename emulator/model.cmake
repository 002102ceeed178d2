# SPDX-License-Identifier: MIT
# vxemu's host model, flash layouts, image kit, the view show and diff take
# of an adapter, the common option parser and the mkimage sub-command:
# one static library shared by the vxemu executable and the emulator's unit
# tests. The lab host description is compiled in, so `vxemu run` works
# without --host.
set(vxemu_lab_host ${PROJECT_SOURCE_DIR}/examples/lab/host.json)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${vxemu_lab_host})
file(READ ${vxemu_lab_host} vxemu_lab_host_json)
file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/builtin_host.cpp @ONLY CONTENT
"// SPDX-License-Identifier: MIT
// Generated from examples/lab/host.json; do not edit.
namespace vxemu {
extern const char *const kBuiltinHostJson;
const char *const kBuiltinHostJson = R\"vxlabhost(@vxemu_lab_host_json@)vxlabhost\";
}  // namespace vxemu
")

add_library(vxemu_model STATIC
  ${CMAKE_CURRENT_LIST_DIR}/adapter_view.cpp
  ${CMAKE_CURRENT_LIST_DIR}/chipdata.cpp
  ${CMAKE_CURRENT_LIST_DIR}/command_line.cpp
  ${CMAKE_CURRENT_LIST_DIR}/flash_layout.cpp
  ${CMAKE_CURRENT_LIST_DIR}/imagekit.cpp
  ${CMAKE_CURRENT_LIST_DIR}/host_model.cpp
  ${CMAKE_CURRENT_LIST_DIR}/state_files.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mkimage_cli.cpp
  ${CMAKE_CURRENT_BINARY_DIR}/builtin_host.cpp)
target_include_directories(vxemu_model PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(vxemu_model PUBLIC nlohmann_json::nlohmann_json)
fw_warnings(vxemu_model)
