/* What the shared library shows to the world: names, dependencies, headers. */
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

#include "command.h"

namespace {

std::set<std::string> words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

TEST(SharedLibrary, ExportsWhatTheMapListsAndNothingElse) {
    std::ifstream map(VQNS_SOURCE_DIR "/ns/vqns.map");
    std::set<std::string> listed;
    for (std::string line; std::getline(map, line);) {
        std::istringstream in(line);
        std::string name;
        if (in >> name && name.size() > 1 && name.back() == ';' && name != "*;" && name != "};") {
            listed.insert(name.substr(0, name.size() - 1));
        }
    }
    ASSERT_GT(listed.size(), 200u);
    const std::set<std::string> exported =
        words(output_of("nm -D --defined-only --without-symbol-versions " VQNS_SHARED_LIBRARY
                        " | awk '$2 != \"A\" {print $3}'"));
    EXPECT_EQ(exported, listed);
}

TEST(SharedLibrary, NeedsTheRunTimeAndMathsLibrariesAlone) {
    const std::set<std::string> needed =
        words(output_of("readelf -d " VQNS_SHARED_LIBRARY " | sed -n 's/.*NEEDED.*\\[\\(.*\\)\\].*/\\1/p'"));
    EXPECT_EQ(needed, (std::set<std::string>{"libc.so.6", "libm.so.6"}));
    const std::string imports = output_of("nm -D --undefined-only " VQNS_SHARED_LIBRARY);
    for (const char* forbidden :
         {"_Zn", "_Zd", "__cxa_throw", "__gxx_personality", "pthread", " open", " printf"}) {
        EXPECT_EQ(imports.find(forbidden), std::string::npos) << forbidden << " in\n" << imports;
    }
}

TEST(SharedLibrary, KeepsToItsOwnNamesBesideAHostThatHasTheSame) {
    const std::string plain = output_of(VQNS_PLAIN_HOST), clashing = output_of(VQNS_CLASHING_HOST);
    EXPECT_EQ(plain.substr(0, 3), "45 ") << plain;
    EXPECT_EQ(plain, clashing);
}

TEST(SharedLibrary, HostsShareItsWritableVariables) {
    /* The host sees what the library writes: one place in the process for each. */
    EXPECT_EQ(output_of(VQNS_PLAIN_HOST " flags"), "get_op1 1 OverflowBit 1 bits of 255: 8\n");
}

}  // namespace
