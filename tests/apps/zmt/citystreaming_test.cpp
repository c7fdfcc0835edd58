// A city on a web server is drawn as that in files, in one call.

#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <nbx/object/stringutils.h>

#include "support/scriptedhttpserver.h"
#include "support/zmtrun.h"

namespace {

class CityFromServer : public testing::Test {
protected:
    void SetUp() override {
        const RunResult run =
            zmt({"build", "city", std::string(ZMT_DATA_DIR) + "/../tests/data/models/prism.obj", "--at",
                 "370000.25,5800000.5,40", "--system", "EPSG:32633", "--atlas-size", "64", "--out",
                 folder.out("p.city")});
        ASSERT_EQ(0, run.status) << run.errors;
        for (const char * name : {"p.city", "p.1.opaque.city"})
            server.setFile(std::string("/town/") + name, readWhole(folder.out(name)));
    }
    RunResult zmt(const std::vector<std::string> & arguments) const {
        return runProcess(ZMT_EXECUTABLE, arguments, folder);
    }
    RunResult render(const std::string & city, const std::string & out,
                     const std::vector<std::string> & more = {}) const {
        std::vector<std::string> arguments = {"render",
                                              "--city",
                                              city,
                                              "--view",
                                              "closeup",
                                              "--size",
                                              "160x120",
                                              "--out",
                                              folder.out(out),
                                              "--stats",
                                              folder.out("stats.json")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return zmt(arguments);
    }
    nlohmann::json stats() const { return nlohmann::json::parse(readWhole(folder.out("stats.json"))); }
    std::string url() const {
        return NBX::StringUtils::WString2Utf8String(server.url("/town/p.city")) + "?key=hidden";
    }

    RunFolder folder;
    ScriptedHttpServer server;
};

TEST_F(CityFromServer, IsCompleteOnASlowLine) {
    ASSERT_EQ(render(folder.out("p.city"), "local.png").status, 0);
    server.always({.delay = 0.3});
    const RunResult run = render(url(), "remote.png");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.errors, "");
    EXPECT_TRUE(readWhole(folder.out("remote.png")) == readWhole(folder.out("local.png")));
    EXPECT_EQ(stats().at("complete"), true);
    EXPECT_EQ(stats().at("read_bytes"), 0);
    EXPECT_GT(stats().at("received_bytes").get<int>(), 1000);
}

TEST_F(CityFromServer, WithoutItsTexturesIsDrawnOnRequestAlone) {
    server.setFile("/town/p.1.opaque.city", "");
    const RunResult run = render(url(), "x.png");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("/town/p.1.opaque.city: it cannot be opened"), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find("hidden"), std::string::npos) << run.errors;
    EXPECT_FALSE(std::filesystem::exists(folder.out("x.png")));
    EXPECT_EQ(render(url(), "x.png", {"--allow-incomplete"}).status, 0);
    EXPECT_EQ(stats().at("complete"), false);
}

} // namespace
