#include <zmt/core/terrain/texture/lodtextureimage.h>

#include <gtest/gtest.h>

#include <support/filesizelimit.h>
#include <support/readingstream.h>
#include <support/recordedattributes.h>
#include <support/recordedreports.h>
#include <support/roundtrip.h>
#include <support/temporaryfolder.h>

#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>

using NBX::SO;
using ZMT::CORE::LODTexture_Image;

namespace {

SO<NBX::MemoryImage> numbered(int width, int height, NBX::LayerSequence layers) {
    SO<NBX::MemoryImage> image(new NBX::MemoryImage(width, height, layers));
    unsigned char next = 1;
    for (int y = 0; y < height; ++y)
        for (int i = 0; i < width * image->numberOfLayers(); ++i)
            image->lineComponentsU8(y)[i] = next++;
    return image;
}

bool haveSamePixels(const NBX::Image & a, const NBX::Image & b) {
    if (a.width() != b.width() || a.height() != b.height() || a.layerSequence() != b.layerSequence())
        return false;
    for (int y = 0; y < a.height(); ++y)
        if (!std::equal(a.lineComponentsU8(y), a.lineComponentsU8(y) + a.width() * a.numberOfLayers(),
                        b.lineComponentsU8(y)))
            return false;
    return true;
}

TEST(LODTextureImage, HoldsAndStoresPixelsOfOneToFourLayers) {
    const RecordedReports reports;
    for (const auto layers : {NBX::LS_Luminance, NBX::LS_LuminanceAlpha, NBX::LS_RGB, NBX::LS_RGBA}) {
        const SO<NBX::MemoryImage> source = numbered(5, 3, layers);
        const SO<LODTexture_Image> image(new LODTexture_Image(source.get(), 5, 3));
        EXPECT_TRUE(haveSamePixels(*image, *source)) << layers;
        EXPECT_EQ(RecordedAttributes::of(*image),
                  (std::vector<std::string>{"rawSize", "rawData", "data", "dummy", "sizeX", "sizeY"}));
        const SO<LODTexture_Image> read = roundTrip(image);
        ASSERT_TRUE(read);
        EXPECT_TRUE(haveSamePixels(*read, *source)) << layers;
    }
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(LODTextureImage, ScalesItsSource) {
    const SO<NBX::MemoryImage> source(new NBX::MemoryImage(2, 2, NBX::LS_RGB));
    source->setColor(0, 0, NBX::Color::white);
    const SO<LODTexture_Image> image(new LODTexture_Image(source.get(), 1, 1));
    EXPECT_EQ(image->width(), 1);
    EXPECT_NEAR(*image->pixelComponentsU8(0, 0, 0), 64, 1);
}

TEST(LODTextureImage, WithoutPixelsItIsADummy) {
    const RecordedReports reports;
    const SO<LODTexture_Image> image(new LODTexture_Image(nullptr, 5, 3));
    EXPECT_EQ(reports.count(0, L"source", L"no image"), 1U) << reports;
    EXPECT_EQ(image->width(), 0);
    const SO<LODTexture_Image> read = roundTrip(image);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->width(), 0);
    const SO<NBX::MemoryImage> source = numbered(2, 2, NBX::LS_RGB);
    EXPECT_EQ(SO<LODTexture_Image>(new LODTexture_Image(source.get(), 0, 3))->width(), 0);
    EXPECT_EQ(SO<LODTexture_Image>(new LODTexture_Image(source.get(), 3, -1))->width(), 0);
    EXPECT_EQ(reports.size(), 1U) << reports;
}

TEST(LODTextureImage, ItsFileHasNoNameAndGoesWithIt) {
    const RecordedReports reports;
    const TemporaryFolder folder;
    SO<LODTexture_Image> image(new LODTexture_Image(numbered(5, 3, NBX::LS_RGB).get(), 5, 3));
    EXPECT_TRUE(folder.isMapped("zmt-lod-texture-"));
    EXPECT_TRUE(folder.isEmpty());
    image = nullptr;
    EXPECT_FALSE(folder.isMapped("zmt-lod-texture-"));
    EXPECT_TRUE(reports.empty()) << reports;
}

TEST(LODTextureImage, WithoutRoomItHasNoPixels) {
    const SO<NBX::MemoryImage> source = numbered(5, 3, NBX::LS_RGB);
    const auto expectNone = [&](int width, int height) {
        RecordedReports reports;
        const SO<LODTexture_Image> image(new LODTexture_Image(source.get(), width, height));
        EXPECT_EQ(image->width(), 0);
        EXPECT_EQ(reports.size(), 1U) << reports;
        EXPECT_EQ(reports.last().level, 2);
        const SO<LODTexture_Image> read = roundTrip(image);
        ASSERT_TRUE(read);
        EXPECT_EQ(read->width(), 0);
    };
    const TemporaryFolder folder;
    expectNone(65536, 65536);
    {
        const FileSizeLimit limit(20);
        expectNone(5, 3);
    }
    EXPECT_TRUE(folder.isEmpty());
    std::filesystem::remove(std::getenv("TMPDIR"));
    expectNone(5, 3);
}

TEST(LODTextureImage, PixelsOutsideAreReported) {
    const RecordedReports reports;
    const SO<const LODTexture_Image> image(new LODTexture_Image(numbered(5, 3, NBX::LS_RGB).get(), 5, 3));
    EXPECT_TRUE(image->pixelComponents(4, 2, 2));
    EXPECT_TRUE(reports.empty()) << reports;
    for (const auto & [x, y, component] : {std::tuple(-1, 0, 0), std::tuple(5, 0, 0)}) {
        EXPECT_FALSE(image->pixelComponents(x, y, component));
        EXPECT_EQ(reports.last().condition, L"(0 <= x) && (x < sizeX_)");
        EXPECT_EQ(reports.last().message, L"x out of range");
    }
    for (const int y : {-1, 3}) {
        EXPECT_FALSE(image->pixelComponents(0, y, 0));
        EXPECT_FALSE(image->lineComponents(y));
        EXPECT_EQ(reports.last().condition, L"(0 <= y) && (y < sizeY_)");
        EXPECT_EQ(reports.last().message, L"y out of range");
    }
    for (const int component : {-1, 3}) {
        EXPECT_FALSE(image->pixelComponents(0, 0, component));
        EXPECT_EQ(reports.last().condition, L"(0 <= component) && (component < numberOfLayers())");
        EXPECT_EQ(reports.last().message, L"component out of range");
    }
    EXPECT_EQ(reports.size(), 8U) << reports;
}

TEST(LODTextureImage, SurvivesDamagedStreams) {
    const RecordedReports reports;
    const SO<LODTexture_Image> image(new LODTexture_Image(numbered(4, 4, NBX::LS_RGB).get(), 4, 4));
    const std::vector<std::uint8_t> bytes = NBX::ObjectStreamWriter::write(*image, false);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        for (const int change : {1, 255}) {
            std::vector<std::uint8_t> damaged = bytes;
            damaged[i] = static_cast<std::uint8_t>(damaged[i] ^ change);
            try {
                const auto read = NBX::soCast<LODTexture_Image>(
                    NBX::ObjectStreamReader(damaged.data(), damaged.size()).read());
                if (read && read->width() > 0) {
                    EXPECT_LE(read->width() * read->height() * read->numberOfLayers(), 48);
                }
            } catch (const std::exception &) {
            }
        }
}

TEST(LODTextureImage, IsReadFromStreamsThatHoldAnImage) {
    const NBX::SO<NBX::MemoryImage> pixels(new NBX::MemoryImage(5, 3, NBX::LS_RGB));
    pixels->setColor(4, 2, NBX::Color::red);
    const NBX::SO<ZMT::CORE::LODTexture_Image> image(new ZMT::CORE::LODTexture_Image(pixels.get(), 1, 1));
    ReadingStream stream;
    stream.objects["data"] = pixels.get();
    image->serialize(stream);
    ASSERT_EQ(image->width(), 5);
    ASSERT_EQ(image->height(), 3);
    EXPECT_EQ(image->getColor(4, 2), NBX::Color::red);
}

} // namespace
