# SPDX-License-Identifier: MIT
# Warnings for our own targets; third-party headers come in as system headers.
function(fw_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wformat=2 -Wvla)
  if(FW_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
