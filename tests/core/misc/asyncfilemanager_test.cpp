#include "core/misc/asyncfilemanager.h"

#include <gtest/gtest.h>

#include "core/misc/httpfile.h"
#include "support/webtest.h"

using namespace ZMT::CORE;
using namespace ZMT::CORE::IMPL;

class AsyncFileManagerTest : public WebTest {
protected:
    void SetUp() override {
        WebTest::SetUp();
        bytes_ = pattern(1000);
    }
    NBX::SO<AsyncFile> open(ScriptedHttpServer & server) {
        server.setFile("/f", bytes_);
        std::wstring problem;
        NBX::SO<AsyncFile> file = openHttpFile(server.url("/f"), problem);
        EXPECT_TRUE(file);
        server.resetCounts();
        return file;
    }
    AsyncFile::Requests requestMany(AsyncFile & file, unsigned count, double priority = 1.0) {
        AsyncFile::Requests requests;
        for (unsigned i = 0; i < count; ++i)
            requests.push_back(file.request(i, 10, priority));
        return requests;
    }
    /// Offsets of what the server was asked for, in the order of arrival.
    static std::vector<int> offsets(const ScriptedHttpServer & server) {
        std::vector<int> result;
        for (const auto & received : server.received())
            result.push_back(std::stoi(received.fields.at("range").substr(6)));
        return result;
    }
    bool allReady(AsyncFile & file, std::size_t count) {
        return runUntil([&] { return file.requests(AsyncFile::RS_Ready).size() == count; });
    }

    std::string bytes_;
};

TEST_F(AsyncFileManagerTest, FourTransfersOfAFileRunAtOnce) {
    const auto file = open(server_);
    server_.setHeld(true);
    requestMany(*file, 12);
    ASSERT_TRUE(runUntil([&] { return server_.workingNow() == 4; }));
    runFor(0.1);
    EXPECT_EQ(server_.requests(), 4u);
    EXPECT_EQ(file->requests(AsyncFile::RS_Processing).size(), 4u);
    server_.setHeld(false);
    ASSERT_TRUE(allReady(*file, 12));
    EXPECT_EQ(server_.requests(), 12u);
    EXPECT_EQ(server_.mostAtOnce(), 4u);
    EXPECT_LE(server_.mostConnectionsAtOnce(), 4u);
    for (const auto & request : file->requests())
        EXPECT_EQ(bytesOf(*request), bytes_.substr(request->offset(), 10));
}

TEST_F(AsyncFileManagerTest, FiveTransfersRunAtOnceInTheProcess) {
    ScriptedHttpServer other;
    const auto a = open(server_), b = open(server_), c = open(other);
    server_.setHeld(true);
    other.setHeld(true);
    for (AsyncFile * file : {a.get(), b.get(), c.get()})
        requestMany(*file, 10);
    ASSERT_TRUE(runUntil([&] { return server_.workingNow() + other.workingNow() == 5; }));
    runFor(0.1);
    EXPECT_EQ(server_.requests() + other.requests(), 5u);
    EXPECT_EQ(AsyncFileManager::instance().working(), 5u);
    server_.setHeld(false);
    other.setHeld(false);
    for (AsyncFile * file : {a.get(), b.get(), c.get()})
        ASSERT_TRUE(allReady(*file, 10));
    EXPECT_LE(server_.mostAtOnce(), 5u);
    EXPECT_LE(server_.mostConnectionsAtOnce(), 5u);
    EXPECT_EQ(AsyncFileManager::instance().working(), 0u);
}

TEST_F(AsyncFileManagerTest, OneWorkingClientServesInTheOrderOfPriorities) {
    // Other files hold four of the five places, so that the order of arrival is that of the starts.
    ScriptedHttpServer other;
    const auto busy = open(other), file = open(server_);
    other.setHeld(true);
    requestMany(*busy, 4, 100.0);
    ASSERT_TRUE(runUntil([&] { return other.workingNow() == 4; }));
    server_.setHeld(true);
    const auto running = file->request(0, 10, 100.0);
    AsyncFile::Requests requests;
    for (const double priority : {1.0, 5.0, 3.0, 2.0, 5.0, -0.5})
        requests.push_back(file->request(requests.size() + 1, 10, priority));
    EXPECT_TRUE(requests[3]->setPriority(4.0));
    server_.setHeld(false);
    ASSERT_TRUE(allReady(*file, 7));
    EXPECT_EQ(offsets(server_), (std::vector<int>{0, 2, 5, 4, 3, 1, 6}));
    other.setHeld(false);
}

TEST_F(AsyncFileManagerTest, FileWithTheHighestQueuedPriorityIsNext) {
    ScriptedHttpServer other;
    const auto busy = open(other), a = open(server_), b = open(server_);
    other.setHeld(true);
    requestMany(*busy, 4, 100.0);
    server_.setHeld(true);
    const auto running = a->request(0, 10, 100.0);
    a->request(1, 10, 1.0);
    a->request(3, 10, 3.0);
    b->request(2, 10, 2.0);
    b->request(4, 10, 4.0);
    server_.setHeld(false);
    ASSERT_TRUE(allReady(*a, 3));
    ASSERT_TRUE(allReady(*b, 2));
    EXPECT_EQ(offsets(server_), (std::vector<int>{0, 4, 3, 2, 1}));
    other.setHeld(false);
}

TEST_F(AsyncFileManagerTest, AwaitedRequestOvertakesAllThatAreQueued) {
    const auto file = open(server_);
    server_.always({.delay = 0.05});
    requestMany(*file, 12, 1e6);
    const auto last = file->request(500, 10, 0.0);
    EXPECT_TRUE(last->wait());
    EXPECT_EQ(last->priority(), AsyncFile::topPriority);
    EXPECT_LE(file->requests(AsyncFile::RS_Ready).size(), 9u);
}

TEST_F(AsyncFileManagerTest, PriorityBelowTheLowestIsNotServed) {
    const auto file = open(server_);
    const auto request = file->request(0, 10, -1.0);
    runFor(0.1);
    EXPECT_EQ(request->state(), AsyncFile::RS_Queued);
    EXPECT_TRUE(request->setPriority(-2.0));
    runFor(0.1);
    EXPECT_EQ(request->state(), AsyncFile::RS_Queued);
    EXPECT_TRUE(request->setPriority(-0.5));
    EXPECT_EQ(request->state(), AsyncFile::RS_Processing) << "nothing else may come to start it";
    EXPECT_TRUE(runUntilDone(*request));
    EXPECT_TRUE(file->request(0, 10, -5.0)->wait());
}

TEST_F(AsyncFileManagerTest, DroppedFileGivesItsPlacesToOthers) {
    ScriptedHttpServer other;
    auto a = open(server_), c = open(server_);
    const auto b = open(other);
    server_.setHeld(true);
    requestMany(*a, 4);
    requestMany(*c, 4);
    ASSERT_TRUE(runUntil([&] { return server_.workingNow() == 5; }));
    const auto request = b->request(0, 10, 0.0);
    EXPECT_EQ(request->state(), AsyncFile::RS_Queued);
    a = nullptr;
    c = nullptr;
    EXPECT_EQ(request->state(), AsyncFile::RS_Processing);
    EXPECT_TRUE(request->wait());
}

TEST_F(AsyncFileManagerTest, NothingStartsAtAHostForAWhileAfterAFailure) {
    httpTimes().firstPause = 0.3;
    ScriptedHttpServer other;
    const auto file = open(server_), elsewhere = open(other);
    server_.then({.status = 500, .reason = "Trouble"});
    EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
    const double start = NBX::NBXTime::now();
    const AsyncFile::Requests requests = requestMany(*file, 6);
    for (const auto & request : requests)
        EXPECT_EQ(request->state(), AsyncFile::RS_Queued);
    EXPECT_TRUE(elsewhere->request(0, 10, 0.0)->wait());
    ASSERT_TRUE(runUntil([&] { return server_.requests() >= 2; }));
    EXPECT_NEAR(NBX::NBXTime::now() - start, 0.35, 0.1);
    ASSERT_TRUE(allReady(*file, 6));
}

/// The clock goes on between any two looks at it.
TEST_F(AsyncFileManagerTest, PauseThatEndsWhileItIsLookedAtIsNotMissed) {
    httpTimes().now = [] {
        static double skipped = 0.0;
        return NBX::NBXTime::now() + (skipped += 0.008);
    };
    const auto file = open(server_);
    for (int i = 0; i < 20; ++i) {
        httpTimes().firstPause = 0.004 + 0.008 * i;
        server_.then({.status = 500, .reason = "Trouble"});
        EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
        const auto request = file->request(0, 10, 1.0);
        ASSERT_TRUE(runUntilDone(*request)) << i;
        EXPECT_EQ(request->state(), AsyncFile::RS_Ready);
    }
}

TEST_F(AsyncFileManagerTest, ServerSaysWhenItIsToBeAskedAgain) {
    const auto file = open(server_);
    server_.then({.status = 429, .reason = "Too Many Requests", .lines = {"Retry-After: 1"}});
    EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
    const auto again = file->request(0, 10, 1.0);
    const double start = NBX::NBXTime::now();
    EXPECT_TRUE(again->wait());
    EXPECT_NEAR(NBX::NBXTime::now() - start, 1.1, 0.2);
}

TEST_F(AsyncFileManagerTest, ServerThatIsLeftAloneForLongIsNotWaitedFor) {
    std::wstring problem;
    server_.setFile("/f", bytes_);
    server_.then({.status = 503, .reason = "Busy", .lines = {"Retry-After: 60"}});
    EXPECT_FALSE(openHttpFile(server_.url("/f"), problem));
    const double start = NBX::NBXTime::now();
    EXPECT_FALSE(openHttpFile(server_.url("/f"), problem));
    EXPECT_EQ(problem, L"server '127.0.0.1' is asked again in 60 s: server '127.0.0.1' answered 503 Busy");
    EXPECT_LT(NBX::NBXTime::now() - start, 0.2);
    EXPECT_EQ(server_.requests(), 1u);
}

TEST_F(AsyncFileManagerTest, SilentServerIsToldSoonHoweverOftenItIsOpened) {
    httpTimes().silenceMilliseconds = CONNECTION_TIME_OUT;
    httpTimes().firstPause = 0.3;
    httpTimes().longestPause = 10.0;
    server_.setFile("/f", bytes_);
    std::wstring problem;
    server_.then({.status = 503, .reason = "Busy"});
    EXPECT_FALSE(openHttpFile(server_.url("/f"), problem));
    server_.always({.silentAfter = -1});
    EXPECT_FALSE(openHttpFile(server_.url("/f"), problem));
    const double start = NBX::NBXTime::now();
    EXPECT_FALSE(openHttpFile(server_.url("/f"), problem));
    EXPECT_LT(NBX::NBXTime::now() - start, 1.0) << "0.6 s and 2 s of silence would be too long";
    EXPECT_EQ(problem,
              L"server '127.0.0.1' is asked again in 1 s: server '127.0.0.1' was silent for 2000 ms");
}

TEST_F(AsyncFileManagerTest, OneTransferAsksHowTheServerIsHoweverLongThatTakes) {
    const auto file = open(server_), other = open(server_);
    server_.then({.status = 503, .reason = "Busy"});
    EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
    httpTimes().silenceMilliseconds = 60000;
    server_.setHeld(true);
    AsyncFile::Requests wanted = requestMany(*file, 3);
    ASSERT_TRUE(runUntil([&] { return server_.workingNow() == 1; }));
    for (unsigned frame = 0; frame < 10; ++frame) {
        wanted.push_back(frame % 2 == 0 ? file->request(frame, 10, 1.0) : other->request(frame, 10, 1.0));
        runFor(0.01);
    }
    EXPECT_EQ(server_.workingNow(), 1u);
    const auto awaited = other->request(0, 10, AsyncFile::topPriority);
    ASSERT_TRUE(runUntil([&] { return server_.workingNow() == 2; })) << "who waits does not wait for that";
    server_.setHeld(false);
    for (const auto & request : wanted)
        EXPECT_TRUE(runUntilDone(*request));
    EXPECT_TRUE(runUntilDone(*awaited));
    EXPECT_EQ(server_.requests(), 15u);
}

TEST_F(AsyncFileManagerTest, OneTransferAsksHowAFileIsThatHasChanged) {
    const auto file = open(server_);
    server_.setFile("/f", bytes_ + "more");
    EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
    EXPECT_TRUE(file->hasChanged());
    httpTimes().silenceMilliseconds = 60000;
    server_.setHeld(true);
    AsyncFile::Requests wanted = requestMany(*file, 3);
    ASSERT_TRUE(runUntil([&] { return server_.workingNow() == 1; }));
    for (unsigned frame = 0; frame < 10; ++frame) {
        wanted.push_back(file->request(frame, 10, 1.0));
        runFor(0.01);
    }
    EXPECT_EQ(server_.workingNow(), 1u);
    server_.setFile("/f", bytes_);
    server_.setHeld(false);
    for (const auto & request : wanted)
        EXPECT_TRUE(request->wait());
}

/// A caller that asks anew for everything that fails, frame by frame.
TEST_F(AsyncFileManagerTest, FailingServerIsNotStormedAndRecoveryIsComplete) {
    const auto file = open(server_);
    server_.always({.status = 503, .reason = "Busy"});
    AsyncFile::Requests wanted = requestMany(*file, 40);
    const auto frame = [&] {
        for (auto & request : wanted) {
            if (request->state() != AsyncFile::RS_Failed) continue;
            file->remove(request);
            request = file->request(request->offset(), 10, 1.0);
        }
    };
    const auto isComplete = [&] {
        frame();
        return file->requests(AsyncFile::RS_Ready).size() == wanted.size();
    };
    EXPECT_FALSE(runUntil(isComplete, 1.5));
    // Four at first, then one after each of 20, 40, 80, 160 and then 200 ms.
    EXPECT_GE(server_.requests(), 8u);
    EXPECT_LE(server_.requests(), 15u);
    server_.always({});
    EXPECT_TRUE(runUntil(isComplete, 2.0));
}

TEST_F(AsyncFileManagerTest, ServerThatLeadsToAFailingOneIsNotStormedEither) {
    ScriptedHttpServer goal;
    const std::wstring place = goal.url("/f");
    goal.setFile("/f", bytes_);
    server_.always({.status = 302,
                    .reason = "Found",
                    .lines = {"Location: " + std::string(place.begin(), place.end())}});
    std::wstring problem;
    const auto file = openHttpFile(server_.url("/f"), problem);
    ASSERT_TRUE(file);
    server_.resetCounts();
    goal.always({.status = 403, .reason = "Expired"});
    const double end = NBX::NBXTime::now() + 0.5;
    while (NBX::NBXTime::now() < end)
        EXPECT_FALSE(file->request(0, 10, 1.0)->wait());
    // At 0, 20, 60, 140, 300 and 500 ms; the first one goes to the goal itself.
    EXPECT_GE(server_.requests(), 3u);
    EXPECT_LE(server_.requests(), 6u);
    goal.always({});
    EXPECT_TRUE(file->request(0, 10, 1.0)->wait());
}

TEST_F(AsyncFileManagerTest, FilesLiveOnWhenTheApplicationObjectIsReplaced) {
    const auto file = open(server_);
    server_.setHeld(true);
    const AsyncFile::Requests requests = requestMany(*file, 6);
    ASSERT_TRUE(runUntil([&] { return server_.workingNow() == 4; }));
    TearDownTestSuite();
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(requests[i]->state(), AsyncFile::RS_Failed);
        EXPECT_EQ(requests[i]->errorText(), L"no QApplication running");
    }
    EXPECT_EQ(requests[4]->state(), AsyncFile::RS_Queued);
    EXPECT_FALSE(AsyncFile::isLoading());
    SetUpTestSuite();
    server_.setHeld(false);
    AsyncFileManager::instance().backoff() = {};
    EXPECT_TRUE(requests[4]->wait()) << "nothing else is asked for";
    EXPECT_EQ(bytesOf(*requests[4]), bytes_.substr(4, 10));
}
