// A terrain and a texture from the web server that the system has, whose faults come and go.

#include <filesystem>
#include <functional>

#include <gtest/gtest.h>

#include "streamedview.h"
#include <support/nginx.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>
#include <support/webtest.h>

namespace {

using namespace ZMT::CORE;
using namespace ZMT::CORE::GRID;
using NBX::SO;
using Bytes = std::vector<std::uint8_t>;

constexpr double s_frame = 0.02;

class View : public StreamedView {
public:
    View() : StreamedView([] { AsyncFile::wait(1000.0 * s_frame); }) {}
    bool open(const Nginx & server) { return StreamedView::open(server.url("a.ztt"), server.url("a.zts")); }
};

class NginxFaultsTest : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        if (!Nginx::isInstalled()) GTEST_SKIP() << "nginx is not installed";
        IMPL::httpTimes() = {}; // as they are for users
        StreamedFiles::writeTexture(server.pathOf("a.zts"));
        server.write("a.ztt", terrain());
    }
    static Bytes terrain(unsigned size = 33, unsigned level = 3, unsigned seed = 0) {
        return writtenTerrain(new FunctionBand(size, size,
                                               [seed](unsigned x, unsigned y) {
                                                   return FunctionBand::hills(x + seed, y) + (x * y) % 113;
                                               }),
                              level);
    }
    /// So many seconds of frames.
    void runFrames(double seconds) {
        for (const double end = now() + seconds; now() < end;)
            view.frame();
    }
    /// How long it took until nothing was missing; more than `most` when it did not come to that.
    double secondsToWhole(double most) {
        const double begin = now();
        while (!view.frame() && now() - begin < most) {
        }
        return view.missing == 0 ? now() - begin : most + 1.0;
    }
    static double now() { return NBX::NBXTime::now(); }
    void expectHealed(const std::string & name) {
        const double seconds = secondsToWhole(s_healed);
        EXPECT_GE(s_healed, seconds) << name << ": " << view.missing << " tiles are missing";
    }

    RecordedReports reports; ///< of what cannot be opened
    Nginx server;
    View view;
};

constexpr unsigned s_tilesOfView = StreamedFiles::tiles;

TEST_F(NginxFaultsTest, WithoutFaultsEveryBlockIsAskedForOnce) {
    ASSERT_TRUE(server.start());
    ASSERT_TRUE(view.open(server));
    EXPECT_GE(s_healed, secondsToWhole(s_healed));
    EXPECT_EQ(s_tilesOfView, view.tiles);
    server.stop();
    EXPECT_EQ(s_tilesOfView + 4, server.answers()) << "a probe and a header of each file";
}

TEST_F(NginxFaultsTest, AnswersThatFailForAWhile) {
    std::string lines;
    for (const char * status : {"404", "429", "444", "500", "503"}) // 444 drops the connection
        lines += "if (-f " + server.flag(status) + ") { return " + status + "; }\n";
    ASSERT_TRUE(server.start(lines));
    for (const char * status : {"404", "429", "444", "500", "503"}) {
        View another;
        ASSERT_TRUE(another.open(server)) << status;
        server.setFlag(status, true);
        const unsigned before = server.answers();
        for (const double end = now() + 2.0; now() < end;)
            EXPECT_FALSE(another.frame()) << status;
        // What was under way at first, right or wrong; then the host is left alone for 0.25, 0.5 and 1 s, and
        // tried once each time. Connections that are dropped are tried anew by the network class.
        EXPECT_GE(before + (status == std::string("444") ? 24 : 12), server.answers()) << status;
        server.setFlag(status, false);
        const double begin = now();
        while (!another.frame() && now() - begin < s_healed) {
        }
        EXPECT_EQ(0U, another.missing) << status << " behind " << s_healed << " s";
        EXPECT_EQ(s_tilesOfView, another.tiles);
    }
}

TEST_F(NginxFaultsTest, AServerThatIsStartedAgain) {
    ASSERT_TRUE(server.start());
    ASSERT_TRUE(view.open(server));
    view.frame();
    server.stop();
    runFrames(3.0);
    EXPECT_LT(0U, view.missing);
    ASSERT_TRUE(server.startAgain());
    expectHealed("restart");
    EXPECT_EQ(s_tilesOfView, view.tiles);
}

TEST_F(NginxFaultsTest, AServerThatIsStartedAgainWhileEverythingIsUnderWay) {
    ASSERT_TRUE(server.start("limit_rate 2k;"));
    ASSERT_TRUE(view.open(server));
    runFrames(0.3);
    server.stop();
    ASSERT_TRUE(server.startAgain());
    expectHealed("restart");
}

TEST_F(NginxFaultsTest, AFileThatIsReplacedOrCutAndComesBack) {
    namespace fs = std::filesystem;
    ASSERT_TRUE(server.start());
    const std::string path = server.pathOf("a.ztt");
    const Bytes right = NBX::File::contents(path);
    const auto date = fs::last_write_time(path);
    const std::vector<std::pair<std::string, std::function<void()>>> faults{
        {"gone", [&] { fs::remove(path); }},
        {"another",
         [&] {
             server.write("b.ztt", terrain(33, 3, 5));
             fs::rename(server.pathOf("b.ztt"), path);
             fs::last_write_time(path, date + std::chrono::seconds(10));
         }},
        {"larger",
         [&] {
             server.write("b.ztt", terrain(65, 4));
             fs::rename(server.pathOf("b.ztt"), path);
         }},
        {"cut", [&] { fs::resize_file(path, 300); }},
        {"empty", [&] { fs::resize_file(path, 0); }},
    };
    for (const auto & [name, damage] : faults) {
        View another;
        ASSERT_TRUE(another.open(server)) << name;
        damage();
        const unsigned before = server.answers();
        for (const double end = now() + 2.0; now() < end;)
            EXPECT_FALSE(another.frame()) << name;
        // Tries behind growing pauses, some more on a busy machine; a storm would be hundreds.
        EXPECT_GE(before + 8 + 10, server.answers()) << name << ": the texture's are right";
        EXPECT_FALSE(AsyncGridTerrain::readFailures().empty()) << name;
        server.write("b.ztt", right);
        fs::rename(server.pathOf("b.ztt"), path);
        fs::last_write_time(path, date); // which the tag is made of
        const double begin = now();
        while (!another.frame() && now() - begin < s_healed) {
        }
        EXPECT_EQ(0U, another.missing) << name << " behind " << s_healed << " s";
    }
}

TEST_F(NginxFaultsTest, WhatIsCompressedOnTheWay) {
    // Not for those who want it as it is.
    ASSERT_TRUE(server.start("gzip on; gzip_types *; gzip_min_length 1; gzip_proxied any;"));
    ASSERT_TRUE(view.open(server));
    expectHealed("gzip");
    EXPECT_EQ(s_tilesOfView, view.tiles);
    server.stop();
    // And what is so in any case is refused.
    ASSERT_TRUE(server.start("add_header Content-Encoding gzip always;"));
    View another;
    EXPECT_FALSE(another.open(server));
    EXPECT_NE(std::wstring::npos, another.problem.find(L"encod")) << reports;
}

TEST_F(NginxFaultsTest, ALineSoSlowThatABlockTakesLongerThanItIsKept) {
    server.write("a.ztt", terrain(257, 7));
    ASSERT_LT(5U * 30000, std::filesystem::file_size(server.pathOf("a.ztt")));
    ASSERT_TRUE(server.start("limit_rate 5k;"));
    ASSERT_TRUE(view.open(server)); // 7 s for the root
    // The 4 others as well, at once.
    EXPECT_GT(25.0, secondsToWhole(25.0));
    EXPECT_EQ(5U + 5U, view.tiles);
    server.stop();
    EXPECT_EQ(5U + 5U + 4, server.answers()) << "nothing was begun twice";
}

TEST_F(NginxFaultsTest, ServersThatLimitWhatTheyAreAsked) {
    const std::pair<const char *, const char *> limits[] = {
        {"limit_conn z 1; limit_conn_status 503;", "limit_conn_zone $server_name zone=z:1m;"},
        {"limit_req zone=z; limit_req_status 429;", "limit_req_zone $server_name zone=z:1m rate=20r/s;"}};
    for (const auto & [serverLines, httpLines] : limits) {
        View another;
        // Those who open a file wait for its answers one by one.
        ASSERT_TRUE(server.start("", httpLines));
        ASSERT_TRUE(another.open(server)) << serverLines;
        server.stop();
        ASSERT_TRUE(server.start(serverLines, httpLines));
        const unsigned before = server.answers();
        const double begin = now();
        while (!another.frame() && now() - begin < 60.0) {
        }
        EXPECT_EQ(0U, another.missing) << serverLines;
        EXPECT_EQ(s_tilesOfView, another.tiles) << serverLines;
        server.stop();
        EXPECT_GE(before + 4 * s_tilesOfView, server.answers()) << serverLines;
    }
}

TEST_F(NginxFaultsTest, Redirects) {
    ASSERT_TRUE(server.start("location /old/ { rewrite ^/old/(.*)$ /$1 redirect; }\n"
                             "location /loop/ { rewrite ^/loop/(.*)$ /loop/$1x redirect; }\n"
                             "location /away/ { return 302 http://localhost:$server_port/a.ztt; }"));
    std::wstring problem;
    EXPECT_TRUE(AsyncGridTerrain::load(server.url("old/a.ztt"), false, &problem));
    EXPECT_TRUE(problem.empty());
    const unsigned before = server.answers();
    EXPECT_FALSE(AsyncGridTerrain::load(server.url("loop/a.ztt"), false, &problem));
    EXPECT_NE(std::wstring::npos, problem.find(L"redirect"));
    EXPECT_GE(before + 7, server.answers());
    EXPECT_FALSE(AsyncGridTerrain::load(server.url("away/a.ztt"), false, &problem)) << "another host";
    EXPECT_NE(std::wstring::npos, problem.find(L"redirect"));
}

} // namespace
