#include "util/compressedtexture/pyramidcreation.h"

#include <gtest/gtest.h>

#include "raster/memorytiledgeoimage.h"
#include <nbx/image/memoryimage.h>
#include <zmt/raster/cachedtiledgeoimage.h>

#include "pyramidfile.h"

namespace {

using NBX::SO;
using ZMT::RASTER::CachedTiledGeoImage;
using ZMT::RASTER::MemoryTiledGeoImage;
using ZMT::UTIL::CompressedTexture;
using ZMT::UTIL::PyramidCreation;

TEST(PyramidCreation, ACachedSourceKeepsNothingBehindItsLevel) {
    const PyramidFolder folder;
    const SO<NBX::MemoryImage> image(new NBX::MemoryImage(300, 200, NBX::LS_RGB));
    const SO<MemoryTiledGeoImage> plain(new MemoryTiledGeoImage(image.get(), {0.0, 0.0, 300.0, 200.0}));
    const SO<CachedTiledGeoImage> source(new CachedTiledGeoImage(plain.get(), 1 << 20));
    source->getImage(0, 0, 10, 10);
    ASSERT_GT(source->usedBytes(), 0U);
    PyramidCreation creation(*source, folder.file("a.ztp"), CompressedTexture::PF_RGB8, 0, "");
    EXPECT_TRUE(creation.run());
    EXPECT_EQ(source->usedBytes(), 0U);
}

} // namespace
