#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexturereader.h>

#include <filesystem>

#include <gtest/gtest.h>

#include <support/recordedreports.h>
#include <support/temporaryfolder.h>

#include "core/terrain/texture/streaming/asyncquadtreeterraintexture_impl.h"
#include <nbx/data/memorydataresource.h>
#include <nbx/data/objectloader.h>
#include <nbx/object/stringutils.h>
#include <zmt/core/terrain/texture/streaming/asyncquadtreeterraintexture.h>

#include "oblongsource.h"

using namespace ZMT::CORE;
using NBX::SO;

namespace {

class StreamingTextureReaderTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(reports.empty()) << reports; }

    static std::string file(const char * name) { return std::filesystem::temp_directory_path() / name; }
    static std::wstring wide(const char * name) { return NBX::StringUtils::Utf8String2WString(file(name)); }
    static void write(const char * name, std::uint64_t key) {
        EXPECT_TRUE(AsyncQuadtreeTerrainTexture::create(wide(name), OblongSource::patches(0),
                                                        OblongSource::pyramid(), 64, key));
    }
    SO<NBX::SharedObj> readName(const std::wstring & name) {
        const SO<NBX::MemoryDataResource> resource(new NBX::MemoryDataResource(0));
        resource->setObjectName(name);
        return reader->read(resource.get());
    }

    const TemporaryFolder folder;
    RecordedReports reports;
    const SO<AsyncQuadtreeTerrainTextureReader> reader{new AsyncQuadtreeTerrainTextureReader};
};

TEST_F(StreamingTextureReaderTest, ReadsByTheName) {
    write("a.zts", 0);
    EXPECT_TRUE(readName(wide("a.zts")));
    EXPECT_FALSE(readName(L""));
    write("b.zts", 7);
    EXPECT_FALSE(readName(wide("b.zts"))) << "scrambled";
}

TEST_F(StreamingTextureReaderTest, NoResourceIsReported) {
    EXPECT_FALSE(reader->read(nullptr));
    EXPECT_EQ(reports.count(0, L"resource", L"no resource"), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U) << reports;
    reports.clear();
}

TEST_F(StreamingTextureReaderTest, SaysWhatItReads) {
    EXPECT_EQ(reader->objectFormatName(), "ZMT streaming texture");
    EXPECT_TRUE(reader->hasSuffix("ZTS"));
    EXPECT_TRUE(reader->canProduce(TerrainTexture::ClassNameNBX()));
    EXPECT_TRUE(reader->canProduce(AsyncQuadtreeTerrainTexture_Impl::ClassNameNBX()));
    EXPECT_FALSE(reader->canProduce(NBX::DataResource::ClassNameNBX()));
    EXPECT_TRUE(reader->readsFrom("http"));
    EXPECT_TRUE(reader->readsFrom("https"));
    EXPECT_FALSE(reader->readsFrom("ftp"));
    EXPECT_FALSE(reader->readsFrom("file"));
}

TEST_F(StreamingTextureReaderTest, TheLoaderKnowsIt) {
    write("a.zts", 0);
    const auto read = NBX::ObjectLoader::readFile(file("a.zts"), TerrainTexture::ClassNameNBX(), true);
    EXPECT_TRUE(NBX::soCast<TerrainTexture>(read));
}

} // namespace
