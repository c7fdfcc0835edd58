#include <core/file/fileread.h>

#include <cerrno>
#include <fstream>
#include <random>

#include <gtest/gtest.h>

#include <core/file/filecalls.h>
#include <support/scriptedfilecalls.h>
#include <support/temporaryfolder.h>

using ZMT::CORE::IMPL::FileRead;
using ZMT::CORE::IMPL::OpenFile;

namespace {

class FileReadTest : public testing::Test {
protected:
    /// A file of so many bytes, none of which are read here.
    static std::shared_ptr<OpenFile> fileOf(std::uint64_t size) {
        const std::string path = std::string(std::getenv("TMPDIR")) + "/file";
        std::ofstream(path) << "";
        std::filesystem::resize_file(path, size);
        std::wstring error;
        return OpenFile::open(path, error);
    }

    const TemporaryFolder folder_;
    std::vector<char> target_ = std::vector<char>(1 << 20);
};

TEST_F(FileReadTest, AsksForTheWholeRangeFirst) {
    FileRead read(fileOf(50000), 4096, target_.data(), 8192);
    EXPECT_FALSE(read.isComplete());
    EXPECT_EQ(read.nextPosition(), 4096U);
    EXPECT_EQ(read.nextBytes(), 8192U);
    EXPECT_EQ(read.nextTarget(), target_.data());
    EXPECT_FALSE(read.take(8192));
    EXPECT_TRUE(read.isComplete());
    EXPECT_EQ(read.got(), 8192U);
    EXPECT_EQ(read.error(), 0);
}

TEST_F(FileReadTest, LeavesOutBlocksBehindTheEnd) {
    for (const auto & [position, bytes, expected] :
         {std::tuple(0U, 1U << 20, 53248U), std::tuple(45056U, 1U << 20, 8192U),
          std::tuple(49152U, 8192U, 4096U), std::tuple(53248U, 4096U, 0U), std::tuple(1U << 19, 4096U, 0U),
          std::tuple(8192U, 0U, 0U)}) {
        const FileRead read(fileOf(50000), position, target_.data(), bytes);
        EXPECT_EQ(read.nextBytes(), expected) << position;
        EXPECT_EQ(read.isComplete(), expected == 0) << "nothing to ask for";
    }
}

TEST_F(FileReadTest, GoesOnFromTheLastSectorOfAPart) {
    FileRead read(fileOf(50000), 4096, target_.data(), 8192);
    EXPECT_TRUE(read.take(1000));
    EXPECT_EQ(read.nextPosition(), 4096U + 512U);
    EXPECT_EQ(read.nextTarget(), target_.data() + 512);
    EXPECT_EQ(read.nextBytes(), 8192U - 512U);
    EXPECT_EQ(read.got(), 1000U);
    EXPECT_TRUE(read.take(1024));
    EXPECT_EQ(read.nextPosition(), 4096U + 1536U);
    EXPECT_EQ(read.got(), 1536U);
    EXPECT_FALSE(read.take(8192 - 1536));
    EXPECT_EQ(read.got(), 8192U);
}

TEST_F(FileReadTest, EndsWhereTheFileDidWhenItWasOpened) {
    for (const std::uint64_t size : {4608U, 5000U, 8192U}) {
        FileRead read(fileOf(size), 4096, target_.data(), 4096);
        EXPECT_FALSE(read.take(static_cast<std::int64_t>(size) - 4096)) << size;
        EXPECT_EQ(read.got(), size - 4096);
    }
}

TEST_F(FileReadTest, EndsWhereNothingMoreComes) {
    for (const std::int64_t more : {0, 100, 511}) {
        FileRead read(fileOf(50000), 4096, target_.data(), 8192);
        EXPECT_TRUE(read.take(1024 + more));
        EXPECT_FALSE(read.take(more)) << more;
        EXPECT_EQ(read.got(), static_cast<std::uint64_t>(1024 + more));
        EXPECT_EQ(read.error(), 0);
    }
}

TEST_F(FileReadTest, APartOfLessThanASectorIsGoneOnWith) {
    FileRead read(fileOf(50000), 4096, target_.data(), 8192);
    EXPECT_TRUE(read.take(100)) << "whether the file ends there the next part tells";
    EXPECT_EQ(read.nextPosition(), 4096U);
    EXPECT_TRUE(read.take(600));
    EXPECT_EQ(read.nextPosition(), 4096U + 512U);
    EXPECT_TRUE(read.take(100));
    EXPECT_EQ(read.got(), 612U);
    EXPECT_FALSE(read.take(100));
    EXPECT_EQ(read.got(), 612U);
}

TEST_F(FileReadTest, SeveralReadsThatAreRefusedPastTheCacheGoThroughIt) {
    const std::shared_ptr<OpenFile> file = fileOf(50000);
    FileRead first(file, 0, target_.data(), 4096), second(file, 4096, target_.data() + 4096, 4096);
    EXPECT_TRUE(first.take(-EINVAL));
    EXPECT_TRUE(second.take(-EINVAL));
    EXPECT_EQ(second.error(), 0);
    EXPECT_EQ(::fcntl(file->handle(), F_GETFL) & O_DIRECT, 0);
    EXPECT_FALSE(second.take(-EINVAL)) << "there is no further way";
    EXPECT_EQ(second.error(), EINVAL);
    EXPECT_FALSE(first.take(4096));
    EXPECT_EQ(first.error(), 0);
}

TEST_F(FileReadTest, AnythingThatComesInPartsEndsWithAllBytesOrAtTheCut) {
    const unsigned seed = 5;
    std::mt19937 random(seed);
    const std::shared_ptr<OpenFile> file = fileOf(500000);
    for (int i = 0; i < 2000; ++i) {
        const std::uint64_t position = random() % 120 * 4096, bytes = (1 + random() % 60) * 4096;
        const std::uint64_t cut = random() % 3 == 0 ? random() % 500000 : 500000;
        FileRead read(file, position, target_.data(), bytes);
        int steps = 0;
        for (bool goesOn = true; goesOn; ++steps) {
            ASSERT_LT(steps, 3000) << "case " << i << ", seed " << seed;
            ASSERT_EQ(read.nextPosition() % 512, 0U);
            const std::uint64_t available = cut > read.nextPosition() ? cut - read.nextPosition() : 0;
            const std::uint64_t whole = std::min<std::uint64_t>(read.nextBytes(), available);
            const std::uint64_t part = random() % 2 ? whole : std::min(whole, 512 + random() % 20000);
            goesOn = random() % 5 == 0 ? read.take(-EINTR) : read.take(static_cast<std::int64_t>(part));
        }
        const std::uint64_t expected = cut > position ? std::min(bytes, cut - position) : 0;
        EXPECT_EQ(read.got(), expected) << "case " << i << ", seed " << seed;
    }
}

TEST_F(FileReadTest, AnErrorEndsIt) {
    FileRead read(fileOf(50000), 4096, target_.data(), 8192);
    EXPECT_TRUE(read.take(-EINTR));
    EXPECT_TRUE(read.take(4096));
    EXPECT_FALSE(read.take(-EIO));
    EXPECT_TRUE(read.isComplete());
    EXPECT_EQ(read.error(), EIO);
    EXPECT_EQ(read.got(), 4096U);
}

TEST_F(FileReadTest, ACanceledOneAsksForNothingMore) {
    for (const std::int64_t result : {std::int64_t(512), std::int64_t(-EINTR), std::int64_t(-EAGAIN)}) {
        FileRead read(fileOf(50000), 4096, target_.data(), 8192);
        read.cancel();
        EXPECT_FALSE(read.take(result));
        EXPECT_TRUE(read.isComplete());
    }
}

TEST_F(FileReadTest, CountsThoseThatAreOwed) {
    FileRead first(fileOf(50000), 0, target_.data(), 4096), second(fileOf(50000), 0, target_.data(), 4096);
    EXPECT_FALSE(first.isOwed());
    first.begin();
    second.begin();
    EXPECT_TRUE(first.isOwed());
    EXPECT_EQ(FileRead::countOwed(), 2U);
    first.end();
    EXPECT_FALSE(first.isOwed());
    EXPECT_EQ(FileRead::countOwed(), 1U);
    second.end();
    EXPECT_EQ(FileRead::countOwed(), 0U);
}

TEST_F(FileReadTest, AFileIsMadeBuffered) {
    const std::shared_ptr<OpenFile> file = fileOf(50000);
    ASSERT_TRUE(file);
    EXPECT_EQ(::fcntl(file->handle(), F_GETFL) & O_NONBLOCK, 0) << "the kernel would give up too early";
    EXPECT_TRUE(file->makeBuffered());
    EXPECT_EQ(::fcntl(file->handle(), F_GETFL) & O_DIRECT, 0);
    EXPECT_EQ(file->size(), 50000U);
}

} // namespace
