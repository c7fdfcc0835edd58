#include "core/misc/asyncfile_qthttp.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include <limits>

#include <gtest/gtest.h>

#include <nbx/engine/canvas.h>
#include <nbx/engine/engine.h>

#include "core/file/filecalls.h"
#include "core/misc/httpfile.h"
#include <zmt/core/misc/patience.h>
#include <zmt/core/misc/readprogress.h>

#include "support/recordedreports.h"
#include "support/temporaryfolder.h"
#include "support/webtest.h"

using namespace ZMT::CORE;
using namespace ZMT::CORE::IMPL;

namespace {

class FlatCanvas : public NBX::Canvas {
    NBX_TEMPLATE_CLASS(FlatCanvas, NBX::Canvas)
public:
    NBX::SO<NBX::Engine> processor() const override { return nullptr; }
    unsigned getWidth() const override { return 1; }
    unsigned getHeight() const override { return 1; }
};

struct Fault {
    const char * name;
    HttpAnswer answer;
    std::wstring text; ///< the end of the error text
    std::int64_t transferred;
};

bool endsWith(const std::wstring & text, const std::wstring & end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string narrow(const std::wstring & text) {
    return NBX::StringUtils::WString2Utf8String(text);
}

/// A clock of the waits that goes on by a second each time it is looked at.
double hurryingNow() {
    static double now = 0.0;
    return now += 1.0;
}

} // namespace

class AsyncFile_QtHttpTest : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        bytes_ = pattern(100000);
        server_.setFile("/f", bytes_);
    }
    NBX::SO<AsyncFile> open(const std::string & path = "/f") {
        std::wstring problem;
        NBX::SO<AsyncFile> file = openHttpFile(server_.url(path), problem);
        EXPECT_TRUE(file) << narrow(problem);
        server_.resetCounts();
        return file;
    }
    std::wstring problemOf(const std::wstring & url) {
        std::wstring problem;
        EXPECT_FALSE(openHttpFile(url, problem));
        return problem;
    }
    /// A range of 100 bytes, read to its end; the next one is right.
    void expectFault(AsyncFile & file, const Fault & fault) {
        server_.always(fault.answer);
        const auto request = file.request(5000, 100, 1.0);
        ASSERT_TRUE(runUntilDone(*request)) << fault.name;
        EXPECT_EQ(request->state(), AsyncFile::RS_Failed) << fault.name;
        EXPECT_TRUE(endsWith(request->errorText(), fault.text))
            << fault.name << ": " << narrow(request->errorText());
        EXPECT_EQ(request->transferredBytes(), fault.transferred) << fault.name;
        // The network class asks up to three times more by itself where a connection ends before the head.
        EXPECT_LE(server_.requests(), 4u) << fault.name;
        server_.always({});
        server_.resetCounts();
        const auto again = file.request(5000, 100, 1.0);
        EXPECT_TRUE(again->wait()) << fault.name << ": " << narrow(again->errorText());
        EXPECT_EQ(bytesOf(*again), bytes_.substr(5000, 100)) << fault.name;
    }

    std::string bytes_;
};

class AsyncFile_QtHttpWithoutApplicationTest : public testing::Test {};

TEST_F(AsyncFile_QtHttpWithoutApplicationTest, MissingApplicationIsReported) {
    ASSERT_FALSE(WebApplication::exists());
    const RecordedReports reports;
    std::wstring problem;
    EXPECT_FALSE(AsyncFile::create(L"http://127.0.0.1:9/f", false, &problem));
    EXPECT_EQ(problem, L"no QApplication running");
    EXPECT_EQ(reports.count(0, L"qApp", L"no QApplication running"), 1u) << reports;
    EXPECT_FALSE(AsyncFile::wait(10.0));
    EXPECT_EQ(reports.count(0, L"qApp", L"no QApplication running"), 2u) << reports;
    EXPECT_FALSE(isHttpLoading());
}

TEST_F(AsyncFile_QtHttpWithoutApplicationTest, WhatIsNoUrlNeedsNoApplication) {
    const RecordedReports reports;
    std::wstring problem = L"x";
    for (const wchar_t * text : {L"", L"/a/b", L"ftp://a/b", L"http:", L"http://", L"http:///b", L"http://a",
                                 L"https://a", L"file:///http:/a/b", L"c:\\a"})
        EXPECT_FALSE(openHttpFile(text, problem)) << narrow(text);
    EXPECT_EQ(problem, L"");
    EXPECT_TRUE(reports.empty()) << reports;
}

/// What breaks off begins anew.
TEST_F(AsyncFile_QtHttpTest, WhatComesAgainIsNoProgress) {
    const NBX::SO<AsyncFile> file = open();
    const auto progress = [&](const HttpAnswer & answer) {
        server_.always(answer);
        const std::uint64_t before = ReadProgress::totalBytes();
        EXPECT_TRUE(runUntilDone(*file->request(5000, 100, 1.0)));
        return ReadProgress::totalBytes() - before;
    };
    HttpAnswer broken;
    broken.dropAfter = 40;
    EXPECT_EQ(progress(broken), 40U);
    EXPECT_EQ(progress(broken), 0U);
    broken.dropAfter = 30;
    EXPECT_EQ(progress(broken), 0U);
    EXPECT_EQ(progress({}), 60U);
    EXPECT_EQ(progress({}), 0U);
}

TEST_F(AsyncFile_QtHttpTest, RangesAreReadAndCounted) {
    NBX::SO<AsyncFile> file = AsyncFile::create(server_.url("/f"));
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->isOpen());
    EXPECT_EQ(file->size(), 100000u);
    EXPECT_EQ(file->url(), server_.url("/f"));
    EXPECT_EQ(file->errorText(), L"");
    EXPECT_TRUE(file->requests().empty());
    const std::uint64_t before = AsyncFile::TotalTransferedBytes();
    const std::uint64_t local = AsyncFile::TotalLocalBytes();
    const auto request = file->request(70000, 30000, 1.0);
    EXPECT_EQ(request->transferredBytes(), -1);
    EXPECT_EQ(request->state(), AsyncFile::RS_Processing);
    EXPECT_TRUE(AsyncFile::isLoading());
    EXPECT_TRUE(file->wait({request}));
    EXPECT_FALSE(AsyncFile::isLoading());
    EXPECT_EQ(bytesOf(*request), bytes_.substr(70000));
    EXPECT_EQ(request->transferredBytes(), 30000);
    EXPECT_EQ(AsyncFile::TotalTransferedBytes() - before, 30000u);
    EXPECT_EQ(AsyncFile::TotalLocalBytes(), local);
    const auto received = server_.received();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].fields.at("range"), "bytes=0-0");
    EXPECT_EQ(received[1].fields.at("range"), "bytes=70000-99999");
    EXPECT_EQ(received[1].method, "GET");
    EXPECT_EQ(received[1].fields.at("accept-encoding"), "identity");
    EXPECT_EQ(received[1].fields.at("host"), "127.0.0.1:" + std::to_string(server_.port()));
    EXPECT_EQ(received[1].fields.count("authorization"), 0u);
    EXPECT_EQ(received[1].fields.count("cookie"), 0u);
}

TEST_F(AsyncFile_QtHttpTest, NoMoreConnectionsAreOpenedThanTransfersMayRunAndThoseThatTheServerEnds) {
    const auto file = open(), other = open();
    server_.resetCounts();
    for (unsigned round = 0; round < 10; ++round) {
        server_.always({.isLengthHidden = round % 3 == 1}); // the end of the connection is that of the body
        AsyncFile::Requests requests;
        for (unsigned i = 0; i < 12; ++i)
            requests.push_back((i % 2 == 0 ? file : other)->request(i, 100, 1.0));
        for (const auto & request : requests)
            EXPECT_TRUE(request->wait());
    }
    // The network class asks again by itself where a connection ends under a request.
    const unsigned again = server_.requests() - 120u;
    EXPECT_LE(again, 12u);
    EXPECT_GE(server_.endedConnections(), 36u);
    // The network class opens connections ahead of requests that then go elsewhere, while others are being
    // ended.
    EXPECT_LE(server_.usedConnections(), 5u + server_.endedConnections() + again);
    EXPECT_LE(server_.mostConnectionsAtOnce(), 6u);
}

TEST_F(AsyncFile_QtHttpTest, QueryIsKept) {
    const auto file = open("/f?signature=a%2Fb%3D&list=1+2");
    EXPECT_TRUE(file->request(1, 2, 0.0)->wait());
    EXPECT_EQ(server_.received()[0].path, "/f?signature=a%2Fb%3D&list=1+2");
}

TEST_F(AsyncFile_QtHttpTest, UrlInThePathOfAUrlIsTheOneToOpen) {
    const std::string place = "127.0.0.1:" + std::to_string(server_.port());
    for (const std::string & url :
         {"http://x.invalid/http:/" + place + "/f",
          "http://x.invalid:" + std::to_string(server_.port()) + "/http:/127.0.0.1/f"}) {
        std::wstring problem;
        EXPECT_TRUE(openHttpFile(std::wstring(url.begin(), url.end()), problem)) << url << narrow(problem);
        EXPECT_EQ(server_.received().back().path, "/f");
    }
}

TEST_F(AsyncFile_QtHttpTest, PathIsEncoded) {
    server_.setFile("/a%20b", bytes_);
    EXPECT_TRUE(open("/a b"));
    EXPECT_TRUE(open("/a%20b"));
}

TEST_F(AsyncFile_QtHttpTest, ConnectionsAreUsedAgain) {
    const auto file = open();
    for (int i = 0; i < 50; ++i)
        EXPECT_TRUE(file->request(std::uint64_t(i) * 100, 100, 0.0)->wait());
    EXPECT_EQ(server_.requests(), 50u);
    EXPECT_EQ(server_.connections(), 0u);
}

TEST_F(AsyncFile_QtHttpTest, EmptyRangeIsReadyAndOneBeyondTheEndFailsWithoutAnyTraffic) {
    const auto file = open();
    EXPECT_TRUE(file->request(100000, 0, 0.0)->wait());
    for (const auto & [offset, size] : std::vector<std::pair<std::uint64_t, std::uint64_t>>{
             {100000, 1}, {99999, 2}, {0, 100001}, {~0ull, 1}, {1, ~0ull}, {~0ull, ~0ull}}) {
        const auto request = file->request(offset, size, 0.0);
        EXPECT_EQ(request->state(), AsyncFile::RS_Failed);
        EXPECT_EQ(request->errorText(), L"transfer incomplete");
        EXPECT_EQ(request->offset(), offset);
    }
    EXPECT_EQ(server_.requests(), 0u);
}

TEST_F(AsyncFile_QtHttpTest, FailedProbeTellsWhatTheServerSaid) {
    const std::wstring server = L"server '127.0.0.1' ";
    const std::wstring noRanges =
        server + L"does not support partial GET-requests via HTTP:\nHTTP/1.1 200 OK\n";
    struct Case {
        const char * name;
        HttpAnswer answer;
        std::wstring begin;
    };
    for (const Case & c : {
             Case{"whole file", {.isWholeFile = true}, noRanges},
             Case{"no content-range",
                  {.contentRange = ""},
                  server +
                      L"does not support partial GET-requests via HTTP:\nHTTP/1.1 206 Partial Content\n"},
             Case{"no slash",
                  {.contentRange = "bytes 0-0"},
                  server + L"returned corrupted 'content-range' value: bytes 0-0"},
             Case{"no total",
                  {.contentRange = "bytes 0-0/*"},
                  server + L"returned corrupted 'content-range' value: bytes 0-0/*"},
             Case{"404", {.status = 404, .reason = "Not Found"}, server + L"answered 404 Not Found"},
             Case{"401",
                  {.status = 401, .reason = "Unauthorized", .lines = {"WWW-Authenticate: Basic realm=x"}},
                  server + L"answered 401 Unauthorized"},
             Case{"500", {.status = 500, .reason = "Trouble"}, server + L"answered 500 Trouble"},
             Case{"encoded", {.lines = {"Content-Encoding: gzip"}}, server + L"sent an encoded reply: gzip"},
             Case{"silence", {.silentAfter = -1}, server + L"was silent for 400 ms"},
         }) {
        AsyncFileManager::instance().backoff() = {};
        server_.then(c.answer);
        const std::wstring problem = problemOf(server_.url("/f"));
        EXPECT_EQ(problem.substr(0, c.begin.size()), c.begin) << c.name << ": " << narrow(problem);
    }
    EXPECT_TRUE(open());
}

TEST_F(AsyncFile_QtHttpTest, FailedProbeIsWhatCreateTells) {
    const RecordedReports reports;
    server_.then({.status = 404, .reason = "Not Found"});
    std::wstring problem;
    EXPECT_FALSE(AsyncFile::create(server_.url("/f"), false, &problem));
    EXPECT_EQ(problem, L"server '127.0.0.1' answered 404 Not Found");
    EXPECT_EQ(reports.count(2, L"false", problem + L": " + server_.url("/f")), 1u) << reports;
}

TEST_F(AsyncFile_QtHttpTest, UnreachableServersAreToldSoon) {
    std::wstring closed;
    {
        const ScriptedHttpServer gone;
        closed = gone.url("/f");
    }
    const double start = NBX::NBXTime::now();
    EXPECT_EQ(problemOf(closed), L"Connection refused");
    EXPECT_NE(problemOf(L"http://nowhere.invalid/f"), L"");
    EXPECT_LT(NBX::NBXTime::now() - start, 1.5);
}

/// The one test with the true span of time.
TEST_F(AsyncFile_QtHttpTest, TwoSecondsOfSilenceEndATransferHoweverMuchHasArrived) {
    httpTimes() = {};
    const auto file = open();
    server_.then({.silentAfter = 50});
    const auto request = file->request(0, 100, 1.0);
    const double start = NBX::NBXTime::now();
    EXPECT_FALSE(request->wait());
    const double seconds = NBX::NBXTime::now() - start;
    EXPECT_GE(seconds, 1.99);
    EXPECT_LT(seconds, 2.5);
    EXPECT_EQ(request->errorText(), L"server '127.0.0.1' was silent for 2000 ms");
    EXPECT_EQ(request->transferredBytes(), 50);
}

TEST_F(AsyncFile_QtHttpTest, FailedReadIsNeverData) {
    const auto file = open();
    const std::vector<Fault> faults = {
        {"whole file", {.isWholeFile = true}, L"Content-Length: 100000\n", -1},
        {"dropped without head", {.dropAfter = -1}, L"", -1},
        {"dropped at once", {.dropAfter = 0}, L"", -1},
        {"dropped amid the body", {.dropAfter = 40}, L"", 40},
        {"silence before the head", {.silentAfter = -1}, L"was silent for 400 ms", -1},
        {"silence before the body", {.silentAfter = 0}, L"was silent for 400 ms", -1},
        {"silence amid the body", {.silentAfter = 40}, L"was silent for 400 ms", 40},
        {"another range",
         {.contentRange = "bytes 5001-5100/100000"},
         L"sent another range than the one from 5000 on: bytes 5001-5100/100000",
         -1},
        {"another total",
         {.contentRange = "bytes 5000-5099/99999"},
         L"the file changed on server '127.0.0.1': it had 100000 bytes and has 99999",
         -1},
        {"missing total",
         {.contentRange = "bytes 5000-5099/*"},
         L"returned corrupted 'content-range' value: bytes 5000-5099/*",
         -1},
        {"no range", {.contentRange = ""}, L"Content-Length: 100\n", -1},
        {"shorter", {.excess = -1}, L"transfer incomplete", 99},
        {"shorter without a length", {.excess = -60, .isLengthHidden = true}, L"transfer incomplete", 40},
        {"nothing", {.excess = -100}, L"transfer incomplete", -1},
        {"encoded", {.lines = {"Content-Encoding: br"}}, L"sent an encoded reply: br", -1},
        {"404", {.status = 404, .reason = "Not Found"}, L"answered 404 Not Found", -1},
        {"416",
         {.status = 416, .reason = "Range Not Satisfiable"},
         L"answered 416 Range Not Satisfiable",
         -1},
        {"429", {.status = 429, .reason = "Too Many Requests"}, L"answered 429 Too Many Requests", -1},
        {"500",
         {.status = 500, .reason = "Internal Server Error"},
         L"answered 500 Internal Server Error",
         -1},
        {"503", {.status = 503, .reason = "Service Unavailable"}, L"answered 503 Service Unavailable", -1},
        {"304", {.status = 304, .reason = "Not Modified"}, L"answered 304 Not Modified", -1},
        {"204", {.status = 204, .reason = "No Content"}, L"HTTP/1.1 204 No Content\nContent-Length: 0\n", -1},
    };
    const RecordedReports reports;
    for (const Fault & fault : faults) {
        expectFault(*file, fault);
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST_F(AsyncFile_QtHttpTest, LongerBodyIsReportedAndFails) {
    const auto file = open();
    for (const bool isLengthHidden : {false, true}) {
        const RecordedReports reports;
        expectFault(
            *file,
            {"longer", {.excess = 10, .isLengthHidden = isLengthHidden}, L"too many bytes received", 100});
        EXPECT_EQ(reports.count(2, L"bytesToRead <= bytesAvailable", L"too many bytes received"), 1u)
            << reports;
        EXPECT_EQ(reports.size(), 1u) << reports;
    }
}

TEST_F(AsyncFile_QtHttpTest, AnswerWithTheWholeFileIsAbortedAtItsHead) {
    server_.setSendBuffer(1 << 16);
    const auto file = open();
    httpTimes() = {}; // the server is slow to make so much
    server_.setFile("/f", std::string(24 << 20, 'x'));
    server_.then({.isWholeFile = true});
    const std::uint64_t before = AsyncFile::TotalTransferedBytes();
    server_.setHeld(true);
    const auto request = file->request(0, 100, 1.0);
    ASSERT_TRUE(runUntil([&] { return server_.requests() == 1; }));
    server_.setHeld(false);
    // The network class receives what it may while nobody comes to judge the head.
    for (int i = 0; i < 1000 && server_.sentBytes() == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_LT(0u, server_.sentBytes());
    EXPECT_FALSE(request->wait());
    EXPECT_EQ(AsyncFile::TotalTransferedBytes(), before);
    // 64 KiB, and what fits the buffers of the system.
    EXPECT_LT(server_.sentBytes(), 1u << 20);
}

/// Silent connections that stayed open would keep all places that the host has.
TEST_F(AsyncFile_QtHttpTest, TransfersThatAreEndedCloseTheirConnections) {
    const auto file = open();
    httpTimes().silenceMilliseconds = 50;
    for (const HttpAnswer & silence : {HttpAnswer{.silentAfter = -1}, HttpAnswer{.silentAfter = 10}})
        for (int i = 0; i < 8; ++i) {
            server_.then(silence);
            EXPECT_FALSE(file->request(0, 100, 1.0)->wait());
        }
    EXPECT_TRUE(runUntil([&] { return server_.workingNow() == 0; }, 1.0));
    const auto last = file->request(0, 100, 1.0);
    EXPECT_TRUE(last->wait()) << narrow(last->errorText());
    EXPECT_EQ(server_.requests(), 17u);
    EXPECT_LE(server_.mostConnectionsAtOnce(), 2u);
}

TEST_F(AsyncFile_QtHttpTest, FileThatChangesOnTheServerFailsUntilItIsBack) {
    server_.setFile("/f", bytes_, "\"1\"", "Sun, 06 Nov 1994 08:49:37 GMT");
    const auto file = open();
    const auto textAfter = [&](const std::string & bytes, const std::string & tag, const std::string & date) {
        server_.setFile("/f", bytes, tag, date);
        const auto request = file->request(0, 10, 1.0);
        const bool isReady = request->wait();
        EXPECT_EQ(isReady, request->errorText().empty());
        EXPECT_EQ(file->hasChanged(), !isReady);
        return request->errorText();
    };
    EXPECT_FALSE(file->hasChanged());
    const std::wstring changed = L"the file changed on server '127.0.0.1' since it was opened";
    EXPECT_EQ(textAfter(bytes_, "\"2\"", ""), changed);
    EXPECT_EQ(textAfter(bytes_, "", "Sun, 06 Nov 1994 08:49:38 GMT"), changed);
    EXPECT_EQ(textAfter(bytes_.substr(1), "\"1\"", ""),
              L"the file changed on server '127.0.0.1': it had 100000 bytes and has 99999");
    EXPECT_EQ(textAfter(bytes_, "\"1\"", ""), L"");
    server_.setFile("/f", bytes_.substr(0, 10));
    const auto beyond = file->request(50000, 10, 1.0);
    EXPECT_FALSE(beyond->wait());
    EXPECT_EQ(beyond->errorText(), L"server '127.0.0.1' answered 416 Range Not Satisfiable");
    EXPECT_TRUE(file->hasChanged());
    server_.then({.status = 500});
    EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
    EXPECT_TRUE(file->hasChanged()) << "nobody said that it is back";
}

TEST_F(AsyncFile_QtHttpTest, PauseOfAFileThatIsBackBeginsAnew) {
    server_.setFile("/f", bytes_, "\"1\"");
    const auto file = open();
    httpTimes().firstPause = 0.1;
    httpTimes().longestPause = 60.0;
    const auto isReadyAs = [&](const std::string & tag) {
        server_.setFile("/f", bytes_, tag);
        return file->request(0, 10, 1.0)->wait();
    };
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(isReadyAs("\"2\""));
    EXPECT_TRUE(isReadyAs("\"1\""));
    EXPECT_FALSE(isReadyAs("\"2\""));
    const double start = NBX::NBXTime::now();
    EXPECT_TRUE(isReadyAs("\"1\""));
    EXPECT_LT(NBX::NBXTime::now() - start, 0.6) << "the fourth pause in a row takes longer";
}

TEST_F(AsyncFile_QtHttpTest, FileThatChangedIsLeftAloneButNotItsServer) {
    server_.setFile("/f", bytes_, "\"1\"");
    server_.setFile("/g", bytes_, "\"1\"");
    const auto file = open(), other = open("/g");
    httpTimes().firstPause = httpTimes().longestPause = 3.0;
    server_.setFile("/f", bytes_, "\"2\"");
    EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
    server_.resetCounts();
    const auto again = file->request(0, 10, 1.0);
    EXPECT_TRUE(other->request(0, 10, 1.0)->wait());
    EXPECT_FALSE(other->hasChanged());
    std::wstring problem;
    const auto anew = openHttpFile(server_.url("/f"), problem);
    ASSERT_TRUE(anew) << narrow(problem);
    EXPECT_TRUE(anew->request(0, 10, 1.0)->wait());
    EXPECT_EQ(again->state(), AsyncFile::RS_Queued);
    EXPECT_EQ(server_.requests(), 3u);
    EXPECT_TRUE(runUntilDone(*again)) << "after the pause";
    EXPECT_EQ(again->state(), AsyncFile::RS_Failed);
    EXPECT_TRUE(file->hasChanged());
    EXPECT_FALSE(anew->hasChanged());
}

TEST_F(AsyncFile_QtHttpTest, ServerThatHasAnotherFileWorksAgain) {
    server_.setFile("/f", bytes_, "\"1\"");
    const auto file = open();
    httpTimes().firstPause = 0.1;
    httpTimes().longestPause = 60.0;
    const std::string place = "127.0.0.1:" + std::to_string(server_.port());
    server_.then({.status = 503});
    EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
    EXPECT_NE(AsyncFileManager::instance().backoff().lastFailure(place), L"");
    server_.setFile("/f", bytes_, "\"2\"");
    EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
    EXPECT_TRUE(file->hasChanged());
    EXPECT_EQ(AsyncFileManager::instance().backoff().lastFailure(place), L"");
}

TEST_F(AsyncFile_QtHttpTest, ReportsShowNeitherLoginsNorQueries) {
    server_.always({.status = 404});
    const RecordedReports reports;
    const std::wstring url = server_.url("/f?key=secret");
    EXPECT_FALSE(AsyncFile::create(L"http://u:secret@" + url.substr(7)));
    ASSERT_EQ(reports.size(), 1u) << reports;
    EXPECT_EQ(reports[0].message.find(L"secret"), std::wstring::npos) << reports;
    EXPECT_NE(reports[0].message.find(server_.url("/f")), std::wstring::npos) << reports;
}

TEST_F(AsyncFile_QtHttpTest, FileThatIsRefusedOrSilentHasNotChanged) {
    const auto file = open();
    for (const HttpAnswer & answer :
         {HttpAnswer{.status = 404}, HttpAnswer{.status = 500}, HttpAnswer{.isWholeFile = true},
          HttpAnswer{.silentAfter = -1}, HttpAnswer{.contentRange = ""}}) {
        server_.then(answer);
        EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
        EXPECT_FALSE(file->hasChanged());
    }
}

TEST_F(AsyncFile_QtHttpTest, WhatPatienceDoesNotWaitForGoesOn) {
    const auto file = open();
    httpTimes().silenceMilliseconds = 60000;
    server_.setHeld(true);
    const auto request = file->request(0, 10, 1.0);
    const double start = NBX::NBXTime::now();
    {
        const Patience patience(0.1);
        EXPECT_FALSE(request->wait());
    }
    bool isLost = false;
    {
        const Patience patience([&] { return isLost; });
        WebApplication::later([&] { isLost = true; });
        EXPECT_FALSE(request->wait());
    }
    EXPECT_LT(NBX::NBXTime::now() - start, 2.0);
    EXPECT_EQ(request->state(), AsyncFile::RS_Processing);
    EXPECT_EQ(request->errorText(), L"");
    server_.setHeld(false);
    EXPECT_TRUE(request->wait());
    EXPECT_EQ(server_.requests(), 1u);
}

TEST_F(AsyncFile_QtHttpTest, WhatWasGivenUpHasThePriorityThatItHad) {
    const auto file = open();
    httpTimes().silenceMilliseconds = 60000;
    server_.setHeld(true);
    AsyncFile::Requests running;
    for (int i = 0; i < 4; ++i)
        running.push_back(file->request(0, 10, 9.0));
    const auto queued = file->request(0, 10, 3.0);
    {
        const Patience patience(0.05);
        EXPECT_FALSE(queued->wait());
    }
    EXPECT_EQ(queued->state(), AsyncFile::RS_Queued);
    EXPECT_EQ(queued->priority(), 3.0);
    server_.setHeld(false);
    EXPECT_TRUE(queued->wait());
    EXPECT_TRUE(file->wait(running));
}

TEST_F(AsyncFile_QtHttpTest, OpeningAndReadingEndWithThePatience) {
    const auto file = open();
    httpTimes().silenceMilliseconds = 2400;
    server_.setHeld(true);
    std::wstring problem;
    const Patience patience(0.1);
    EXPECT_FALSE(openHttpFile(server_.url("/f"), problem));
    EXPECT_EQ(problem, L"nobody waited for the answer");
    problem.clear();
    EXPECT_FALSE(file->readNow(0, 10, &problem));
    EXPECT_EQ(problem, L"nobody waited for the answer");
    server_.setHeld(false);
}

TEST_F(AsyncFile_QtHttpTest, PendingRequestsAreCounted) {
    const auto file = open(), other = open();
    EXPECT_EQ(AsyncFile::pendingRequests(), 0u);
    server_.setHeld(true);
    AsyncFile::Requests requests;
    for (int i = 0; i < 6; ++i)
        requests.push_back(file->request(0, 10, 1.0));
    requests.push_back(other->request(0, 10, 1.0));
    EXPECT_EQ(AsyncFile::pendingRequests(), 7u);
    server_.setHeld(false);
    for (const auto & request : requests)
        EXPECT_TRUE(request->wait());
    EXPECT_EQ(AsyncFile::pendingRequests(), 0u);
}

TEST_F(AsyncFile_QtHttpTest, EventLoopThatIsHeldUpIsNoSilenceOfTheServer) {
    httpTimes().silenceMilliseconds = 100;
    const auto file = open();
    for (int i = 0; i < 5; ++i) {
        // More than is received without the event loop.
        const auto request = file->request(0, 100000, 1.0);
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        ASSERT_TRUE(runUntilDone(*request));
        EXPECT_EQ(request->state(), AsyncFile::RS_Ready) << narrow(request->errorText());
        file->remove(request);
    }
}

TEST_F(AsyncFile_QtHttpTest, SteadyDripIsNoSilence) {
    httpTimes().silenceMilliseconds = 150;
    const auto file = open();
    server_.then({.secondsPerByte = 0.05});
    const auto request = file->request(0, 10, 1.0);
    EXPECT_TRUE(request->wait()) << narrow(request->errorText());
    EXPECT_EQ(bytesOf(*request), bytes_.substr(0, 10));
}

TEST_F(AsyncFile_QtHttpTest, DripWithoutEndGivesItsPlaceFree) {
    httpTimes().slowSeconds = 0.3;
    const auto file = open();
    server_.then({.secondsPerByte = 0.02});
    const auto request = file->request(0, 1000, 1.0);
    ASSERT_TRUE(runUntilDone(*request));
    EXPECT_EQ(request->state(), AsyncFile::RS_Failed);
    EXPECT_EQ(request->errorText(), L"server '127.0.0.1' is too slow");
    EXPECT_FALSE(AsyncFile::isLoading());
}

TEST_F(AsyncFile_QtHttpTest, BlockingWaitsEndAfterHalfAMinuteInAllWhateverDripsIn) {
    const auto file = open();
    server_.always({.secondsPerByte = 0.01});
    AsyncFile::Requests requests;
    for (int i = 0; i < 6; ++i)
        requests.push_back(file->request(0, 10000, 1.0));
    const auto now = fileCalls().now;
    fileCalls().now = hurryingNow;
    EXPECT_FALSE(file->wait(requests));
    EXPECT_EQ(requests[0]->errorText(), L"no complete answer within 30 s");
    // A queued one as well.
    server_.setHeld(true);
    EXPECT_FALSE(requests[5]->wait());
    EXPECT_EQ(requests[5]->errorText(), L"no complete answer within 30 s");
    fileCalls().now = now;
}

TEST_F(AsyncFile_QtHttpTest, QueuedRequestIsForgottenAndARunningOneLeavesWhenItEnds) {
    const auto file = open();
    server_.setHeld(true);
    AsyncFile::Requests requests;
    for (int i = 0; i < 5; ++i)
        requests.push_back(file->request(std::uint64_t(i) * 10, 10, 1.0));
    EXPECT_EQ(file->requests().size(), 5u);
    EXPECT_EQ(file->requests(AsyncFile::RS_Processing).size(), 4u);
    EXPECT_EQ(file->requests(AsyncFile::RS_Queued), AsyncFile::Requests{requests[4]});
    EXPECT_TRUE(requests[4]->cancel());
    EXPECT_FALSE(requests[4]->cancel());
    EXPECT_FALSE(requests[0]->cancel());
    EXPECT_EQ(file->requests().size(), 4u);
    server_.setHeld(false);
    ASSERT_TRUE(runUntil([&] { return file->requests(AsyncFile::RS_Ready).size() == 3; }));
    ASSERT_TRUE(runUntilDone(*requests[0]));
    EXPECT_EQ(file->requests(), (AsyncFile::Requests{requests[1], requests[2], requests[3]}));
    EXPECT_EQ(requests[0]->state(), AsyncFile::RS_Ready);
    EXPECT_EQ(requests[4]->state(), AsyncFile::RS_Failed);
    EXPECT_EQ(requests[4]->errorText(), L"the request was removed");
    EXPECT_FALSE(requests[4]->wait());
    EXPECT_EQ(server_.requests(), 4u);
    EXPECT_TRUE(file->remove({requests[1]}));
    EXPECT_FALSE(file->remove(NBX::SO<AsyncFile::Request>()));
}

TEST_F(AsyncFile_QtHttpTest, PriorityIsSetWhileQueuedOnly) {
    auto file = open();
    server_.setHeld(true);
    AsyncFile::Requests requests;
    for (int i = 0; i < 5; ++i)
        requests.push_back(file->request(0, 10, 1.0));
    EXPECT_FALSE(requests[0]->setPriority(2.0));
    EXPECT_EQ(requests[0]->priority(), 1.0);
    EXPECT_TRUE(requests[4]->setPriority(2.0));
    EXPECT_EQ(requests[4]->priority(), 2.0);
    file = nullptr;
    EXPECT_FALSE(requests[4]->setPriority(3.0));
    EXPECT_EQ(requests[4]->priority(), 2.0);
}

/// What is no number must not stand in front of what can be ordered.
TEST_F(AsyncFile_QtHttpTest, PrioritiesThatAreNoNumbersHoldNothingUp) {
    auto file = open();
    const auto none = file->request(0, 10, std::numeric_limits<double>::quiet_NaN());
    const auto some = file->request(10, 10, 1.0);
    EXPECT_TRUE(runUntilDone(*some));
    EXPECT_EQ(some->state(), AsyncFile::RS_Ready);
    EXPECT_EQ(none->state(), AsyncFile::RS_Queued);
    EXPECT_TRUE(none->setPriority(0.5));
    EXPECT_TRUE(runUntilDone(*none));
    EXPECT_EQ(bytesOf(*none), bytes_.substr(0, 10));
}

TEST_F(AsyncFile_QtHttpTest, RequestsFailOnceTheirFileIsGone) {
    auto file = open();
    const auto ready = file->request(0, 10, 1.0);
    EXPECT_TRUE(ready->wait());
    server_.setHeld(true);
    AsyncFile::Requests requests;
    for (int i = 0; i < 5; ++i)
        requests.push_back(file->request(0, 10, 1.0));
    ASSERT_TRUE(runUntil([&] { return server_.requests() == 5; }));
    file = nullptr;
    EXPECT_FALSE(AsyncFile::isLoading());
    for (const auto & request : requests) {
        EXPECT_FALSE(request->wait());
        EXPECT_EQ(request->state(), AsyncFile::RS_Failed);
        EXPECT_EQ(request->errorText(), L"the file is closed");
        EXPECT_FALSE(request->file());
        EXPECT_FALSE(request->cancel());
    }
    EXPECT_EQ(ready->state(), AsyncFile::RS_Ready);
    EXPECT_EQ(bytesOf(*ready), bytes_.substr(0, 10));
}

TEST_F(AsyncFile_QtHttpTest, NoCanvasDrawsWhileARequestIsAwaited) {
    const NBX::SO<FlatCanvas> canvas(new FlatCanvas), disabled(new FlatCanvas);
    disabled->setRedisplayEnabled(false);
    const auto file = open();
    int seen = 0;
    const auto look = [&] {
        ++seen;
        EXPECT_FALSE(canvas->isRedisplayEnabled());
    };
    WebApplication::later(look);
    server_.then({.delay = 0.1});
    EXPECT_TRUE(file->request(0, 10, 1.0)->wait());
    EXPECT_TRUE(canvas->isRedisplayEnabled());
    WebApplication::later(look);
    EXPECT_TRUE(AsyncFile::wait(10.0));
    EXPECT_TRUE(canvas->isRedisplayEnabled());
    EXPECT_FALSE(disabled->isRedisplayEnabled());
    EXPECT_EQ(seen, 2);
}

TEST_F(AsyncFile_QtHttpTest, WaitingWithoutTransfersComesBackAtOnce) {
    const double start = NBX::NBXTime::now();
    EXPECT_TRUE(AsyncFile::wait(2000.0));
    EXPECT_TRUE(AsyncFile::wait(-1.0));
    EXPECT_LT(NBX::NBXTime::now() - start, 0.5);
}

TEST_F(AsyncFile_QtHttpTest, FilesAreOpenedOnTheThreadOfTheEventLoop) {
    const RecordedReports reports;
    std::wstring problem;
    std::thread([&] { EXPECT_FALSE(openHttpFile(server_.url("/f"), problem)); }).join();
    EXPECT_EQ(problem, L"not on the thread of the event loop");
    EXPECT_EQ(
        reports.count(0, L"isOnItsThread", L"files on web servers are used on the thread of the event loop"),
        1u)
        << reports;
    EXPECT_EQ(server_.requests(), 0u);
}

TEST_F(AsyncFile_QtHttpTest, FilesAreUsedOnTheThreadOfTheEventLoop) {
    const auto file = open();
    server_.setHeld(true);
    AsyncFile::Requests requests;
    for (int i = 0; i < 5; ++i)
        requests.push_back(file->request(0, 10, 1.0));
    const RecordedReports reports;
    std::thread([&] {
        EXPECT_FALSE(file->request(0, 10, 1.0));
        EXPECT_FALSE(requests[4]->setPriority(2.0));
        EXPECT_FALSE(requests[4]->wait());
        EXPECT_EQ(requests[4]->state(), AsyncFile::RS_Failed);
        EXPECT_FALSE(file->remove(requests[4]));
        EXPECT_TRUE(file->requests().empty());
        EXPECT_EQ(file->url(), server_.url("/f")) << "what does not change may be looked at";
    }).join();
    EXPECT_EQ(
        reports.count(0, L"isOnItsThread", L"files on web servers are used on the thread of the event loop"),
        6u)
        << reports;
    EXPECT_EQ(requests[4]->priority(), 1.0);
    server_.setHeld(false);
    EXPECT_TRUE(requests[4]->wait()) << "nothing has happened to it";
}

namespace {

/// Where the process that ends leaves the moment; it inherits the name.
constexpr const char * s_endNote = "ZMT_TEST_END_NOTE";

/// Of a process that ends while transfers are under way, and others wait for their turn.
class AsyncFile_QtHttpDeathTest : public AsyncFile_QtHttpTest {
protected:
    [[noreturn]] static void exitAmidTransfers(const NBX::SO<AsyncFile> & file) {
        for (unsigned i = 0; i < 20; ++i)
            file->request(i * 1000, 1000, 1.0);
        for (int i = 0; i < 20; ++i)
            AsyncFile::wait(10.0);
        const bool isLoading = AsyncFile::isLoading();
        std::ofstream(std::getenv(s_endNote)) << std::fixed << NBX::NBXTime::now();
        TearDownTestSuite(); // the application object goes before what is static
        std::exit(isLoading ? 7 : 2);
    }
};

TEST_F(AsyncFile_QtHttpDeathTest, TheProcessEndsWithinASecondAmidTransfers) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const TemporaryFolder folder;
    const std::string note = std::string(std::getenv("TMPDIR")) + "/end";
    ::setenv(s_endNote, note.c_str(), 0);
    const NBX::SO<AsyncFile> file = open();
    server_.setHeld(true);
    EXPECT_EXIT(exitAmidTransfers(file), testing::ExitedWithCode(7), "");
    ::unsetenv(s_endNote);
    server_.setHeld(false);
    double begin = 0.0;
    std::ifstream(note) >> begin;
    EXPECT_LT(0.0, begin);
#ifdef __SANITIZE_ADDRESS__ // looks for leaks at the end
    EXPECT_LT(NBX::NBXTime::now() - begin, 10.0);
#else
    EXPECT_LT(NBX::NBXTime::now() - begin, 1.0);
#endif
}

} // namespace
