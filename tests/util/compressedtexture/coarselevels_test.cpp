#include <zmt/util/compressedtexture/coarselevels.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include <nbx/image/image.h>
#include <nbx/object/exception.h>
#include <nbx/object/progress.h>
#include <zmt/raster/tiledgeoimage.h>

#include <support/cancelingdisplay.h>
#include <support/environmentvariable.h>
#include <support/smallgeotiff.h>
#include <support/temporaryfolder.h>
#include <support/zmtrun.h>

namespace {

namespace fs = std::filesystem;

using NBX::SO;
using ZMT::RASTER::ImageColors;
using ZMT::RASTER::ImageFilePyramid;
using ZMT::RASTER::TiledGeoImage;
using ZMT::RASTER::TiledGeoImagePyramid;
using ZMT::UTIL::CoarseLevels;

/// Counts the long operations of its life.
class CountingDisplay : public NBX::ProgressDisplay {
public:
    CountingDisplay() : before_(NBX::Progress::setDisplay(this)) {}
    ~CountingDisplay() override { NBX::Progress::setDisplay(before_); }
    void begin(const NBX::Progress &) override { ++count; }
    bool update(const NBX::Progress & progress) override {
        last = progress.currentValue() / progress.totalValue();
        return true;
    }
    void end(const NBX::Progress &) override {}

    unsigned count = 0;
    double last = 0.0;

private:
    NBX::ProgressDisplay * before_;
};

class CoarseLevelsTest : public testing::Test {
protected:
    /// Red grows to the east, green to the south.
    std::string write(const std::string & name, unsigned width = 700, unsigned height = 500) {
        SmallGeoTiff tiff{width, height};
        tiff.pixels = SmallGeoTiff::Pixels::Colors;
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width; ++x)
                tiff.colors.insert(tiff.colors.end(),
                                   {std::uint8_t(x * 255 / width), std::uint8_t(y * 255 / height), 9});
        return run.write(name, tiff.encode());
    }
    SO<TiledGeoImagePyramid> complete(const std::string & path, const ImageColors & colors = {}) {
        return CoarseLevels(folder, maxBytes).complete(new ImageFilePyramid(path, "", colors));
    }
    std::vector<std::string> kept() const {
        std::vector<std::string> names;
        for (const auto & entry : fs::directory_iterator(folder))
            names.push_back(entry.path().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    RunFolder run;
    std::string folder = run.out("a/cache");
    std::uint64_t maxBytes = CoarseLevels::defaultMaxBytes;
};

TEST_F(CoarseLevelsTest, LevelsShowTheImage) {
    const std::string path = write("i.tif");
    const SO<ImageFilePyramid> image(new ImageFilePyramid(path, "", ImageColors()));
    const SO<TiledGeoImagePyramid> levels = complete(path);
    ASSERT_TRUE(levels);
    EXPECT_EQ(image->minX(), levels->minX());
    EXPECT_EQ(image->maxY(), levels->maxY());
    ASSERT_GE(levels->overviews(), 3U);
    for (unsigned i = 0; i < levels->overviews(); ++i) {
        const SO<TiledGeoImage> expected = image->overview(i), level = levels->overview(i);
        ASSERT_EQ(expected->pixelsX(), level->pixelsX()) << i;
        ASSERT_EQ(expected->pixelsY(), level->pixelsY()) << i;
        const auto w = static_cast<unsigned>(level->pixelsX()), h = static_cast<unsigned>(level->pixelsY());
        const SO<NBX::Image> a = expected->getImage(0, 0, w, h), b = level->getImage(0, 0, w, h);
        ASSERT_TRUE(a && b) << i;
        for (unsigned y = 0; y < h; y += 7)
            for (unsigned x = 0; x < 3 * w; x += 11)
                ASSERT_NEAR(a->lineComponentsU8(int(y))[x], b->lineComponentsU8(int(y))[x], 2) << i;
    }
}

TEST_F(CoarseLevelsTest, AreMadeOnceForAFileAndItsColours) {
    const CountingDisplay display;
    const std::string path = write("i.tif");
    complete(path);
    EXPECT_EQ(1U, display.count);
    EXPECT_EQ(1.0, display.last) << "shown to the end";
    complete(path);
    EXPECT_EQ(1U, display.count);
    EXPECT_EQ(1U, kept().size()) << "no system beside it either";
    complete(path, ImageColors::parse("3,2,1;;").value());
    EXPECT_EQ(2U, display.count);
    write("i.tif");
    fs::last_write_time(path, fs::file_time_type::clock::now() + std::chrono::hours(1));
    complete(path);
    EXPECT_EQ(3U, display.count) << "the file has changed";
    EXPECT_EQ(3U, kept().size());
}

TEST_F(CoarseLevelsTest, WhatIsKeptAndDamagedIsMadeAnew) {
    const std::string path = write("i.tif");
    complete(path);
    ASSERT_EQ(1U, kept().size());
    const std::string file = kept().front(), whole = readWhole(file);
    for (const std::size_t length : {std::size_t(0), std::size_t(100), std::size_t(600)}) {
        fs::resize_file(file, length);
        const auto levels = complete(path);
        ASSERT_TRUE(levels && levels->overview(1)->getImage(0, 0, 9, 9)) << length;
        EXPECT_TRUE(whole == readWhole(file)) << length;
    }
    const std::string other = write("other.tif", 300, 400);
    complete(other);
    const std::string theirs = kept().front() == file ? kept().back() : kept().front();
    fs::copy_file(theirs, file, fs::copy_options::overwrite_existing);
    EXPECT_EQ(350U, complete(path)->overview(1)->pixelsX()) << "levels of another image";
}

TEST_F(CoarseLevelsTest, WhatWasNotUsedForTheLongestTimeGoes) {
    const std::string a = write("a.tif"), b = write("b.tif"), c = write("c.tif");
    complete(a);
    const std::string first = kept().front();
    complete(b);
    const auto hour = std::chrono::hours(1);
    for (const std::string & file : kept())
        fs::last_write_time(file, fs::file_time_type::clock::now() - (file == first ? 2 : 1) * hour);
    complete(a);
    std::ofstream(folder + "/notes.txt") << "no levels";
    maxBytes = 2'000'000;
    complete(c);
    const auto left = kept();
    EXPECT_EQ(3U, left.size()) << "notes, and the two used last";
    EXPECT_EQ(1, std::count(left.begin(), left.end(), first));
    maxBytes = 1'000'000;
    EXPECT_THROW(complete(b), NBX::IOException);
    EXPECT_EQ(3U, kept().size()) << "nothing is given up for what is too large";
}

TEST_F(CoarseLevelsTest, WithoutAFolderTheyLastAsLongAsTheImage) {
    const TemporaryFolder temporary;
    const std::string path = write("i.tif");
    for (const std::string & unusable : {std::string(), run.in("i.tif"), run.in("i.tif") + "/below"}) {
        folder = unusable;
        const CountingDisplay display;
        const auto levels = complete(path);
        EXPECT_EQ(1U, display.count);
        EXPECT_TRUE(temporary.isEmpty()) << unusable;
        ASSERT_TRUE(levels);
        EXPECT_TRUE(levels->overview(1)->getImage(0, 0, 9, 9));
    }
    EXPECT_EQ(std::vector<std::string>(), run.results());
}

TEST_F(CoarseLevelsTest, ACancelLeavesNothing) {
    const TemporaryFolder temporary;
    const CancelingDisplay display;
    const std::string path = write("i.tif");
    EXPECT_FALSE(complete(path));
    EXPECT_EQ(std::vector<std::string>(), kept());
    folder.clear();
    EXPECT_FALSE(complete(path));
    EXPECT_TRUE(temporary.isEmpty());
}

TEST_F(CoarseLevelsTest, LargeImagesThatStoreNoneNeedThem) {
    const auto image = [&](unsigned side) {
        const std::string size = std::to_string(side);
        return SO<ImageFilePyramid>(new ImageFilePyramid(
            run.write("i.vrt", "<VRTDataset rasterXSize=\"" + size + "\" rasterYSize=\"" + size +
                                   "\"><VRTRasterBand dataType=\"Byte\" band=\"1\"/></VRTDataset>")));
    };
    EXPECT_FALSE(CoarseLevels::areNeeded(*image(8192)));
    EXPECT_TRUE(CoarseLevels::areNeeded(*image(8193)));
}

TEST(CoarseLevels, TheFolderIsThatOfTheEnvironment) {
    const EnvironmentVariable home("HOME", "/home/me");
    {
        const EnvironmentVariable cache("XDG_CACHE_HOME", "/var/c");
        EXPECT_EQ("/var/c/zmt", CoarseLevels::userFolder());
    }
    for (const char * none : {static_cast<const char *>(nullptr), "", "relative"}) {
        const EnvironmentVariable cache("XDG_CACHE_HOME", none);
        EXPECT_EQ("/home/me/.cache/zmt", CoarseLevels::userFolder());
        const EnvironmentVariable nobody("HOME", nullptr);
        EXPECT_EQ("", CoarseLevels::userFolder());
    }
}

} // namespace
