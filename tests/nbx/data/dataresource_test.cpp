#include <nbx/data/dataresource.h>

#include <gtest/gtest.h>

#include <cstring>

#include <nbx/data/datasubresource.h>
#include <nbx/data/file.h>
#include <nbx/data/filedataresource.h>
#include <nbx/data/memorydataresource.h>
#include <nbx/object/exception.h>
#include <support/filesizelimit.h>
#include <support/recordedreports.h>

using namespace NBX;

namespace {

std::string text(const DataResource & resource) {
    return std::string(static_cast<const char *>(resource.pointer()), resource.size());
}

/// A file that goes with the scope.
struct TemporaryFile {
    explicit TemporaryFile(const std::string & content = "")
        : path(File::temporaryFileName("nbx-data-test-")) {
        File(path, WM_Create).write(content.data(), content.size());
    }
    ~TemporaryFile() { File::remove(path); }
    std::string path;
};

TEST(MemoryDataResource, StartsWithZeros) {
    const SO<DataResource> resource(new MemoryDataResource(100, true));
    EXPECT_EQ(resource->size(), 100U);
    EXPECT_TRUE(resource->isWritable());
    EXPECT_EQ(text(*resource), std::string(100, '\0'));
}

TEST(MemoryDataResource, CopiesBytes) {
    const SO<DataResource> resource(new MemoryDataResource("hello", 5, false));
    EXPECT_EQ(text(*resource), "hello");
    EXPECT_FALSE(resource->isWritable());
}

TEST(MemoryDataResource, EmptyHasNoStart) {
    const RecordedReports reports;
    const SO<DataResource> resource(new MemoryDataResource(0, true));
    EXPECT_EQ(resource->pointer(), nullptr);
    EXPECT_EQ(resource->pointer(0), nullptr);
    EXPECT_TRUE(reports.empty());
}

TEST(DataResource, OffsetsUpToTheEndAreGood) {
    const RecordedReports reports;
    const SO<DataResource> resource(new MemoryDataResource("hello", 5));
    EXPECT_EQ(static_cast<const char *>(resource->pointer(4))[0], 'o');
    EXPECT_NE(resource->pointer(5), nullptr);
    EXPECT_TRUE(reports.empty());
    EXPECT_EQ(resource->pointer(6), nullptr);
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].message, L"offset 6 lies behind the end at 5");
    EXPECT_STREQ(reports[0].sourcePath, "..\\..\\src\\nbx/data/dataresource.cpp");
}

TEST(DataSubResource, SharesAndKeepsTheBytes) {
    SO<DataResource> whole(new MemoryDataResource("hello world", 11));
    const SO<DataSubResource> part(new DataSubResource(whole.get(), 6, 5, true));
    static_cast<char *>(whole->pointer())[6] = 'W';
    whole = nullptr;
    EXPECT_EQ(text(*part), "World");
    EXPECT_EQ(static_cast<const char *>(part->pointer(4))[0], 'd');
    const SO<DataSubResource> inner(new DataSubResource(part.get(), 1, 3, false));
    EXPECT_EQ(text(*inner), "orl");
}

TEST(DataSubResource, IsWritableOnlyWhenTheWholeIs) {
    const SO<DataResource> writable(new MemoryDataResource("ab", 2, true)),
        fixed(new MemoryDataResource("ab", 2, false));
    EXPECT_TRUE(SO<DataResource>(new DataSubResource(writable.get(), 0, 1, true))->isWritable());
    EXPECT_FALSE(SO<DataResource>(new DataSubResource(writable.get(), 0, 1, false))->isWritable());
    EXPECT_FALSE(SO<DataResource>(new DataSubResource(fixed.get(), 0, 1, true))->isWritable());
}

TEST(DataSubResource, RangesBeyondTheEndAreReportedAndCut) {
    const SO<DataResource> whole(new MemoryDataResource("hello", 5));
    const struct {
        unsigned offset, size;
        const char * expected;
        bool isReported;
    } rows[] = {{0, 5, "hello", false},
                {5, 0, "", false},
                {5, 1, "", true},
                {6, 0, "", true},
                {3, 0xFFFFFFFF, "lo", true},
                {0xFFFFFFFF, 2, "", true},
                {0xFFFFFFFF, 0xFFFFFFFF, "", true}};
    for (const auto & row : rows) {
        const RecordedReports reports;
        const SO<DataResource> part(new DataSubResource(whole.get(), row.offset, row.size, false));
        EXPECT_EQ(text(*part), row.expected);
        EXPECT_EQ(reports.size(), row.isReported ? 1U : 0U) << reports;
    }
    const RecordedReports reports;
    EXPECT_EQ(SO<DataResource>(new DataSubResource(nullptr, 1, 2, true))->size(), 0U);
    EXPECT_EQ(reports.count(0, L"resource", L"no resource"), 1U);
    EXPECT_EQ(reports.size(), 1U);
}

TEST(FileDataResource, WritesIntoItsFile) {
    const TemporaryFile file;
    {
        const SO<FileDataResource> resource(new FileDataResource(file.path, 10000, true));
        EXPECT_EQ(resource->size(), 10000U);
        EXPECT_TRUE(resource->isWritable());
        std::strcpy(static_cast<char *>(resource->pointer(9000)), "hello");
        EXPECT_EQ(resource->getObjectName(), StringUtils::Utf8String2WString(file.path));
    }
    const std::vector<std::uint8_t> bytes = File::contents(file.path);
    ASSERT_EQ(bytes.size(), 10000U);
    EXPECT_EQ(bytes[9000], 'h');
    EXPECT_EQ(bytes[0], 0);
}

TEST(FileDataResource, ReadsAPartOrAll) {
    const TemporaryFile file("hello");
    EXPECT_EQ(text(*SO<DataResource>(new FileDataResource(file.path, 3, false))), "hel");
    EXPECT_EQ(text(*SO<DataResource>(new FileDataResource(file.path, 0, false))), "hello");
    EXPECT_FALSE(SO<DataResource>(new FileDataResource(file.path, 0, false))->isWritable());
    EXPECT_THROW(FileDataResource(file.path, 6, false), IOException);
}

TEST(FileDataResource, AnEmptyFileHasNoStart) {
    const TemporaryFile file;
    const SO<DataResource> resource(new FileDataResource(file.path, 0, false));
    EXPECT_EQ(resource->size(), 0U);
    EXPECT_EQ(resource->pointer(), nullptr);
}

TEST(FileDataResource, MayTakeItsFileWithIt) {
    const TemporaryFile file;
    SO<DataResource> resource(new FileDataResource(file.path, 10, true, true));
    EXPECT_TRUE(File::exists(file.path));
    resource = nullptr;
    EXPECT_FALSE(File::exists(file.path));
}

TEST(FileDataResource, WithoutRoomItThrowsAndTakesItsFileWithIt) {
    const TemporaryFile file, kept;
    const FileSizeLimit limit(1000);
    EXPECT_THROW(FileDataResource(file.path, 1001, true, true), IOException);
    EXPECT_FALSE(File::exists(file.path));
    EXPECT_THROW(FileDataResource(kept.path, 1001, true), IOException);
    EXPECT_TRUE(File::exists(kept.path));
    EXPECT_NO_THROW(FileDataResource(kept.path, 1000, true));
}

TEST(FileDataResource, MissingFilesAndFoldersThrow) {
    EXPECT_THROW(FileDataResource("/no/such/file", 0, false), FileNotFoundException);
    EXPECT_THROW(FileDataResource("/no/such/file", 10, true), IOException);
    EXPECT_THROW(FileDataResource("/tmp", 0, false), IOException);
    EXPECT_THROW(FileDataResource("/dev/zero", 10, false), IOException);
}

} // namespace
