#include <core/misc/asyncfile_win.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <core/file/pagestore.h>
#include <core/file/readengine.h>
#include <nbx/data/file.h>
#include <nbx/object/stringutils.h>
#include <support/interruptingsignal.h>
#include <support/recordedreports.h>
#include <support/scriptedfilecalls.h>
#include <support/temporaryfolder.h>
#include <zmt/core/misc/patience.h>
#include <zmt/core/misc/readprogress.h>

using NBX::SO;
using ZMT::CORE::AsyncFile;
using ZMT::CORE::IMPL::AsyncFile_Win;
using ZMT::CORE::IMPL::FileRead;
using ZMT::CORE::IMPL::PageStore;
using ZMT::CORE::IMPL::ReadEngine;
using Request = AsyncFile::Request;
using Request_Win = AsyncFile_Win::Request_Win;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes noise(std::size_t size, unsigned seed = 1) {
    std::mt19937 random(seed);
    Bytes bytes(size);
    for (unsigned char & byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

Bytes bytesOf(const Request & request) {
    const SO<NBX::DataResource> data = request.data();
    const auto * begin = static_cast<const unsigned char *>(data->pointer());
    return Bytes(begin, begin + data->size());
}

std::wstring wide(const std::string & text) {
    return NBX::StringUtils::Utf8String2WString(text);
}

std::wstring textOf(int error) {
    return wide(std::strerror(error));
}

/// All of it with the kernel's ring, and all of it with threads.
class AsyncFileWinTest : public testing::TestWithParam<ReadEngine::Kind> {
protected:
    void SetUp() override {
        if (!ReadEngine::use(GetParam())) GTEST_SKIP() << "this system forbids the kernel's ring";
        EXPECT_EQ(FileRead::countOwed(), 0U);
    }
    void TearDown() override {
        EXPECT_FALSE(AsyncFile::isLoading());
        EXPECT_EQ(FileRead::countOwed(), 0U);
        EXPECT_TRUE(ReadEngine::use(ReadEngine::RE_Automatic));
    }

    static std::string pathOf(const std::string & name = "file") {
        return NBX::File::absolutePath(std::string(std::getenv("TMPDIR")) + "/" + name);
    }
    static void write(const std::string & path, const Bytes & bytes) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    static SO<AsyncFile_Win> opened(const std::string & path = pathOf(), bool deleteWhenClosed = false) {
        return new AsyncFile_Win(wide(path), deleteWhenClosed);
    }
    static SO<AsyncFile_Win> openedWith(const Bytes & bytes) {
        write(pathOf(), bytes);
        return opened();
    }
    /// The bytes of a range of a file with these ones, the rest zeros.
    static Bytes rangeOf(const Bytes & bytes, std::uint64_t offset, std::uint64_t size) {
        Bytes result(size);
        for (std::uint64_t i = 0; i < size && offset + i < bytes.size(); ++i)
            result[i] = bytes[offset + i];
        return result;
    }
    /// Polls until nothing is under way.
    static void finishAll(const AsyncFile & file) {
        while (AsyncFile::isLoading()) {
            file.requests(AsyncFile::RS_Ready);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }
    static std::vector<AsyncFile::RequestState> statesOf(const std::vector<SO<Request>> & requests) {
        std::vector<AsyncFile::RequestState> states;
        for (const SO<Request> & request : requests)
            states.push_back(request->state());
        return states;
    }

    const TemporaryFolder folder_;
    const RecordedReports reports_;
};

std::string nameOf(const testing::TestParamInfo<ReadEngine::Kind> & info) {
    return info.param == ReadEngine::RE_Ring ? "Ring" : "Threads";
}

TEST_P(AsyncFileWinTest, ReadsTheBlocksThatARangeTouches) {
    const Bytes bytes = noise(20000);
    const SO<AsyncFile_Win> file = openedWith(bytes);
    EXPECT_TRUE(file->isOpen());
    EXPECT_EQ(file->size(), 20000U);
    EXPECT_EQ(file->errorText(), L"");
    EXPECT_EQ(file->url(), wide(pathOf()));

    const std::uint64_t before = AsyncFile::TotalLocalBytes();
    const std::uint64_t transfered = AsyncFile::TotalTransferedBytes();
    const std::uint64_t progress = ZMT::CORE::ReadProgress::totalBytes();
    const SO<Request> request = file->request(5000, 100, 3.0);
    EXPECT_EQ(request->transferredBytes(), -1);
    EXPECT_TRUE(request->wait());
    EXPECT_EQ(request->state(), AsyncFile::RS_Ready);
    EXPECT_EQ(request->file(), file);
    EXPECT_EQ(request->offset(), 5000U);
    EXPECT_EQ(request->transferredBytes(), 100);
    EXPECT_EQ(request->errorText(), L"");
    EXPECT_EQ(request->data()->size(), 100U);
    EXPECT_FALSE(request->data()->isWritable());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(request->data()->pointer()) % 4096, 904U);
    EXPECT_EQ(bytesOf(*request), rangeOf(bytes, 5000, 100));
    EXPECT_EQ(AsyncFile::TotalLocalBytes() - before, 4096U);
    EXPECT_EQ(ZMT::CORE::ReadProgress::totalBytes() - progress, 100U);
    EXPECT_TRUE(file->request(5000, 100, 3.0)->wait());
    EXPECT_EQ(ZMT::CORE::ReadProgress::totalBytes() - progress, 100U) << "the same again";
    EXPECT_EQ(AsyncFile::TotalTransferedBytes(), transfered) << "these are not of a server";
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_P(AsyncFileWinTest, AnyRangeHasTheBytesOfTheFileAndZerosBehindIt) {
    for (const std::size_t size : {0UL, 1UL, 511UL, 512UL, 4095UL, 4096UL, 4097UL, 12288UL, 100000UL}) {
        const Bytes bytes = noise(size, static_cast<unsigned>(size));
        const SO<AsyncFile_Win> file = openedWith(bytes);
        std::mt19937 random(7);
        std::vector<std::pair<SO<Request>, Bytes>> expected;
        for (int i = 0; i < 60; ++i) {
            const std::uint64_t offset = random() % (size + 9000), count = random() % 20000;
            expected.emplace_back(file->request(offset, count, random() % 5), rangeOf(bytes, offset, count));
        }
        for (const auto & [request, range] : expected) {
            ASSERT_TRUE(request->wait()) << size;
            EXPECT_EQ(request->transferredBytes(), static_cast<std::int64_t>(range.size()));
            EXPECT_TRUE(bytesOf(*request) == range) << range.size() << " at " << request->offset();
        }
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_P(AsyncFileWinTest, AnEmptyRangeIsReady) {
    const SO<AsyncFile_Win> file = openedWith(noise(5000));
    for (const std::uint64_t offset : {0UL, 1UL, 4096UL, 5000UL, 8192UL, 1UL << 60, UINT64_MAX}) {
        const SO<Request> request = file->request(offset, 0, 1.0);
        EXPECT_TRUE(request->wait()) << offset;
        EXPECT_EQ(request->data()->size(), 0U);
        EXPECT_EQ(request->transferredBytes(), 0);
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_P(AsyncFileWinTest, FarBehindTheEndAreZeros) {
    const SO<AsyncFile_Win> file = openedWith(noise(5000));
    for (const std::uint64_t offset : {8192UL, 1UL << 40, UINT64_MAX - 3000}) {
        const SO<Request> request = file->request(offset, 3000, 1.0);
        EXPECT_TRUE(request->wait());
        EXPECT_EQ(bytesOf(*request), Bytes(3000));
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_P(AsyncFileWinTest, WhatNoBlockOfMemoryHoldsFails) {
    const SO<AsyncFile_Win> file = openedWith(noise(5000));
    const std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges = {
        {0, 1UL << 32},  {4095, (1UL << 32) - 4096}, {0, UINT64_MAX}, {UINT64_MAX, UINT64_MAX},
        {UINT64_MAX, 1}, {UINT64_MAX - 4094, 4096}};
    for (const auto & [offset, size] : ranges) {
        const SO<Request> request = file->request(offset, size, 1.0);
        EXPECT_EQ(request->state(), AsyncFile::RS_Failed);
        EXPECT_FALSE(request->wait());
        EXPECT_EQ(request->errorText(), L"no memory for a range of " + std::to_wstring(size) + L" bytes at " +
                                            std::to_wstring(offset));
        EXPECT_EQ(request->data()->size(), 0U);
        EXPECT_EQ(request->transferredBytes(), -1);
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_P(AsyncFileWinTest, ALargeRangeOfASmallFileTakesNoMemory) {
    const Bytes bytes = noise(5000);
    const SO<AsyncFile_Win> file = openedWith(bytes);
    struct Resident {
        static long pages() {
            long size = 0, resident = 0;
            std::ifstream("/proc/self/statm") >> size >> resident;
            return resident;
        }
    };
    const long before = Resident::pages();
    const SO<Request> request = file->request(0, 3UL << 30, 1.0);
    ASSERT_TRUE(request->wait());
    EXPECT_LT(Resident::pages() - before, 4096);
    EXPECT_EQ(request->data()->size(), 3U << 30);
    EXPECT_EQ(std::memcmp(request->data()->pointer(), bytes.data(), bytes.size()), 0);
    EXPECT_EQ(static_cast<unsigned char *>(request->data()->pointer())[(3UL << 30) - 1], 0);
}

TEST_P(AsyncFileWinTest, TheNinthWaitsUntilAPollSeesOneOfTheFirstEightEnd) {
    ScriptedFileCalls calls;
    calls.hold();
    const SO<AsyncFile_Win> file = openedWith(noise(100000));
    std::vector<SO<Request>> requests;
    for (int i = 0; i < 10; ++i)
        requests.push_back(file->request(5000U * static_cast<unsigned>(i), 100, 1.0));
    EXPECT_TRUE(AsyncFile::isLoading());
    EXPECT_EQ(FileRead::countOwed(), 8U);
    std::vector<AsyncFile::RequestState> expected(8, AsyncFile::RS_Processing);
    expected.resize(10, AsyncFile::RS_Queued);
    EXPECT_EQ(statesOf(requests), expected);
    EXPECT_EQ(file->requests(AsyncFile::RS_Processing),
              AsyncFile::Requests(requests.begin(), requests.begin() + 8));
    EXPECT_EQ(file->requests(AsyncFile::RS_Queued),
              AsyncFile::Requests(requests.begin() + 8, requests.end()));

    calls.release();
    while (requests[3]->state() == AsyncFile::RS_Processing)
        std::this_thread::yield();
    EXPECT_NE(requests[8]->state(), AsyncFile::RS_Queued);
    finishAll(*file);
    EXPECT_EQ(statesOf(requests), std::vector<AsyncFile::RequestState>(10, AsyncFile::RS_Ready));
    EXPECT_EQ(file->requests(AsyncFile::RS_Ready), requests);
}

TEST_P(AsyncFileWinTest, EightAreReadInTheWholeProcess) {
    ScriptedFileCalls calls;
    calls.hold();
    const SO<AsyncFile_Win> first = openedWith(noise(100000));
    const SO<AsyncFile_Win> second = opened();
    for (unsigned i = 0; i < 6; ++i) {
        first->request(i, 10, 1.0);
        second->request(i, 10, 1.0);
    }
    EXPECT_EQ(first->requests(AsyncFile::RS_Processing).size(), 4U);
    EXPECT_EQ(second->requests(AsyncFile::RS_Processing).size(), 4U);
    calls.release();
    while (first->requests(AsyncFile::RS_Ready).size() + second->requests(AsyncFile::RS_Ready).size() < 12)
        EXPECT_LE(FileRead::countOwed(), 8U);
}

/// Fills all places with reads that do not end.
class AsyncFileWinQueueTest : public AsyncFileWinTest {
protected:
    void SetUp() override {
        AsyncFileWinTest::SetUp();
        if (IsSkipped()) return;
        file_ = openedWith(noise(100000));
        calls_.hold();
        for (unsigned i = 0; i < 8; ++i)
            running_.push_back(file_->request(i, 10, 100.0));
        while (calls_.begun < 8)
            std::this_thread::yield();
    }
    void TearDown() override {
        calls_.release();
        finishAll(*file_);
        while (FileRead::countOwed() > 0)
            ReadEngine::instance().wait(0.001);
        AsyncFileWinTest::TearDown();
    }
    /// Lets one after the other begin, and says in which order they did: the numbers of the requests.
    std::vector<std::size_t> order(const std::vector<SO<Request>> & requests) {
        std::vector<std::size_t> result;
        while (result.size() < requests.size()) {
            calls_.releaseOne();
            const std::size_t before = result.size();
            while (result.size() == before) {
                for (const SO<Request> & request : running_)
                    request->state();
                for (std::size_t i = 0; i < requests.size(); ++i)
                    if (std::count(result.begin(), result.end(), i) == 0 &&
                        requests[i]->state() != AsyncFile::RS_Queued) {
                        result.push_back(i);
                        running_.push_back(requests[i]);
                    }
            }
        }
        return result;
    }

    ScriptedFileCalls calls_;
    SO<AsyncFile_Win> file_;
    std::vector<SO<Request>> running_;
};

TEST_P(AsyncFileWinQueueTest, ARunningRequestKeepsItsPriority) {
    EXPECT_EQ(running_[0]->state(), AsyncFile::RS_Processing);
    EXPECT_FALSE(running_[0]->setPriority(5.0));
    EXPECT_EQ(running_[0]->priority(), 100.0);
    const SO<Request> queued = file_->request(0, 10, 1.0);
    EXPECT_TRUE(queued->setPriority(5.0));
    EXPECT_EQ(queued->priority(), 5.0);
    calls_.release();
    EXPECT_TRUE(queued->wait());
    EXPECT_EQ(queued->priority(), AsyncFile::topPriority);
    EXPECT_FALSE(queued->setPriority(1.0));
}

TEST_P(AsyncFileWinQueueTest, OnlyAQueuedRequestCanBeStarted) {
    EXPECT_EQ(static_cast<Request_Win &>(*running_[0]).start(), AsyncFile::RS_Processing);
    EXPECT_EQ(reports_.size(), 1U);
    EXPECT_EQ(reports_.count(0, L"m_state == RS_Queued", L"can only start queued requests"), 1U) << reports_;
}

TEST_P(AsyncFileWinQueueTest, ARemovedRequestThatWaitsFails) {
    const SO<Request> first = file_->request(0, 10, 1.0), second = file_->request(0, 10, 1.0);
    EXPECT_TRUE(file_->remove(first));
    EXPECT_FALSE(file_->remove(first));
    EXPECT_FALSE(first->cancel());
    EXPECT_TRUE(second->cancel());
    EXPECT_EQ(file_->requests(), running_);
    for (const SO<Request> & request : {first, second}) {
        EXPECT_EQ(request->state(), AsyncFile::RS_Failed);
        EXPECT_EQ(request->errorText(), L"the request was removed");
        EXPECT_FALSE(request->wait());
    }
    EXPECT_EQ(FileRead::countOwed(), 8U);
}

TEST_P(AsyncFileWinQueueTest, ARemovedRequestThatIsReadGoesOnAndCountsUntilItEnds) {
    const SO<Request> waiting = file_->request(0, 10, 1.0);
    EXPECT_TRUE(file_->remove(running_));
    EXPECT_EQ(file_->requests(), AsyncFile::Requests{waiting});
    EXPECT_EQ(waiting->state(), AsyncFile::RS_Queued);
    EXPECT_TRUE(AsyncFile::isLoading());
    calls_.release();
    EXPECT_TRUE(waiting->wait());
    for (const SO<Request> & request : running_)
        EXPECT_TRUE(request->wait());
    EXPECT_FALSE(AsyncFile::isLoading());
}

TEST_P(AsyncFileWinQueueTest, RequestsOfOtherFilesAreNotRemoved) {
    const SO<AsyncFile_Win> other = opened();
    const SO<Request> request = other->request(0, 10, 1.0);
    EXPECT_FALSE(file_->remove(request));
    EXPECT_FALSE(file_->remove(SO<Request>()));
    EXPECT_FALSE(file_->remove(AsyncFile::Requests()));
    EXPECT_TRUE(other->remove(AsyncFile::Requests{running_[0], request}));
    EXPECT_EQ(file_->requests().size(), 8U);
}

TEST_P(AsyncFileWinQueueTest, RequestsFailWhenTheirFileIsClosed) {
    const SO<AsyncFile_Win> other = opened();
    const SO<Request> queued = file_->request(0, 10, 1.0), unseen = file_->request(0, 10, 1.0);
    const SO<Request> next = other->request(0, 10, 0.5);
    file_ = nullptr;
    EXPECT_EQ(queued->state(), AsyncFile::RS_Failed);
    EXPECT_EQ(queued->errorText(), L"the file was closed");
    EXPECT_FALSE(queued->setPriority(1.0));
    EXPECT_EQ(queued->file(), SO<AsyncFile>());
    EXPECT_FALSE(queued->cancel());
    EXPECT_FALSE(unseen->wait());
    for (const SO<Request> & request : running_) {
        EXPECT_EQ(request->state(), AsyncFile::RS_Failed);
        EXPECT_EQ(request->errorText(), L"the file was closed");
    }
    EXPECT_EQ(next->state(), AsyncFile::RS_Queued) << "their memory is still written to";
    EXPECT_EQ(FileRead::countOwed(), 8U);
    EXPECT_FALSE(running_[0]->wait());
    calls_.release();
    EXPECT_TRUE(next->wait());
    file_ = other;
}

TEST_P(AsyncFileWinQueueTest, AClosedFileIsNotLoadingForEver) {
    EXPECT_TRUE(AsyncFile::isLoading());
    file_ = nullptr;
    calls_.release();
    running_.clear();
    EXPECT_FALSE(AsyncFile::isLoading());
    EXPECT_EQ(FileRead::countOwed(), 0U);
    file_ = opened();
}

TEST_P(AsyncFileWinQueueTest, ReadsOfClosedFilesMakeRoomThoughNobodyWaits) {
    const SO<AsyncFile_Win> other = opened();
    const SO<Request> next = other->request(0, 10, 1.0);
    file_ = nullptr;
    EXPECT_EQ(next->state(), AsyncFile::RS_Queued);
    calls_.release();
    for (int i = 0; i < 5000 && next->state() != AsyncFile::RS_Ready; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(next->state(), AsyncFile::RS_Ready);
    file_ = other;
}

TEST_P(AsyncFileWinQueueTest, RequestsOfClosedFilesAreNotPendingThoughNobodyLooksAtThem) {
    calls_.release();
    file_ = nullptr;
    EXPECT_EQ(AsyncFile::pendingRequests(), 0U);
    file_ = opened();
}

TEST_P(AsyncFileWinQueueTest, OneThatIsReadyMakesRoomThoughOthersWereGivenUp) {
    const SO<AsyncFile_Win> other = opened();
    const SO<Request> first = other->request(0, 10, 200.0), second = other->request(0, 10, 1.0);
    const int ended = calls_.reads;
    calls_.releaseOne();
    while (first->state() == AsyncFile::RS_Queued)
        std::this_thread::yield();
    file_ = nullptr; // seven reads of it go on
    EXPECT_EQ(second->state(), AsyncFile::RS_Queued);
    while (first->state() != AsyncFile::RS_Ready) {
        if (calls_.reads - ended < 9) calls_.releaseOne();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_NE(second->state(), AsyncFile::RS_Queued);
    calls_.release();
    EXPECT_TRUE(second->wait());
    file_ = other;
}

TEST_P(AsyncFileWinQueueTest, TheEndOfARequestWaitsForItsRead) {
    const SO<AsyncFile_Win> other = opened();
    file_ = nullptr;
    std::atomic<bool> isReleased{false};
    std::thread releasing([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        isReleased = true;
        calls_.release();
    });
    running_.clear();
    const SO<Request> next = other->request(0, 10, 1.0);
    EXPECT_TRUE(isReleased) << "the memory went while it was written to";
    releasing.join();
    EXPECT_LE(FileRead::countOwed(), 1U) << "that of the next request, unless it is done already";
    EXPECT_TRUE(next->wait());
    file_ = other;
}

TEST_P(AsyncFileWinQueueTest, ABlockingWaitEndsAfterThirtySecondsInAll) {
    const SO<Request> queued = file_->request(0, 10, 1.0), other = file_->request(0, 10, 1.0);
    std::thread clock([this] {
        for (int second = 0; second < 29; ++second) {
            calls_.laterSeconds = second;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        EXPECT_EQ(FileRead::countOwed(), 8U);
        calls_.laterSeconds = 30.1;
    });
    EXPECT_FALSE(file_->wait(AsyncFile::Requests{queued, other}));
    clock.join();
    EXPECT_EQ(queued->state(), AsyncFile::RS_Failed);
    EXPECT_EQ(queued->errorText(), L"the disk gave no answer");
    EXPECT_EQ(other->state(), AsyncFile::RS_Queued) << "it was not waited for";
    EXPECT_EQ(FileRead::countOwed(), 8U);
}

TEST_P(AsyncFileWinQueueTest, WhatPatienceDoesNotWaitForGoesOn) {
    const SO<Request> queued = file_->request(0, 10, 1.0);
    EXPECT_EQ(AsyncFile::pendingRequests(), 9U);
    {
        const ZMT::CORE::Patience patience(0.02);
        EXPECT_FALSE(running_[2]->wait());
        EXPECT_FALSE(queued->wait());
    }
    EXPECT_EQ(running_[2]->state(), AsyncFile::RS_Processing);
    EXPECT_EQ(queued->state(), AsyncFile::RS_Queued);
    EXPECT_EQ(queued->priority(), 1.0) << "what is seen may overtake it again";
    calls_.release();
    EXPECT_TRUE(running_[2]->wait());
    EXPECT_TRUE(queued->wait());
}

TEST_P(AsyncFileWinQueueTest, AReadThatWasGivenUpStillCounts) {
    std::thread clock([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        calls_.laterSeconds = 31.0;
    });
    EXPECT_FALSE(running_[2]->wait());
    clock.join();
    EXPECT_EQ(running_[2]->errorText(), L"the disk gave no answer");
    const SO<Request> next = file_->request(0, 10, 1.0);
    EXPECT_EQ(next->state(), AsyncFile::RS_Queued);
    EXPECT_EQ(FileRead::countOwed(), 8U);
    calls_.release();
    EXPECT_TRUE(next->wait());
    EXPECT_EQ(running_[2]->state(), AsyncFile::RS_Failed);
}

TEST_P(AsyncFileWinQueueTest, TheHighestPriorityIsServedFirstAndEqualOnesAsTheyCame) {
    const double nan = std::nan("");
    std::vector<SO<Request>> requests;
    for (const double priority : {1.0, 3.0, nan, 3.0, -1e300, 2.0, 0.5})
        requests.push_back(file_->request(0, 10, priority));
    EXPECT_TRUE(requests[6]->setPriority(3.0));
    EXPECT_TRUE(requests[1]->setPriority(2.0));
    EXPECT_TRUE(requests[2]->setPriority(nan));
    EXPECT_TRUE(std::isnan(requests[2]->priority()));
    EXPECT_EQ(order(requests), (std::vector<std::size_t>{3, 6, 5, 1, 0, 4, 2}));
}

TEST_P(AsyncFileWinQueueTest, WhoWaitsOvertakes) {
    std::vector<SO<Request>> requests;
    for (const double priority : {1e41, 1.0})
        requests.push_back(file_->request(0, 10, priority));
    std::thread clock([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        calls_.release();
    });
    EXPECT_TRUE(requests[1]->wait());
    clock.join();
    EXPECT_EQ(requests[1]->priority(), AsyncFile::topPriority);
}

TEST_P(AsyncFileWinTest, WhatIsNoFileIsNotOpenAndSaysWhy) {
    std::filesystem::create_directory(pathOf("folder"));
    ASSERT_EQ(::mkfifo(pathOf("pipe").c_str(), 0666), 0);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{AF_UNIX, {}};
    std::strncpy(address.sun_path, pathOf("socket").c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    std::filesystem::create_symlink(pathOf("loop"), pathOf("loop"));
    const std::vector<std::pair<std::string, std::wstring>> cases = {
        {pathOf("missing"), textOf(ENOENT)},
        {pathOf("folder"), L"this is a folder, no file"},
        {pathOf("folder") + "/", L"this is a folder, no file"},
        {pathOf("pipe"), L"this is a pipe or a device, no file"},
        {pathOf("socket"), textOf(ENXIO)},
        {pathOf("loop"), textOf(ELOOP)},
        {"/dev/zero", L"this is a pipe or a device, no file"},
        {pathOf("folder") + "/missing/file", textOf(ENOENT)},
        {pathOf(std::string(300, 'x')), textOf(ENAMETOOLONG)},
    };
    for (const auto & [path, text] : cases) {
        const SO<AsyncFile_Win> file = opened(path, true);
        EXPECT_FALSE(file->isOpen()) << path;
        EXPECT_EQ(file->errorText(), text) << path;
        EXPECT_EQ(file->size(), 0U);
        EXPECT_EQ(file->request(0, 10, 1.0), SO<Request>());
        EXPECT_TRUE(file->requests().empty());
    }
    ::close(socket);
    EXPECT_TRUE(NBX::File::isDir(pathOf("folder"))) << "what was not opened is not deleted";
    EXPECT_TRUE(NBX::File::exists(pathOf("pipe")));
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_P(AsyncFileWinTest, APathCountsFromTheCurrentFolder) {
    write(pathOf(), noise(10));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(std::getenv("TMPDIR"));
    const SO<AsyncFile_Win> file(new AsyncFile_Win(L"./other/../file", false));
    std::filesystem::create_directory("gone");
    std::filesystem::current_path("gone");
    std::filesystem::remove(pathOf("gone"));
    const SO<AsyncFile_Win> nowhere(new AsyncFile_Win(L"file", false));
    std::filesystem::current_path(before);
    EXPECT_EQ(file->url(), wide(pathOf()));
    EXPECT_TRUE(file->isOpen());
    EXPECT_FALSE(nowhere->isOpen());
    EXPECT_EQ(nowhere->errorText(), L"the current working directory no longer exists");
}

TEST_P(AsyncFileWinTest, WithoutAccessRightsItIsNotOpen) {
    write(pathOf(), noise(10));
    ScriptedFileCalls calls;
    calls.openError = EACCES; // for the administrator there are no others
    EXPECT_EQ(opened()->errorText(), textOf(EACCES));
    EXPECT_EQ(calls.opens, 1);
}

TEST_P(AsyncFileWinTest, WhoseLengthIsNotToldIsNotOpen) {
    write(pathOf(), noise(10));
    ScriptedFileCalls calls;
    calls.fstatError = EIO;
    const SO<AsyncFile_Win> file = opened();
    EXPECT_FALSE(file->isOpen());
    EXPECT_EQ(file->errorText(), textOf(EIO));
    EXPECT_EQ(calls.closes, 1);
}

TEST_P(AsyncFileWinTest, OpeningGoesOnAfterASignal) {
    write(pathOf(), noise(10));
    ScriptedFileCalls calls;
    calls.interruptedOpens = 3;
    EXPECT_TRUE(opened()->isOpen());
    EXPECT_GE(calls.opens, 4);
}

TEST_P(AsyncFileWinTest, GoesThroughTheCacheWhereTheFileSystemHasNoOtherWay) {
    const Bytes bytes = noise(30000);
    write(pathOf(), bytes);
    ScriptedFileCalls calls;
    calls.directError = EINVAL;
    const SO<AsyncFile_Win> file = opened();
    EXPECT_TRUE(file->isOpen());
    const SO<Request> request = file->request(5000, 20000, 1.0);
    EXPECT_TRUE(request->wait());
    EXPECT_EQ(bytesOf(*request), rangeOf(bytes, 5000, 20000));
}

TEST_P(AsyncFileWinTest, GoesThroughTheCacheWhereADeviceRefusesBlocksOfThisSize) {
    const Bytes bytes = noise(30000);
    ScriptedFileCalls calls;
    const SO<AsyncFile_Win> file = openedWith(bytes);
    calls.answer({-EINVAL});
    const SO<Request> request = file->request(5000, 20000, 1.0);
    EXPECT_TRUE(request->wait()) << "the file system of the test reads past the cache";
    EXPECT_EQ(bytesOf(*request), rangeOf(bytes, 5000, 20000));
    calls.answer({-EINVAL, -EINVAL});
    const SO<Request> second = file->request(5000, 20000, 1.0);
    EXPECT_FALSE(second->wait()) << "there is no further way";
    EXPECT_EQ(second->errorText(), textOf(EINVAL));
}

TEST_P(AsyncFileWinTest, PartsSignalsAndABusyDeviceAreGoneOnWith) {
    const Bytes bytes = noise(70000);
    const std::vector<std::vector<int>> cases = {{512},
                                                 {4096, 4096, 512},
                                                 {-EINTR, -EINTR, -EINTR},
                                                 {-EAGAIN, -EAGAIN},
                                                 {1000, 3000, 513},
                                                 {100, 511, 700},
                                                 {4096, -EINTR, 1024, -EAGAIN, 8192, -EINTR}};
    for (const auto & answers : cases) {
        SCOPED_TRACE(testing::PrintToString(answers));
        ScriptedFileCalls calls;
        const SO<AsyncFile_Win> file = openedWith(bytes);
        calls.answer(answers);
        const SO<Request> request = file->request(3000, 66000, 1.0);
        EXPECT_TRUE(request->wait());
        EXPECT_EQ(calls.answersLeft(), 0U);
        EXPECT_EQ(calls.reads, static_cast<int>(answers.size()) + 1);
        EXPECT_TRUE(bytesOf(*request) == rangeOf(bytes, 3000, 66000));
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_P(AsyncFileWinTest, ADeviceThatStaysBusyFails) {
    ScriptedFileCalls calls;
    const SO<AsyncFile_Win> file = openedWith(noise(5000));
    calls.answerAlways(-EAGAIN);
    const SO<Request> request = file->request(0, 10, 1.0);
    while (calls.reads < 3)
        ASSERT_EQ(request->state(), AsyncFile::RS_Processing);
    calls.laterSeconds = 4.0;
    const int before = calls.reads;
    while (calls.reads < before + 3)
        ASSERT_EQ(request->state(), AsyncFile::RS_Processing);
    calls.laterSeconds = 6.0;
    EXPECT_FALSE(request->wait());
    EXPECT_EQ(request->errorText(), textOf(EAGAIN));
}

TEST_P(AsyncFileWinTest, ABusyDeviceMayBeBusyAgainLater) {
    ScriptedFileCalls calls;
    const Bytes bytes = noise(50000);
    const SO<AsyncFile_Win> file = openedWith(bytes);
    calls.answerAlways(-EAGAIN);
    const SO<Request> request = file->request(0, 50000, 1.0);
    while (calls.reads < 1)
        ASSERT_EQ(request->state(), AsyncFile::RS_Processing);
    calls.laterSeconds = 4.0;
    calls.answer({4096});
    while (calls.answersLeft() > 0)
        ASSERT_EQ(request->state(), AsyncFile::RS_Processing);
    calls.laterSeconds = 8.0;
    for (const int before = calls.reads; calls.reads < before + 3;)
        ASSERT_EQ(request->state(), AsyncFile::RS_Processing) << "it gave something at 4";
    calls.answerAlways(100000);
    EXPECT_TRUE(request->wait());
    EXPECT_TRUE(bytesOf(*request) == bytes);
}

TEST_P(AsyncFileWinTest, AReadErrorFailsItsRequestAlone) {
    ScriptedFileCalls calls;
    const Bytes bytes = noise(50000);
    const SO<AsyncFile_Win> file = openedWith(bytes);
    for (const auto & answers : std::vector<std::vector<int>>{{-EIO}, {4096, -EIO}}) {
        calls.answer(answers);
        const SO<Request> broken = file->request(0, 20000, 1.0);
        EXPECT_FALSE(broken->wait());
        EXPECT_EQ(broken->state(), AsyncFile::RS_Failed);
        EXPECT_EQ(broken->errorText(), textOf(EIO));
        EXPECT_EQ(broken->transferredBytes(), -1);
        EXPECT_FALSE(broken->setPriority(3.0));
    }
    const SO<Request> next = file->request(0, 20000, 1.0);
    EXPECT_TRUE(next->wait());
    EXPECT_EQ(bytesOf(*next), rangeOf(bytes, 0, 20000));
    EXPECT_EQ(file->requests().size(), 3U);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_P(AsyncFileWinTest, AWaitForSeveralEndsWithTheFirstFailure) {
    ScriptedFileCalls calls;
    const SO<AsyncFile_Win> file = openedWith(noise(50000));
    const AsyncFile::Requests good = {file->request(0, 10, 1.0), file->request(5, 10, 1.0)};
    EXPECT_TRUE(file->wait(good));
    calls.answer({-EIO});
    const SO<Request> broken = file->request(0, 10, 1.0);
    while (broken->state() == AsyncFile::RS_Processing)
        std::this_thread::yield();
    calls.hold();
    const SO<Request> behind = file->request(0, 10, 1.0);
    EXPECT_FALSE(file->wait(AsyncFile::Requests{good[0], broken, behind}));
    EXPECT_EQ(behind->state(), AsyncFile::RS_Processing);
    EXPECT_EQ(behind->priority(), 1.0);
    calls.release();
    EXPECT_FALSE(file->wait(AsyncFile::Requests{behind, SO<Request>()}));
}

TEST_P(AsyncFileWinTest, AFileThatIsCutInUseFailsWhereItsBytesAreMissing) {
    const Bytes bytes = noise(50000);
    for (const std::uint64_t length : {0UL, 1UL, 512UL, 4096UL, 5000UL, 8192UL, 49999UL}) {
        const SO<AsyncFile_Win> file = openedWith(bytes);
        std::filesystem::resize_file(pathOf(), length);
        const std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges = {
            {0, 1},         {0, 512},       {0, 4096},      {100, 4900},  {100, 4901},  {8191, 1}, {8192, 1},
            {20000, 29999}, {20000, 30000}, {20000, 60000}, {49999, 100}, {50000, 100}, {0, 0}};
        for (const auto & [offset, size] : ranges) {
            SCOPED_TRACE(std::to_string(size) + " at " + std::to_string(offset) + " of " +
                         std::to_string(length));
            const SO<Request> request = file->request(offset, size, 1.0);
            const std::uint64_t needed = std::min<std::uint64_t>(offset + size, 50000);
            const bool isThere = offset >= 50000 || size == 0 || needed <= length;
            const std::uint64_t before = AsyncFile::TotalLocalBytes();
            EXPECT_EQ(request->wait(), isThere);
            if (!isThere) {
                EXPECT_EQ(AsyncFile::TotalLocalBytes(), before) << "what failed is no progress";
            }
            EXPECT_EQ(request->errorText(), isThere ? L"" : L"the file was cut");
            if (isThere) {
                EXPECT_TRUE(bytesOf(*request) == rangeOf(bytes, offset, size));
            }
        }
        EXPECT_EQ(file->size(), 50000U);
    }
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_P(AsyncFileWinTest, AFileThatGrowsHasWhatItHadWhenItWasOpened) {
    const Bytes bytes = noise(5000), more = noise(40000);
    const SO<AsyncFile_Win> file = openedWith(bytes);
    std::ofstream(pathOf(), std::ios::binary | std::ios::app)
        .write(reinterpret_cast<const char *>(more.data()), 40000);
    const SO<Request> request = file->request(100, 30000, 1.0);
    EXPECT_TRUE(request->wait());
    EXPECT_TRUE(bytesOf(*request) == rangeOf(bytes, 100, 30000));
}

TEST_P(AsyncFileWinTest, GoesOnWithWhatItOpenedWhenThePathIsRemovedOrReplaced) {
    const Bytes bytes = noise(20000), others = noise(20000, 2);
    const SO<AsyncFile_Win> replaced = openedWith(bytes);
    write(pathOf("other"), others);
    std::filesystem::rename(pathOf("other"), pathOf());
    const SO<AsyncFile_Win> removed = opened();
    std::filesystem::remove(pathOf());
    const SO<Request> first = replaced->request(5000, 100, 1.0), second = removed->request(5000, 100, 1.0);
    EXPECT_TRUE(first->wait());
    EXPECT_TRUE(second->wait());
    EXPECT_EQ(bytesOf(*first), rangeOf(bytes, 5000, 100));
    EXPECT_EQ(bytesOf(*second), rangeOf(others, 5000, 100));
}

TEST_P(AsyncFileWinTest, SaysWhenItsPathMeansAnotherFile) {
    const Bytes bytes = noise(20000);
    const SO<AsyncFile_Win> file = openedWith(bytes);
    EXPECT_FALSE(file->hasChanged());
    write(pathOf("other"), bytes);
    std::filesystem::last_write_time(pathOf("other"), std::filesystem::last_write_time(pathOf()));
    std::filesystem::rename(pathOf("other"), pathOf());
    EXPECT_TRUE(file->hasChanged()) << "the same bytes of the same time, but not the same file";
    EXPECT_FALSE(opened()->hasChanged());
    std::filesystem::remove(pathOf());
    EXPECT_FALSE(file->hasChanged()) << "there is no other one";

    const SO<AsyncFile_Win> cut = openedWith(bytes);
    const auto time = std::filesystem::last_write_time(pathOf());
    std::filesystem::resize_file(pathOf(), 10000);
    std::filesystem::last_write_time(pathOf(), time);
    EXPECT_TRUE(cut->hasChanged());
    const SO<AsyncFile_Win> touched = opened();
    std::filesystem::last_write_time(pathOf(), time + std::chrono::milliseconds(1));
    EXPECT_TRUE(touched->hasChanged());
    std::filesystem::last_write_time(pathOf(), time + std::chrono::seconds(1));
    EXPECT_TRUE(touched->hasChanged());
    EXPECT_FALSE(opened(pathOf("nowhere"))->hasChanged());
}

TEST_P(AsyncFileWinTest, IsDeletedWithItsLastReferenceWhereThatIsWanted) {
    for (const bool deleteWhenClosed : {false, true}) {
        write(pathOf(), noise(20000));
        SO<AsyncFile_Win> file = opened(pathOf(), deleteWhenClosed);
        const SO<Request> request = file->request(0, 100, 1.0);
        EXPECT_TRUE(request->wait());
        EXPECT_TRUE(NBX::File::exists(pathOf()));
        file = nullptr;
        EXPECT_EQ(NBX::File::exists(pathOf()), !deleteWhenClosed);
        EXPECT_EQ(request->state(), AsyncFile::RS_Ready) << "it has its bytes";
        EXPECT_EQ(bytesOf(*request).size(), 100U);
    }
}

TEST_P(AsyncFileWinTest, AClosedFileIsGivenBackToTheSystem) {
    ScriptedFileCalls calls;
    {
        const SO<AsyncFile_Win> file = openedWith(noise(20000));
        EXPECT_TRUE(file->request(0, 100, 1.0)->wait());
        calls.hold();
        file->request(0, 100, 1.0);
    }
    EXPECT_EQ(calls.closes, 0) << "it is still read from";
    calls.release();
    const SO<AsyncFile_Win> other = opened();
    EXPECT_TRUE(other->request(0, 100, 1.0)->wait());
    EXPECT_EQ(calls.closes, 1);
}

TEST_P(AsyncFileWinTest, PartsOfAClosedFileAreNotGoneOnWith) {
    ScriptedFileCalls calls;
    calls.hold();
    SO<AsyncFile_Win> file = openedWith(noise(20000));
    file->request(0, 10000, 1.0);
    while (calls.begun < 1)
        std::this_thread::yield();
    calls.answer({512, 512, 512});
    file = nullptr;
    calls.release();
    while (FileRead::countOwed() > 0)
        ReadEngine::instance().wait(0.001);
    EXPECT_EQ(calls.reads, 1);
}

TEST_P(AsyncFileWinTest, WithoutMemoryARequestFails) {
    PageStore::clear();
    ScriptedFileCalls calls;
    const SO<AsyncFile_Win> file = openedWith(noise(20000));
    calls.allocateError = ENOMEM;
    const SO<Request> request = file->request(5000, 5000, 1.0);
    EXPECT_EQ(reports_.size(), 1U);
    EXPECT_EQ(reports_.count(0, L"m_buffer", L"VirtualAlloc() failed for 8192 bytes: " + textOf(ENOMEM)), 1U)
        << reports_;
    EXPECT_EQ(request->state(), AsyncFile::RS_Failed);
    EXPECT_EQ(request->errorText(), L"no memory for a range of 5000 bytes at 5000");
    EXPECT_EQ(request->data()->size(), 0U);
    EXPECT_EQ(reports_.size(), 1U);
    EXPECT_TRUE(file->remove(request));
}

TEST_P(AsyncFileWinTest, MemoryThatIsNotTakenBackIsReported) {
    ScriptedFileCalls calls;
    const SO<AsyncFile_Win> file = openedWith(noise(20000));
    SO<Request> request = file->request(5000, 2 << 20, 1.0);
    EXPECT_TRUE(request->wait());
    EXPECT_TRUE(file->remove(request));
    calls.releaseError = EINVAL;
    request = nullptr;
    EXPECT_EQ(reports_.size(), 1U);
    EXPECT_EQ(reports_.count(0, L"success", L"VirtualFree() failed for 2101248 bytes: " + textOf(EINVAL)), 1U)
        << reports_;
}

TEST_P(AsyncFileWinTest, SignalsDisturbNothing) {
    const InterruptingSignal signal;
    const Bytes bytes = noise(1 << 20);
    const SO<AsyncFile_Win> file = openedWith(bytes);
    std::atomic<bool> isDone{false};
    const pthread_t reader = pthread_self();
    std::thread sender([&] {
        while (!isDone) {
            signal.sendTo(reader);
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    });
    for (unsigned i = 0; i < 300; ++i) {
        const SO<Request> request = file->request(i * 3001, 100000, 1.0);
        EXPECT_TRUE(request->wait());
        EXPECT_TRUE(bytesOf(*request) == rangeOf(bytes, i * 3001, 100000));
        file->remove(request);
    }
    isDone = true;
    sender.join();
}

/// Asking, polling, removing and closing at random while reads fail at random: what is ready is right, and in
/// the end nothing is left.
TEST_P(AsyncFileWinTest, EveryReadyRequestHasItsBytesWhateverHappens) {
    const unsigned seed = 11;
    std::mt19937 random(seed);
    const Bytes bytes = noise(300000);
    write(pathOf(), bytes);
    ScriptedFileCalls calls;
    std::vector<SO<AsyncFile_Win>> files(3);
    std::vector<SO<Request>> held;
    // The disk stands still at times, also while the end of a request waits for it.
    std::atomic<bool> isDone{false};
    std::thread disk([&] {
        while (!isDone) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            calls.release();
        }
    });
    int ready = 0, failed = 0;
    for (int step = 0; ready < 200 && step < 2000000; ++step) {
        SO<AsyncFile_Win> & file = files[random() % 3];
        if (!file) file = opened();
        const unsigned what = random() % 1000;
        if (what < 300 && held.size() < 60)
            held.push_back(file->request(random() % 320000, random() % 70000, random() % 9));
        else if (what < 340 && !held.empty())
            held[random() % held.size()]->setPriority(random() % 9);
        else if (what < 360 && !held.empty())
            held[random() % held.size()]->cancel();
        else if (what < 363)
            file = nullptr;
        else if (what < 380)
            calls.answer({static_cast<int>(random() % 9000), -EINTR});
        else if (what < 383)
            calls.answer({-EIO});
        else if (what < 390)
            calls.hold();
        else if (!held.empty()) {
            const std::size_t i = random() % held.size();
            const AsyncFile::RequestState state = held[i]->state();
            EXPECT_LE(FileRead::countOwed(), 8U) << "step " << step << ", seed " << seed;
            if (state < AsyncFile::RS_Ready) continue;
            if (state == AsyncFile::RS_Ready) {
                const Bytes is = bytesOf(*held[i]);
                EXPECT_TRUE(is == rangeOf(bytes, held[i]->offset(), is.size())) << "step " << step;
            }
            ++(state == AsyncFile::RS_Ready ? ready : failed);
            held.erase(held.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    EXPECT_EQ(ready, 200);
    EXPECT_GT(failed, 0);
    files.clear();
    for (const SO<Request> & request : held)
        request->state();
    held.clear();
    const SO<AsyncFile_Win> file = opened();
    file->request(0, 1, 1.0)->wait();
    isDone = true;
    disk.join();
    EXPECT_TRUE(reports_.empty()) << reports_;
}

using AsyncFileWinDeathTest = AsyncFileWinTest;

/// The process ends while reads are under way, none of which ends.
[[noreturn]] void exitAmidReads(ReadEngine::Kind kind, const std::wstring & path) {
    ScriptedFileCalls & calls = *new ScriptedFileCalls; // which the threads wait in for ever
    if (!ReadEngine::use(kind)) std::_Exit(1);
    calls.hold();
    static const SO<AsyncFile_Win> file(new AsyncFile_Win(path, false));
    for (unsigned i = 0; i < 20; ++i)
        file->request(i * 4096U, 65536, 1.0);
    std::exit(FileRead::countOwed() == 8 ? 7 : 2);
}

TEST_P(AsyncFileWinDeathTest, TheProcessEndsAmidReads) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    write(pathOf(), noise(1 << 20));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EXIT(exitAmidReads(GetParam(), wide(pathOf())), testing::ExitedWithCode(7), "");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

INSTANTIATE_TEST_SUITE_P(Engines, AsyncFileWinTest,
                         testing::Values(ReadEngine::RE_Ring, ReadEngine::RE_Threads), nameOf);
INSTANTIATE_TEST_SUITE_P(Engines, AsyncFileWinDeathTest,
                         testing::Values(ReadEngine::RE_Ring, ReadEngine::RE_Threads), nameOf);
INSTANTIATE_TEST_SUITE_P(Engines, AsyncFileWinQueueTest,
                         testing::Values(ReadEngine::RE_Ring, ReadEngine::RE_Threads), nameOf);

} // namespace
