#include <zmt/core/terrain/geometry/grid/filetiledgeoimage.h>

#include <algorithm>
#include <climits>
#include <random>

#include <gtest/gtest.h>

#include <nbx/image/image.h>

#include "support/filesizelimit.h"
#include "support/recordedreports.h"
#include "support/temporaryfolder.h"

using ZMT::CORE::GRID::FileTiledGeoImage;

namespace {

using Bytes = std::vector<unsigned char>;

class FileTiledGeoImageTest : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_TRUE(reports.empty()) << reports; }

    NBX::SO<NBX::File> newFile() const { return new NBX::File(path, NBX::WM_Create); }
    NBX::SO<FileTiledGeoImage> image(std::uint64_t width, std::uint64_t height, unsigned bands) const {
        return new FileTiledGeoImage(file, 10.0, 20.0, 0.5, 0.25, width, height, bands);
    }
    /// Number of reports so far that begin with `text`, if there are no others; forgets them.
    std::size_t taken(const std::wstring & text) {
        const auto all = reports.reports();
        reports.clear();
        const bool isAll = std::all_of(all.begin(), all.end(),
                                       [&](const auto & report) { return report.message.starts_with(text); });
        return isAll ? all.size() : 0;
    }
    /// All components of a picture, line by line.
    static Bytes bytes(const NBX::SO<NBX::Image> & image) {
        Bytes result;
        for (int y = 0; image && y < image->height(); ++y) {
            const auto * line = image->lineComponentsU8(y);
            result.insert(result.end(), line, line + image->width() * image->numberOfLayers());
        }
        return result;
    }
    static Bytes counted(unsigned count, unsigned first = 1) {
        Bytes result(count);
        for (unsigned i = 0; i < count; ++i)
            result[i] = static_cast<unsigned char>(first + i);
        return result;
    }

    RecordedReports reports;
    TemporaryFolder folder;
    const std::string path = NBX::File::temporaryFileName("image-");
    const NBX::SO<NBX::File> file = newFile();
};

TEST_F(FileTiledGeoImageTest, TellsWhatItWasMadeOf) {
    const auto made = image(7, 5, 3);
    EXPECT_EQ(made->bands(), 3U);
    EXPECT_EQ(made->minX(), 10.0);
    EXPECT_EQ(made->minY(), 20.0);
    EXPECT_EQ(made->pixelSizeX(), 0.5);
    EXPECT_EQ(made->pixelSizeY(), 0.25);
    EXPECT_EQ(made->pixelsX(), 7U);
    EXPECT_EQ(made->pixelsY(), 5U);
    EXPECT_EQ(made->maxX(), 13.5);
    EXPECT_EQ(made->maxY(), 21.25);
    EXPECT_FALSE(made->failed());
    EXPECT_EQ(made->classInfoNBX()->parent(), ZMT::RASTER::TiledGeoImage::ClassInfoNBX());
}

TEST_F(FileTiledGeoImageTest, HasOneBytePerPixelForOneBandAndFourForAnyOther) {
    for (const unsigned bands : {1U, 2U, 3U, 4U, 7U}) {
        const NBX::SO<NBX::File> own = newFile();
        const FileTiledGeoImage made(own, 0, 0, 1, 1, 3, 5, bands);
        EXPECT_EQ(own->size(), bands == 1 ? 15U : 60U) << bands;
        const auto empty = made.createEmptyImage(2, 2);
        EXPECT_EQ(empty->numberOfLayers(), bands == 1 ? 1 : 4) << bands;
        EXPECT_EQ(empty->dataType(), NBX::Image::UInt8) << bands;
    }
}

TEST_F(FileTiledGeoImageTest, LiesBehindWhatTheFileHas) {
    const Bytes header = {'h', 'e', 'a', 'd'};
    file->write(header.data(), header.size());
    file->seek(1);
    const auto first = image(3, 2, 1);
    const auto second = image(2, 2, 2);
    EXPECT_EQ(file->size(), 4U + 6U + 16U);
    first->setValues(0, 0, counted(6));
    second->setValues(0, 0, counted(16, 100));
    EXPECT_EQ(bytes(first->getImage(0, 0, 3, 2)), counted(6));
    EXPECT_EQ(bytes(second->getImage(0, 0, 2, 2)), counted(16, 100));
    Bytes stored(26);
    file->seek(0);
    ASSERT_EQ(file->read(stored.data(), stored.size()), stored.size());
    Bytes expected = header;
    for (const Bytes & part : {counted(6), counted(16, 100)})
        expected.insert(expected.end(), part.begin(), part.end());
    EXPECT_EQ(stored, expected);
}

TEST_F(FileTiledGeoImageTest, IsBlankBeforeAnythingIsWritten) {
    EXPECT_EQ(bytes(image(3, 2, 1)->getImage(0, 0, 3, 2)), Bytes(6, 0));
    EXPECT_EQ(bytes(image(3, 2, 4)->getImage(0, 0, 3, 2)), Bytes(24, 0));
}

TEST_F(FileTiledGeoImageTest, DeliversWindowsThatReachBeyondIt) {
    const auto made = image(3, 2, 1);
    made->setValues(0, 0, counted(6)); // 1 2 3 below 4 5 6
    struct Case {
        const char * name;
        int x, y;
        unsigned width, height;
        Bytes expected;
    };
    const Case cases[] = {
        {"all", 0, 0, 3, 2, {1, 2, 3, 4, 5, 6}},
        {"one pixel", 2, 1, 1, 1, {6}},
        {"a row", 0, 1, 3, 1, {4, 5, 6}},
        {"low corner", -1, -1, 2, 2, {0, 0, 0, 1}},
        {"high corner", 2, 1, 2, 2, {6, 0, 0, 0}},
        {"around", -1, -1, 5, 4, {0, 0, 0, 0, 0, 0, 1, 2, 3, 0, 0, 4, 5, 6, 0, 0, 0, 0, 0, 0}},
        {"left of it", -2, 0, 2, 1, {0, 0}},
        {"right of it", 3, 0, 2, 1, {0, 0}},
        {"below", 0, -1, 2, 1, {0, 0}},
        {"above", 0, 2, 2, 1, {0, 0}},
        {"far to the right", INT_MAX, INT_MAX, 2, 1, {0, 0}},
        {"far to the left", INT_MIN, INT_MIN, 2, 1, {0, 0}},
    };
    for (const Case & c : cases) {
        const auto part = made->getImage(c.x, c.y, c.width, c.height);
        ASSERT_TRUE(part) << c.name;
        EXPECT_EQ(part->width(), int(c.width)) << c.name;
        EXPECT_EQ(part->height(), int(c.height)) << c.name;
        EXPECT_EQ(bytes(part), c.expected) << c.name;
    }
}

TEST_F(FileTiledGeoImageTest, NoImageHasNoPixels) {
    EXPECT_FALSE(image(3, 2, 1)->getImage(0, 0, 0, 2));
    EXPECT_FALSE(image(3, 2, 1)->getImage(0, 0, UINT_MAX, UINT_MAX));
    const auto empty = image(0, 5, 1);
    EXPECT_EQ(bytes(empty->getImage(0, 0, 1, 1)), Bytes{0});
    EXPECT_FALSE(empty->failed());
}

TEST_F(FileTiledGeoImageTest, RunsGoOnInTheNextRow) {
    const auto made = image(3, 3, 2);
    made->setValues(1, 1, counted(16));
    Bytes expected(36, 0);
    const Bytes run = counted(16);
    std::copy(run.begin(), run.end(), expected.begin() + (3 + 1) * 4);
    EXPECT_EQ(bytes(made->getImage(0, 0, 3, 3)), expected);
    made->setValues(0, 0, {});
    EXPECT_EQ(bytes(made->getImage(0, 0, 3, 3)), expected);
}

TEST_F(FileTiledGeoImageTest, RunsBeyondItAreReportedAndLeftOut) {
    const auto made = image(3, 2, 1);
    const auto behind = image(2, 1, 1);
    made->setValues(0, 0, counted(6));
    made->setValues(2, 1, {9, 9});
    EXPECT_EQ(taken(L"a run of 2 bytes reaches beyond the image"), 1U);
    made->setValues(3, 0, {9});
    EXPECT_EQ(taken(L"range error: [0, 3), 3"), 1U);
    made->setValues(0, 2, {9});
    EXPECT_EQ(taken(L"range error: [0, 2), 2"), 1U);
    made->setValues(0, UINT64_MAX / 3, {9});
    EXPECT_EQ(taken(L"range error: [0, 2), 6148914691236517205"), 1U);
    EXPECT_EQ(bytes(made->getImage(0, 0, 3, 2)), counted(6));
    EXPECT_EQ(bytes(behind->getImage(0, 0, 2, 1)), Bytes(2, 0));
    EXPECT_FALSE(made->failed());
}

/// Whole equals the sum of windows, whatever they are.
TEST_F(FileTiledGeoImageTest, EveryWindowIsThatPartOfTheWhole) {
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto number = [&](int low, int high) { return std::uniform_int_distribution<>(low, high)(random); };
    for (unsigned round = 0; round < 200; ++round) {
        const auto width = unsigned(number(1, 9)), height = unsigned(number(1, 9));
        const auto bands = unsigned(number(1, 4));
        const unsigned bpp = bands == 1 ? 1 : 4;
        const auto made = image(width, height, bands);
        Bytes all(std::size_t(width) * height * bpp);
        for (auto & byte : all)
            byte = static_cast<unsigned char>(number(1, 255));
        for (unsigned y = 0; y < height; ++y)
            made->setValues(0, y, Bytes(all.begin() + y * width * bpp, all.begin() + (y + 1) * width * bpp));
        const int x0 = number(-5, 10), y0 = number(-5, 10);
        const auto w = unsigned(number(1, 12)), h = unsigned(number(1, 12));
        Bytes expected;
        for (int y = y0; y < y0 + int(h); ++y)
            for (int x = x0; x < x0 + int(w); ++x)
                for (unsigned k = 0; k < bpp; ++k) {
                    const bool inside = x >= 0 && y >= 0 && x < int(width) && y < int(height);
                    expected.push_back(inside ? all[(std::size_t(y) * width + unsigned(x)) * bpp + k] : 0);
                }
        ASSERT_EQ(bytes(made->getImage(x0, y0, w, h)), expected) << round;
    }
}

TEST_F(FileTiledGeoImageTest, AnImageBeyondFourGigabytesTakesNoSpaceUntilItIsWritten) {
    const auto made = image(1U << 17U, 1U << 16U, 1);
    EXPECT_EQ(file->size(), 1ULL << 33U);
    made->setValues((1U << 17U) - 2, (1U << 16U) - 1, {7, 8});
    EXPECT_EQ(bytes(made->getImage((1 << 17) - 3, (1 << 16) - 1, 4, 1)), (Bytes{0, 7, 8, 0}));
}

TEST_F(FileTiledGeoImageTest, WhatNoFileCanHoldIsReported) {
    struct Case {
        const char * name;
        std::uint64_t width, height;
    };
    for (const Case & c : {Case{"overflow", 1ULL << 63U, 4}, Case{"beyond a file", 1ULL << 62U, 1}}) {
        const auto made = image(c.width, c.height, 4);
        EXPECT_EQ(taken(L"an image has more pixels than a file can hold"), 1U) << c.name;
        EXPECT_TRUE(made->failed()) << c.name;
        EXPECT_EQ(made->pixelsX(), 0U) << c.name;
        EXPECT_EQ(made->pixelsY(), 0U) << c.name;
    }
    EXPECT_EQ(file->size(), 0U);
    const FileTiledGeoImage none(nullptr, 0, 0, 1, 1, 2, 2, 1);
    EXPECT_EQ(taken(L"no file"), 1U);
    EXPECT_EQ(none.pixelsX(), 0U);
    const auto bandless = image(2, 2, 0);
    EXPECT_EQ(taken(L"an image without bands"), 1U);
}

TEST_F(FileTiledGeoImageTest, AFullDiskIsReported) {
    const FileSizeLimit limit(100);
    const auto made = image(200, 1, 1);
    EXPECT_EQ(taken(L"there is no room for an image"), 1U);
    EXPECT_TRUE(made->failed());
    EXPECT_EQ(made->pixelsX(), 0U);
}

TEST_F(FileTiledGeoImageTest, AFileThatWasCutOrIsNotWritableFails) {
    const auto made = image(4, 4, 1);
    made->setValues(0, 0, counted(16));
    file->resize(10);
    EXPECT_EQ(bytes(made->getImage(0, 0, 4, 2)), counted(8));
    EXPECT_FALSE(made->failed());
    EXPECT_FALSE(made->getImage(0, 0, 4, 3));
    EXPECT_EQ(taken(L"an image's file was cut; make it anew: " + std::wstring(path.begin(), path.end())), 1U);
    EXPECT_TRUE(made->failed());

    const FileTiledGeoImage locked(new NBX::File(path), 0, 0, 1, 1, 2, 2, 1);
    EXPECT_EQ(taken(L"there is no room for an image"), 1U);
    EXPECT_TRUE(locked.failed());
}

} // namespace
