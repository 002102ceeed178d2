// SPDX-License-Identifier: MIT
// The distribution release files of the host information: the first line,
// cut at its newline or "(", becomes the host type after "Linux - ", and
// the machine name follows. The expected text is worked out here on its own
// from the file's bytes.
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "oss.h"
#include "scratch_dir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    // The first byte picks the file: the SuSE file wins when both exist.
    const std::string etc = fuzz::scratch_dir() + "/";
    const std::string suse = etc + "SuSE-release", redhat = etc + "redhat-release";
    ::unlink(suse.c_str());
    ::unlink(redhat.c_str());
    const std::span<const uint8_t> text(data + 1, size - 1);
    const std::string_view other = "Other Linux 1 (x)\n";
    switch (data[0] % 3) {
    case 0: fuzz::put_file(suse, text); break;
    case 1: fuzz::put_file(redhat, text); break;
    default:
        fuzz::put_file(suse, text);
        fuzz::put_file(redhat, other);
    }
    OSSFillHostIdentity(etc.c_str());

    struct utsname names {};
    if (uname(&names) != 0) return 0;
    std::string want = names.sysname;
    // fgets: at most 127 bytes, through the first newline; the text ends at
    // a NUL byte.
    if (!text.empty()) {
        std::string line(reinterpret_cast<const char *>(text.data()), std::min<size_t>(text.size(), 127));
        if (const size_t nl = line.find('\n'); nl != line.npos) line.resize(nl + 1);
        line.resize(std::strlen(line.c_str()));
        line = line.substr(0, line.find_first_of("\n("));
        want = "Linux - " + line;
    }
    want += ' ';
    want += names.machine;
    want.resize(std::min<size_t>(want.size(), kHostStringSize - 1));
    if (std::memchr(g_hostSystemType, '\0', sizeof g_hostSystemType) == nullptr || want != g_hostSystemType) std::abort();
    return 0;
}
