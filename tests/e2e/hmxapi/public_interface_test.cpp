// SPDX-License-Identifier: MIT
// The library's public face: exactly the calls the header declares are
// exported, and a C program can use the header on its own. Nothing here
// loads the library's discovery (that runs only inside the emulator).
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "process.h"

namespace {

std::set<std::string> declared_calls() {
    const std::string header = fwtest::read_file(VXHMX_HEADER);
    const std::regex decl(R"(VXHMX_API\s+[A-Za-z_][A-Za-z0-9_ ]*[\s*]+([A-Za-z_][A-Za-z0-9_]*)\s*\()");
    std::set<std::string> names;
    for (std::sregex_iterator it(header.begin(), header.end(), decl), end; it != end; ++it) names.insert((*it)[1]);
    return names;
}

TEST(PublicInterface, ExportsExactlyTheDeclaredCalls) {
    const auto declared = declared_calls();
    ASSERT_GE(declared.size(), 7u);
    const auto nm = fwtest::run({NM_PROGRAM, "-D", "--defined-only", VXHMX_LIBRARY});
    ASSERT_EQ(nm.status, 0) << nm.err;
    std::set<std::string> exported;
    std::istringstream lines(nm.out);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        std::string addr, type, name;
        if (!(words >> addr >> type >> name)) continue;
        if (type == "A") continue;  // the version node itself
        const auto at = name.find('@');
        exported.insert(at == std::string::npos ? name : name.substr(0, at));
    }
    EXPECT_EQ(exported, declared);
}

TEST(PublicInterface, SonameIsVersion5) {
    const auto r = fwtest::run({READELF_PROGRAM, "-d", VXHMX_LIBRARY});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("Library soname: [libvxhmx.so.5]"), std::string::npos) << r.out;
}

TEST(PublicInterface, CProgramUsesTheHeaderAlone) {
    const auto r = fwtest::run({fwtest::bin_path("hmx_client"), "version"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out,
              "HmGetVersion=0x05000700 text=v5.00 build7Pre1\n"
              "HmGetVersion(null)=0x05000700\n"
              "IHmFoGetApiVersion=0x03000106 text=3.0.1 build6\n"
              "0x2000006D=Device not found\n"
              "0x20000048=Unknown Error 20000048h.\n"
              "2=System Error 2.\n");
}

}  // namespace
