#include <zmt/util/compressedtexture/texturepyramidreader.h>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>
#include <zmt/raster/gdal/geofile.h>
#include <zmt/util/compressedtexture/compressedtexture.h>
#include <zmt/util/compressedtexture/texturepyramid.h>

#include <support/thrownwords.h>

#include "pyramidfile.h"

namespace {

using namespace ZMT::UTIL;
using ZMT::RASTER::GeoFile;
using ZMT::RASTER::GeoFileKind;

class TexturePyramidReaderTest : public testing::Test {
protected:
    ~TexturePyramidReaderTest() override { CompressedTexture::setEncryptionKey(0); }

    std::string write(const std::string & name, const std::vector<std::uint8_t> & bytes) {
        folder.write(name, bytes);
        return folder.file(name);
    }

    PyramidFolder folder;
};

TEST_F(TexturePyramidReaderTest, PyramidsEnterByTheDoorForFilesWhateverTheirName) {
    const std::string path = write("image.tif", PyramidFile().encode());
    EXPECT_EQ(GeoFileKind::Image, GeoFile::kindOf(path));
    ASSERT_TRUE(GeoFile::formatOf(path));
    EXPECT_EQ("a texture pyramid", GeoFile::formatOf(path)->name());
    EXPECT_TRUE(dynamic_cast<const TexturePyramid *>(GeoFile::openImage(path).get()));
    expectPart(thrown([&] { GeoFile::openHeights(path); }), "is a texture pyramid, which has no heights");
}

TEST_F(TexturePyramidReaderTest, ADamagedPyramidIsToldAsOne) {
    std::vector<std::uint8_t> bytes = PyramidFile().encode();
    bytes.resize(300);
    const std::string path = write("cut.ztp", bytes);
    const std::string text = thrown([&] { GeoFile::openImage(path); });
    expectPart(text, "is a damaged texture pyramid");
    expectPart(text, path);
    bytes.resize(100);
    EXPECT_EQ(GeoFileKind::Unknown, GeoFile::kindOf(write("cut.ztp", bytes)));
}

TEST_F(TexturePyramidReaderTest, AScrambledPyramidIsKnownWithItsKeyOnly) {
    const std::string path = write("a.ztp", PyramidFile().encode());
    CompressedTexture::setEncryptionKey(77);
    EXPECT_EQ(GeoFileKind::Unknown, GeoFile::kindOf(path));
    CompressedTexture::setEncryptionKey(0);
    EXPECT_EQ(GeoFileKind::Image, GeoFile::kindOf(path));
}

} // namespace
