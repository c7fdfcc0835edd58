#include <zmt/raster/gdal/rasterwriter.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>

#include <gtest/gtest.h>

#include <nbx/object/exception.h>
#include <zmt/raster/gdal/coordinatesystem.h>
#include <zmt/raster/gdal/rasterfile.h>

#include "raster/gdal/geotiff.h"
#include "support/recordedreports.h"

namespace {

using namespace ZMT::RASTER;

constexpr float s_nan = std::numeric_limits<float>::quiet_NaN();

/// Wider and higher than a tile.
RasterWriter::Layout layout(RasterWriter::Pixels pixels) {
    RasterWriter::Layout result;
    result.grid = {300, 290, 500000.0, 3000000.0, 20.0, 30.0};
    result.reference = CoordinateSystem::parse("EPSG:32645");
    result.reference.isGeoreferenced = true;
    result.pixels = pixels;
    result.threads = 2;
    return result;
}

/// Of the cell `x` of the line `y` from the north.
float valueAt(unsigned x, unsigned y, RasterWriter::Pixels pixels) {
    if (x == 7 && y == 3) return s_nan;
    return pixels == RasterWriter::P_Numbers ? 0.25F * float(x) + float(y) : float((x + 3 * y) % 256);
}

void putAll(RasterWriter & writer, RasterWriter::Pixels pixels) {
    for (unsigned first = 0; first < 290; first += 256) {
        const unsigned count = std::min(256U, 290 - first);
        std::vector<float> rows;
        for (unsigned y = first; y < first + count; ++y)
            for (unsigned x = 0; x < 300; ++x)
                rows.push_back(valueAt(x, y, pixels));
        writer.put(first, count, rows.data());
    }
}

std::string write(const TestDirectory & folder, const std::string & name, RasterWriter::Pixels pixels,
                  bool deflates = true) {
    RasterWriter::Layout how = layout(pixels);
    how.deflates = deflates;
    const auto writer = RasterWriter::open(folder.file(name), how);
    putAll(*writer, pixels);
    writer->commit();
    return folder.file(name);
}

GDALDataset * opened(const std::string & path) {
    GDALAllRegister();
    return GDALDataset::FromHandle(GDALOpen(path.c_str(), GA_ReadOnly));
}

std::vector<float> bandOf(GDALDataset & dataset, int band) {
    std::vector<float> values(300 * 290);
    EXPECT_EQ(CE_None, dataset.GetRasterBand(band)->RasterIO(GF_Read, 0, 0, 300, 290, values.data(), 300, 290,
                                                             GDT_Float32, 0, 0, nullptr));
    return values;
}

/// Of a tile of the file, so that each is written once, and none beyond its end.
TEST(RasterWriter, RowsThatAreNoStripAreReportedAndNotWritten) {
    RecordedReports reports;
    const TestDirectory folder;
    const auto writer = RasterWriter::open(folder.file("a.tif"), layout(RasterWriter::P_Numbers));
    std::vector<float> rows(300U * 290U, 1.0F);
    writer->put(0, 290, rows.data());
    EXPECT_EQ(1U, reports.size());
    writer->put(34, 256, rows.data());
    EXPECT_EQ(2U, reports.size());
}

TEST(RasterWriter, NumbersAreATiledGeoTiffWithNoData) {
    const TestDirectory folder;
    for (const bool deflates : {true, false}) {
        GDALDataset * dataset = opened(write(folder, "n.tif", RasterWriter::P_Numbers, deflates));
        ASSERT_TRUE(dataset);
        GDALRasterBand & band = *dataset->GetRasterBand(1);
        int width = 0, height = 0;
        band.GetBlockSize(&width, &height);
        EXPECT_EQ(256, width);
        EXPECT_EQ(256, height);
        EXPECT_EQ(-9999.0, band.GetNoDataValue());
        const char * compression = dataset->GetMetadataItem("COMPRESSION", "IMAGE_STRUCTURE");
        EXPECT_EQ(deflates ? "DEFLATE" : "", std::string(compression ? compression : ""));
        double place[6];
        dataset->GetGeoTransform(place);
        EXPECT_EQ(499990.0, place[0]) << "half a cell beside the centre of the first";
        EXPECT_EQ(20.0, place[1]);
        EXPECT_EQ(3000000.0 + 289.5 * 30.0, place[3]);
        EXPECT_EQ(-30.0, place[5]);
        EXPECT_EQ(std::string("WGS 84 / UTM zone 45N"), dataset->GetSpatialRef()->GetName());
        const std::vector<float> values = bandOf(*dataset, 1);
        for (unsigned y = 0; y < 290; ++y)
            for (unsigned x = 0; x < 300; ++x) {
                const float expected = valueAt(x, y, RasterWriter::P_Numbers);
                ASSERT_EQ(std::isnan(expected) ? -9999.0F : expected, values[y * 300 + x]);
            }
        GDALClose(dataset);
    }
}

TEST(RasterWriter, PicturesHaveAlpha) {
    const TestDirectory folder;
    for (const auto pixels : {RasterWriter::P_Gray, RasterWriter::P_Ink})
        for (const char * name : {"p.tif", "p.png"}) {
            GDALDataset * dataset = opened(write(folder, name, pixels));
            ASSERT_TRUE(dataset);
            ASSERT_EQ(2, dataset->GetRasterCount());
            EXPECT_EQ(GCI_AlphaBand, dataset->GetRasterBand(2)->GetColorInterpretation());
            double place[6];
            ASSERT_EQ(CE_None, dataset->GetGeoTransform(place)) << "of the world file as well";
            EXPECT_EQ(499990.0, place[0]);
            EXPECT_EQ(3000000.0 + 289.5 * 30.0, place[3]);
            const std::vector<float> gray = bandOf(*dataset, 1), alpha = bandOf(*dataset, 2);
            const bool isInk = pixels == RasterWriter::P_Ink;
            EXPECT_EQ(0.0F, alpha[3 * 300 + 7]) << "nothing";
            EXPECT_EQ(isInk ? 0.0F : 109.0F, gray[3 * 300 + 100]);
            EXPECT_EQ(isInk ? 146.0F : 255.0F, alpha[3 * 300 + 100]);
            EXPECT_EQ(isInk ? 0.0F : float((299 + 3 * 289) % 256), gray.back());
            GDALClose(dataset);
        }
}

TEST(RasterWriter, WithoutAPlaceThereIsNoWorldFile) {
    const TestDirectory folder;
    RasterWriter::Layout how = layout(RasterWriter::P_Gray);
    how.reference = {};
    const auto writer = RasterWriter::open(folder.file("p.png"), how);
    putAll(*writer, RasterWriter::P_Gray);
    writer->commit();
    EXPECT_TRUE(std::filesystem::exists(folder.file("p.png")));
    EXPECT_FALSE(std::filesystem::exists(folder.file("p.pgw")));
}

TEST(RasterWriter, NothingIsThereBeforeItIsComplete) {
    const TestDirectory folder;
    for (const char * name : {"n.tif", "n.png"}) {
        const auto writer = RasterWriter::open(folder.file(name), layout(RasterWriter::P_Gray));
        putAll(*writer, RasterWriter::P_Gray);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.file("")));
}

/// Deflated it may stay small, or not: the width of the offsets in a file is set when it is begun.
TEST(RasterWriter, LargeFilesHaveRoomForMoreThanFourGiB) {
    const TestDirectory folder;
    for (const auto & [cells, version] : {std::pair{300U, 42}, {33000U, 43}}) {
        RasterWriter::Layout how = layout(RasterWriter::P_Numbers);
        how.grid.cellsX = how.grid.cellsY = cells;
        RasterWriter::open(folder.file("n.tif"), how)->commit(); // tiles that were not put are equal
        std::ifstream file(folder.file("n.tif"), std::ios::binary);
        char head[4] = {};
        file.read(head, sizeof head);
        EXPECT_EQ(version, head[2]) << cells;
    }
}

TEST(RasterWriter, WhatCannotBeIsRefused) {
    const TestDirectory folder;
    EXPECT_THROW(RasterWriter::open(folder.file("n.png"), layout(RasterWriter::P_Numbers)), NBX::IOException);
    EXPECT_THROW(RasterWriter::open(folder.file("no/folder.tif"), layout(RasterWriter::P_Gray)),
                 NBX::IOException);
    RasterWriter::Layout large = layout(RasterWriter::P_Gray);
    large.grid.cellsX = large.grid.cellsY = 100000;
    EXPECT_THROW(RasterWriter::open(folder.file("large.png"), large), NBX::IOException);
    EXPECT_TRUE(std::filesystem::is_empty(folder.file("")));
}

} // namespace
