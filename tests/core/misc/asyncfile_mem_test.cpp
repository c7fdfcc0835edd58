#include <core/misc/asyncfile_mem.h>

#include <gtest/gtest.h>

#include <nbx/data/memorydataresource.h>
#include <support/recordedreports.h>

using NBX::SO;
using ZMT::CORE::AsyncFile;
using ZMT::CORE::AsyncFile_Mem;

namespace {

class AsyncFileMemTest : public testing::Test {
protected:
    const RecordedReports reports_;
    const SO<NBX::DataResource> bytes_{new NBX::MemoryDataResource("0123456789", 10)};
    SO<AsyncFile_Mem> file_{new AsyncFile_Mem(bytes_)};
};

TEST_F(AsyncFileMemTest, ARangeIsReadAtOnceOrItIsSaidWhyNot) {
    std::wstring problem;
    const SO<NBX::DataResource> range = file_->readNow(2, 5, &problem);
    ASSERT_TRUE(range);
    EXPECT_EQ(range->pointer(), bytes_->pointer(2));
    EXPECT_EQ(range->size(), 5U);
    EXPECT_TRUE(file_->requests().empty());
    EXPECT_EQ(problem, L"");
    EXPECT_FALSE(file_->readNow(7, 4, &problem));
    EXPECT_EQ(problem, L"the read came back short");
    EXPECT_TRUE(file_->requests().empty());
    const SO<AsyncFile_Mem> closed(new AsyncFile_Mem(nullptr));
    EXPECT_FALSE(closed->readNow(0, 1, &problem));
    EXPECT_EQ(problem, L"the file is not open");
    EXPECT_FALSE(closed->readNow(0, 1));
}

TEST_F(AsyncFileMemTest, ARequestIsReadyAtOnceAndSharesTheBytes) {
    EXPECT_TRUE(file_->isOpen());
    EXPECT_EQ(file_->size(), 10U);
    EXPECT_EQ(file_->url(), L"");
    EXPECT_EQ(file_->errorText(), L"");
    const SO<AsyncFile::Request> request = file_->request(2, 5, 3.0);
    EXPECT_EQ(request->state(), AsyncFile::RS_Ready);
    EXPECT_EQ(static_cast<AsyncFile_Mem::Request_Mem &>(*request).start(), AsyncFile::RS_Ready);
    EXPECT_EQ(request->data()->pointer(), bytes_->pointer(2));
    EXPECT_EQ(request->data()->size(), 5U);
    EXPECT_FALSE(request->data()->isWritable());
    EXPECT_EQ(request->transferredBytes(), 5);
    EXPECT_EQ(request->offset(), 2U);
    EXPECT_EQ(request->file(), file_);
    EXPECT_EQ(request->errorText(), L"");
    EXPECT_TRUE(request->wait());
    EXPECT_EQ(request->priority(), 3.0);
    EXPECT_TRUE(request->setPriority(-4.0));
    EXPECT_EQ(request->priority(), -4.0);
    EXPECT_FALSE(AsyncFile::isLoading());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(AsyncFileMemTest, KnowsItsRequestsUntilTheyAreRemoved) {
    EXPECT_TRUE(file_->requests().empty());
    EXPECT_TRUE(file_->requests(AsyncFile::RS_Ready).empty());
    const SO<AsyncFile::Request> first = file_->request(0, 1, 1.0), second = file_->request(1, 1, 5.0);
    EXPECT_EQ(file_->requests(), (AsyncFile::Requests{first, second}));
    EXPECT_EQ(file_->requests(AsyncFile::RS_Ready), (AsyncFile::Requests{first, second}));
    EXPECT_TRUE(file_->requests(AsyncFile::RS_Queued).empty());
    EXPECT_TRUE(first->cancel());
    EXPECT_FALSE(file_->remove(first));
    EXPECT_EQ(file_->requests(), AsyncFile::Requests{second});
}

TEST_F(AsyncFileMemTest, ARequestKeepsItsBytesWithoutTheFile) {
    const SO<AsyncFile::Request> request = file_->request(2, 5, 3.0);
    file_ = nullptr;
    EXPECT_FALSE(request->file());
    EXPECT_FALSE(request->cancel());
    EXPECT_EQ(request->state(), AsyncFile::RS_Ready);
    EXPECT_EQ(static_cast<const char *>(request->data()->pointer())[0], '2');
}

TEST_F(AsyncFileMemTest, WithoutAResourceItIsNotOpen) {
    const SO<AsyncFile_Mem> none(new AsyncFile_Mem(nullptr));
    EXPECT_FALSE(none->isOpen());
    EXPECT_EQ(none->size(), 0U);
    EXPECT_FALSE(none->request(0, 0, 1.0));
    EXPECT_TRUE(none->requests().empty());
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(AsyncFileMemTest, ARangeUpToTheEndIsAllowed) {
    EXPECT_EQ(file_->request(0, 10, 1.0)->data()->size(), 10U);
    EXPECT_EQ(file_->request(10, 0, 1.0)->data()->size(), 0U);
    EXPECT_TRUE(reports_.empty()) << reports_;
}

TEST_F(AsyncFileMemTest, ARangeBeyondTheEndIsReportedAndCut) {
    const std::vector<std::tuple<std::uint64_t, std::uint64_t, unsigned>> ranges = {
        {5, 6, 5},           {11, 1, 0},
        {0, UINT64_MAX, 10}, {UINT64_MAX, UINT64_MAX, 0},
        {1UL << 32, 3, 0},   {3, (1UL << 32) + 2, 7}};
    std::size_t count = 0;
    for (const auto & [offset, size, available] : ranges) {
        const SO<AsyncFile::Request> request = file_->request(offset, size, 1.0);
        EXPECT_EQ(request->data()->size(), available) << size << " at " << offset;
        EXPECT_EQ(request->offset(), offset);
        EXPECT_EQ(reports_.size(), ++count);
        EXPECT_EQ(reports_.last().level, 0);
    }
}

} // namespace
