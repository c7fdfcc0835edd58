#include "nbx/data/lazyfileresource.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>
#include <support/temporaryfolder.h>

namespace {

using namespace NBX;

std::string lazyText(const DataResource & resource) {
    return {static_cast<const char *>(resource.pointer()), resource.size()};
}

std::string part(const DataResource & resource, unsigned offset, unsigned bytes) {
    std::string result(bytes, '?');
    result.resize(resource.read(offset, result.data(), bytes));
    return result;
}

class LazyFileResourceTest : public testing::Test {
protected:
    static std::string path(const std::string & name) {
        return std::filesystem::temp_directory_path() / name;
    }
    static std::string write(const std::string & name, const std::string & content) {
        File(path(name), WM_Create).write(content.data(), content.size());
        return path(name);
    }

private:
    TemporaryFolder folder_;
};

TEST_F(LazyFileResourceTest, GivesPartsAndTheWhole) {
    const SO<DataResource> resource(new LazyFileResource(write("a", "0123456789")));
    EXPECT_EQ(resource->size(), 10U);
    EXPECT_FALSE(resource->isWritable());
    EXPECT_EQ(part(*resource, 0, 3), "012");
    EXPECT_EQ(part(*resource, 7, 100), "789");
    EXPECT_EQ(part(*resource, 10, 1), "");
    EXPECT_EQ(part(*resource, UINT32_MAX, UINT32_MAX / 1024), "");
    EXPECT_EQ(lazyText(*resource), "0123456789");
    EXPECT_EQ(part(*resource, 2, 3), "234");
    EXPECT_EQ(*static_cast<const char *>(resource->pointer(9)), '9');
}

TEST_F(LazyFileResourceTest, EmptyFileHasNoBytes) {
    const SO<DataResource> resource(new LazyFileResource(write("a", "")));
    EXPECT_EQ(resource->size(), 0U);
    EXPECT_EQ(part(*resource, 0, 5), "");
    EXPECT_EQ(lazyText(*resource), "");
}

TEST_F(LazyFileResourceTest, FileThatBecomesShorterIsAnErrorOfTheReader) {
    const std::string name = write("a", std::string(100'000, 'x'));
    const SO<DataResource> resource(new LazyFileResource(name));
    File(name, WM_Update).resize(10);
    EXPECT_EQ(part(*resource, 0, 20), std::string(10, 'x'));
    EXPECT_EQ(part(*resource, 50'000, 20), "");
    EXPECT_THROW((void)resource->pointer(), IOException);
    EXPECT_THROW((void)resource->pointer(), IOException) << "and it stays one";
}

TEST_F(LazyFileResourceTest, BytesThatWereReadStay) {
    const std::string name = write("a", "abc");
    const SO<DataResource> resource(new LazyFileResource(name));
    EXPECT_EQ(lazyText(*resource), "abc");
    File(name, WM_Create);
    EXPECT_EQ(lazyText(*resource), "abc");
    EXPECT_EQ(part(*resource, 1, 9), "bc");
}

TEST_F(LazyFileResourceTest, FileThatGrowsKeepsItsSize) {
    const std::string name = write("a", "abc");
    const SO<DataResource> resource(new LazyFileResource(name));
    File(name, WM_Append).write("def", 3);
    EXPECT_EQ(part(*resource, 0, 9), "abc");
    EXPECT_EQ(lazyText(*resource), "abc");
}

TEST_F(LazyFileResourceTest, WhatIsNoRegularFileIsRefused) {
    const std::string pipe = path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THROW(LazyFileResource resource(pipe), IOException);
    EXPECT_THROW(LazyFileResource resource(path("")), IOException);
    EXPECT_THROW(LazyFileResource resource("/dev/zero"), IOException);
    EXPECT_THROW(LazyFileResource resource(path("none")), FileNotFoundException);
    EXPECT_THROW(LazyFileResource resource(""), FileNotFoundException);
}

TEST_F(LazyFileResourceTest, LargeFileCostsNothingUntilAllOfItIsWanted) {
    const std::string name = write("a", "head");
    std::filesystem::resize_file(name, std::uint64_t(5) << 30);
    const SO<DataResource> resource(new LazyFileResource(name));
    EXPECT_EQ(resource->size(), UINT32_MAX) << "the first bytes";
    EXPECT_EQ(part(*resource, 0, 4), "head");
    EXPECT_EQ(part(*resource, UINT32_MAX - 2, 9), std::string(2, '\0'));
}

TEST_F(LazyFileResourceTest, MayBeReadByManyThreads) {
    std::string content(200'000, ' ');
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i % 251);
    const SO<DataResource> resource(new LazyFileResource(write("a", content)));
    std::vector<std::thread> threads;
    std::array<bool, 4> isRight{};
    for (unsigned t = 0; t < isRight.size(); ++t)
        threads.emplace_back([&, t] {
            bool right = true;
            for (unsigned i = 0; i < 200; ++i)
                right = right && part(*resource, (i + t) * 500, 300) == content.substr((i + t) * 500, 300);
            isRight[t] = right && lazyText(*resource) == content;
        });
    for (std::thread & thread : threads)
        thread.join();
    for (const bool right : isRight)
        EXPECT_TRUE(right);
}

} // namespace
