#include <zmt/core/misc/asyncfile.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include <core/file/filecalls.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/object/stringutils.h>
#include <nbx/object/wo.h>
#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

using NBX::SO;
using ZMT::CORE::AsyncFile;

namespace {

/// A request whose states a test tells.
class ToldRequest : public AsyncFile::Request {
    NBX_TEMPLATE_CLASS(ToldRequest, AsyncFile::Request)
public:
    ToldRequest(AsyncFile * file, AsyncFile::RequestState told) : file_(file), told(told) {}
    SO<AsyncFile> file() const override { return file_.lock(); }
    std::uint64_t offset() const override { return 0; }
    SO<NBX::DataResource> data() const override { return nullptr; }
    double priority() const override { return 0.0; }
    AsyncFile::RequestState state() override { return ++polls, told; }
    std::int64_t transferredBytes() const override { return -1; }
    bool wait() override { return ++waits, told == AsyncFile::RS_Ready; }
    std::wstring errorText() const override { return {}; }
    bool setPriority(double) override { return false; }

private:
    NBX::WO<AsyncFile> file_;

public:
    AsyncFile::RequestState told;
    int polls = 0, waits = 0;
};

/// A file that knows what a test gives it.
class ToldFile : public AsyncFile {
    NBX_TEMPLATE_CLASS(ToldFile, AsyncFile)
public:
    using AsyncFile::remove;
    using AsyncFile::requests;
    using AsyncFile::wait;
    std::wstring url() const override { return {}; }
    std::wstring errorText() const override { return {}; }
    std::uint64_t size() const override { return 0; }
    Requests requests() const override { return known; }
    SO<Request> request(std::uint64_t, std::uint64_t, double) override { return nullptr; }
    bool remove(const SO<Request> & request) override { return std::erase(known, request) > 0; }
    bool isOpen() const override { return true; }

    SO<ToldRequest> add(RequestState told) {
        SO<ToldRequest> request(new ToldRequest(this, told));
        known.emplace_back(request);
        return request;
    }
    Requests known;
};

TEST(AsyncFile, WaitingForNothingSucceedsAndForNullFails) {
    const SO<ToldFile> file(new ToldFile);
    EXPECT_TRUE(file->wait(AsyncFile::Requests()));
    EXPECT_FALSE(file->wait(SO<AsyncFile::Request>()));
    EXPECT_FALSE(file->wait(AsyncFile::Requests{file->add(AsyncFile::RS_Ready), nullptr}));
}

TEST(AsyncFile, WaitsForEachInTurnUpToTheFirstFailure) {
    const SO<ToldFile> file(new ToldFile);
    const std::vector<SO<ToldRequest>> told = {
        file->add(AsyncFile::RS_Ready), file->add(AsyncFile::RS_Failed), file->add(AsyncFile::RS_Ready)};
    EXPECT_FALSE(file->wait(file->requests()));
    EXPECT_EQ(told[0]->waits, 1);
    EXPECT_EQ(told[1]->waits, 1);
    EXPECT_EQ(told[2]->waits, 0);
    EXPECT_TRUE(file->wait(AsyncFile::Requests{told[2], told[0]}));
    EXPECT_TRUE(file->wait(SO<AsyncFile::Request>(told[2])));
}

TEST(AsyncFile, RequestsOfAStateKeepTheirOrderAndAllAreLookedAtOnce) {
    const SO<ToldFile> file(new ToldFile);
    EXPECT_TRUE(file->requests(AsyncFile::RS_Ready).empty());
    std::vector<SO<ToldRequest>> told;
    for (const int state : {2, 3, 2, 0, 1, 2, 0})
        told.push_back(file->add(static_cast<AsyncFile::RequestState>(state)));
    EXPECT_EQ(file->requests(AsyncFile::RS_Ready), (AsyncFile::Requests{told[0], told[2], told[5]}));
    for (const SO<ToldRequest> & request : told)
        EXPECT_EQ(request->polls, 1);
    EXPECT_EQ(file->requests(AsyncFile::RS_Queued), (AsyncFile::Requests{told[3], told[6]}));
    EXPECT_EQ(file->requests(AsyncFile::RS_Processing), (AsyncFile::Requests{told[4]}));
    EXPECT_EQ(file->requests(AsyncFile::RS_Failed), (AsyncFile::Requests{told[1]}));
}

TEST(AsyncFile, RemovesAllThatItKnows) {
    const SO<ToldFile> file(new ToldFile), other(new ToldFile);
    const SO<AsyncFile::Request> first = file->add(AsyncFile::RS_Ready),
                                 second = file->add(AsyncFile::RS_Ready),
                                 third = file->add(AsyncFile::RS_Ready),
                                 foreign = other->add(AsyncFile::RS_Ready);
    EXPECT_FALSE(file->remove(AsyncFile::Requests()));
    EXPECT_FALSE(file->remove(AsyncFile::Requests{foreign}));
    EXPECT_TRUE(file->remove(AsyncFile::Requests{foreign, first, foreign, second}));
    EXPECT_EQ(file->requests(), AsyncFile::Requests{third});
    EXPECT_TRUE(file->remove(AsyncFile::Requests{third, foreign}));
    EXPECT_EQ(other->requests(), AsyncFile::Requests{foreign});
}

TEST(AsyncFile, CancelingRemovesFromTheFile) {
    SO<ToldFile> file(new ToldFile);
    const SO<AsyncFile::Request> first = file->add(AsyncFile::RS_Queued),
                                 second = file->add(AsyncFile::RS_Queued);
    EXPECT_TRUE(first->cancel());
    EXPECT_FALSE(first->cancel());
    EXPECT_EQ(file->requests(), AsyncFile::Requests{second});
    file = nullptr;
    EXPECT_FALSE(second->cancel());
}

TEST(AsyncFile, OpensAPath) {
    const TemporaryFolder folder;
    const RecordedReports reports;
    const std::string path = std::string(std::getenv("TMPDIR")) + "/höhen";
    std::ofstream(path) << "0123456789";
    std::wstring problem = L"none";
    SO<AsyncFile> file = AsyncFile::create(NBX::StringUtils::Utf8String2WString(path), true, &problem);
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->isOpen());
    EXPECT_EQ(file->size(), 10U);
    EXPECT_EQ(problem, L"none");
    const SO<AsyncFile::Request> request = file->request(3, 4, 1.0);
    EXPECT_TRUE(file->wait(request));
    EXPECT_EQ(std::string(static_cast<const char *>(request->data()->pointer()), 4), "3456");
    EXPECT_TRUE(std::filesystem::exists(path));
    file = nullptr;
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(AsyncFile, WhatCannotBeOpenedIsReportedAndTold) {
    const TemporaryFolder folder;
    const std::wstring name = NBX::StringUtils::Utf8String2WString(std::getenv("TMPDIR"));
    const std::vector<std::pair<std::wstring, std::wstring>> cases = {
        {name + L"/missing", NBX::StringUtils::Utf8String2WString(std::strerror(ENOENT))},
        {name, L"this is a folder, no file"},
        {L"ftp://localhost/file", NBX::StringUtils::Utf8String2WString(std::strerror(ENOENT))}};
    for (const auto & [path, text] : cases) {
        const RecordedReports reports;
        std::wstring problem;
        EXPECT_FALSE(AsyncFile::create(path, false, &problem));
        EXPECT_EQ(problem, text);
        EXPECT_FALSE(AsyncFile::create(path));
        EXPECT_EQ(reports.count(2, L"false", text + L": " + path), 2U) << reports;
        EXPECT_EQ(reports.size(), 2U);
    }
}

TEST(AsyncFile, WrapsBytesInMemory) {
    const SO<NBX::DataResource> bytes(new NBX::MemoryDataResource("abcdef", 6));
    const SO<AsyncFile> file = AsyncFile::create(bytes);
    EXPECT_TRUE(file->isOpen());
    EXPECT_EQ(file->size(), 6U);
    EXPECT_EQ(file->request(2, 3, 1.0)->data()->pointer(), bytes->pointer(2));
    EXPECT_FALSE(AsyncFile::create(SO<NBX::DataResource>())->isOpen());
}

} // namespace
