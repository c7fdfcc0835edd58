#include "core/http/netrc.h"

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "support/temporaryfolder.h"

using namespace ZMT::CORE::IMPL;

namespace {

std::string loginOf(const std::string & text, const std::string & host) {
    const auto login = findNetrcLogin(text, host);
    return login ? login->name + "/" + login->password : "none";
}

} // namespace

TEST(Netrc, LoginIsThatOfTheHost) {
    const std::string text = "machine a login x password y\nmachine b\n  login u\n\tpassword v\n";
    EXPECT_EQ(loginOf(text, "a"), "x/y");
    EXPECT_EQ(loginOf(text, "b"), "u/v");
    EXPECT_EQ(loginOf(text, "c"), "none");
    EXPECT_EQ(loginOf("", "a"), "none");
}

TEST(Netrc, DefaultStandsInAndTheFirstEntryHolds) {
    const std::string text =
        "machine a login x password y machine a login z password z default login d password e";
    EXPECT_EQ(loginOf(text, "a"), "x/y");
    EXPECT_EQ(loginOf(text, "b"), "d/e");
}

TEST(Netrc, WordsAreQuotedAndCommentsAndMacrosSkipped) {
    EXPECT_EQ(loginOf("# machine a login no password no\nmachine a login x password #y", "a"), "x/#y");
    EXPECT_EQ(loginOf("machine a login \"x y\" password \"a\\\"b\\\\\"", "a"), "x y/a\"b\\");
    EXPECT_EQ(loginOf("macdef m\nmachine a login no password no\n\nmachine a login x password y", "a"),
              "x/y");
    EXPECT_EQ(loginOf("machine a account z login x password y", "a"), "x/y");
}

TEST(Netrc, CutTextsAreReadAsFarAsTheyGo) {
    const std::string text =
        "machine a login \"x\\\"\" password y # z\nmacdef m\nmachine b\n\ndefault login d";
    for (std::size_t size = 0; size <= text.size(); ++size)
        for (const char * host : {"a", "b"})
            findNetrcLogin(std::string(text.data(), size), host);
    EXPECT_EQ(loginOf("machine", "a"), "none");
    EXPECT_EQ(loginOf("machine a login", "a"), "/");
    EXPECT_EQ(loginOf("machine a password \"y", "a"), "/y");
    EXPECT_EQ(loginOf("machine a login x macdef m", "a"), "x/");
}

TEST(Netrc, FileIsThatOfTheVariableElseTheOneAtHome) {
    const TemporaryFolder folder;
    const std::string path = std::getenv("TMPDIR"), home = std::getenv("HOME") ? std::getenv("HOME") : "";
    std::ofstream(path + "/.netrc") << "machine a login home password h";
    std::ofstream(path + "/named") << "machine a login named password n";
    ::setenv("HOME", path.c_str(), 1);
    ::unsetenv("NETRC");
    ASSERT_TRUE(netrcLogin("a"));
    EXPECT_EQ(netrcLogin("a")->name, "home");
    ::setenv("NETRC", (path + "/named").c_str(), 1);
    ASSERT_TRUE(netrcLogin("a"));
    EXPECT_EQ(netrcLogin("a")->name, "named");
    EXPECT_FALSE(netrcLogin("b"));
    ::setenv("NETRC", (path + "/missing").c_str(), 1);
    EXPECT_FALSE(netrcLogin("a"));
    ::unsetenv("NETRC");
    ::setenv("HOME", home.c_str(), 1);
}
