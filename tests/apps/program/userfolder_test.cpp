#include "program/userfolder.h"

#include <gtest/gtest.h>

#include <support/environmentvariable.h>

#include <nbx/data/locator.h>

namespace {

TEST(UserFolder, IsWhereTheEnvironmentSays) {
    const EnvironmentVariable home("HOME", "/home/somebody");
    for (const char * name : {"/var/c", "/var//c/"}) {
        const EnvironmentVariable folder("XDG_CONFIG_HOME", name);
        EXPECT_EQ(userFolder(), "/var/c/zmt/");
    }
    for (const char * none : {static_cast<const char *>(nullptr), "", "relative/c"}) {
        const EnvironmentVariable folder("XDG_CONFIG_HOME", none);
        EXPECT_EQ(userFolder(), "/home/somebody/.config/zmt/") << (none ? none : "unset");
        const EnvironmentVariable nobody("HOME", none);
        EXPECT_EQ(userFolder(), "");
    }
}

TEST(PercentEncoding, KeepsWhatFilesOfSettingsKeep) {
    EXPECT_EQ(percentEncoded("/a-b_c.d~e/F9:1,2+3"), "/a-b_c.d~e/F9:1,2+3");
    EXPECT_EQ(percentEncoded(" a=b%20\n"), "%20a%3Db%2520%0A");
    EXPECT_EQ(percentEncoded("Z\xC3\xBC \xFF"), "Z%C3%BC%20%FF");
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += char(byte);
    EXPECT_EQ(NBX::Locator::decoded(percentEncoded(all)), all);
}

} // namespace
