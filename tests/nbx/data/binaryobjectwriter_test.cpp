#include <nbx/data/binaryobjectwriter.h>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>
#include <nbx/data/file.h>
#include <nbx/data/objectloader.h>
#include <nbx/data/objectsaver.h>

#include <support/recordedreports.h>
#include <support/streamobjects.h>
#include <support/temporaryfolder.h>

using namespace streamtest;

namespace {

class BinaryObjectWriterTest : public testing::Test {
protected:
    void SetUp() override { EXPECT_FALSE(BinaryObjectWriter::isCompressionEnabled()); }
    void TearDown() override {
        BinaryObjectWriter::enableCompression(false);
        EXPECT_TRUE(reports.empty()) << reports;
    }
    /// The bytes that `object` takes in a file.
    static Bytes written(const SharedObj * object) {
        const std::string path = std::getenv("TMPDIR") + std::string("/x.nbx");
        EXPECT_TRUE(ObjectSaver::write(object, path));
        return File::contents(path);
    }
    static SO<Array<double>> slope(unsigned size) {
        SO<Array<double>> numbers(new Array<double>(size, 0.0));
        for (unsigned i = 0; i < size; ++i)
            numbers->set(i, i % 100);
        return numbers;
    }

    const TemporaryFolder folder;
    RecordedReports reports;
};

TEST_F(BinaryObjectWriterTest, DeflatesWhereThatIsEnabled) {
    const auto object = slope(500000); // several blocks
    const Bytes plain = written(object.get());
    EXPECT_EQ(plain, ObjectStreamWriter::write(*object));
    BinaryObjectWriter::enableCompression(true);
    EXPECT_TRUE(BinaryObjectWriter::isCompressionEnabled());
    const Bytes deflated = written(object.get());
    EXPECT_EQ(deflated, ObjectStreamWriter::write(*object, true, ObjectStreamWriter::Form::Deflated));
    EXPECT_LT(deflated.size(), plain.size() / 10);
    EXPECT_GT(deflated.size(), plain.size() / 64);
    BinaryObjectWriter::enableCompression(false);
    EXPECT_EQ(written(object.get()), plain);
}

TEST_F(BinaryObjectWriterTest, BothFormsAreReadWithoutBeingTold) {
    const auto object = slope(300000);
    const std::string path = std::getenv("TMPDIR") + std::string("/x.nbx");
    for (const bool isDeflated : {false, true, false}) {
        BinaryObjectWriter::enableCompression(isDeflated);
        written(object.get());
        const auto read = soCast<Array<double>>(ObjectLoader::readFile(path, ID(), true));
        ASSERT_TRUE(read);
        ASSERT_EQ(read->size(), object->size());
        for (unsigned i = 0; i < object->size(); i += 999)
            EXPECT_EQ(read->get(i), object->get(i));
    }
}

/// Objects of many bodies, some across two blocks.
TEST_F(BinaryObjectWriterTest, ManyObjectsAreOneStream) {
    const SO<List> list(new List);
    for (unsigned i = 0; i < 40; ++i)
        list->members.push_back(slope(i * 1000));
    const Bytes bytes = ObjectStreamWriter::write(*list, true, ObjectStreamWriter::Form::Deflated);
    const auto read = soCast<List>(readBytes(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(ObjectStreamWriter::write(*read), ObjectStreamWriter::write(*list));
}

TEST_F(BinaryObjectWriterTest, WithoutAnObjectItReports) {
    SO<BinaryObjectWriter>(new BinaryObjectWriter)->write(nullptr, "/nowhere/x.nbx");
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports.last().message, L"no object");
    reports.clear();
}

} // namespace
