#pragma once

#include <array>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include <gdal_priv.h>
#include <gtest/gtest.h>
#include <ogr_spatialref.h>
#include <unistd.h>

#include <cpl_string.h>

/// A directory of its own for each test, removed at the end.
class TestDirectory {
public:
    TestDirectory()
        : path_(std::filesystem::temp_directory_path() / ("zmt_raster_" + std::to_string(getpid()))) {
        std::filesystem::create_directories(path_);
    }
    ~TestDirectory() { std::filesystem::remove_all(path_); }
    TestDirectory(const TestDirectory &) = delete;
    TestDirectory & operator=(const TestDirectory &) = delete;

    std::string file(const std::string & name) const { return (path_ / name).string(); }
    std::string write(const std::string & name, const std::string & bytes) const {
        std::ofstream(file(name), std::ios::binary) << bytes;
        return file(name);
    }

private:
    std::filesystem::path path_;
};

/// What `writeTiff` writes. The lines of `values` go from the top of the file down.
struct TiffContent {
    int width = 0;
    int height = 0;
    std::vector<double> values = {}; ///< band after band
    int bands = 1;
    GDALDataType type = GDT_Float32;
    bool isPlaced = true;
    std::array<double, 6> geoTransform = {500000.0, 30.0, 0.0, 3100000.0, 0.0, -20.0};
    std::string system = "EPSG:32645";
    bool hasNoData = false;
    double noData = 0.0;
    double scale = 1.0;
    double offset = 0.0;
    std::vector<std::string> options = {};
    const char * format = "GTiff";
    std::string unit = ""; ///< of the numbers
};

inline std::string writeTiff(const std::string & path, const TiffContent & content) {
    GDALAllRegister();
    CPLStringList options;
    for (const std::string & option : content.options)
        options.AddString(option.c_str());
    GDALDriver * driver = GetGDALDriverManager()->GetDriverByName(content.format);
    GDALDataset * dataset = driver->Create(path.c_str(), content.width, content.height, content.bands,
                                           content.type, options.List());
    if (!dataset) {
        ADD_FAILURE() << "cannot write " << path;
        return path;
    }
    if (!content.system.empty()) {
        OGRSpatialReference system;
        system.SetFromUserInput(content.system.c_str());
        dataset->SetSpatialRef(&system);
    }
    if (content.isPlaced) {
        std::array<double, 6> transform = content.geoTransform;
        dataset->SetGeoTransform(transform.data());
    }
    const std::size_t pixels = static_cast<std::size_t>(content.width) * content.height;
    for (int i = 0; i < content.bands; ++i) {
        GDALRasterBand * band = dataset->GetRasterBand(i + 1);
        if (content.hasNoData) band->SetNoDataValue(content.noData);
        if (content.scale != 1.0) band->SetScale(content.scale);
        if (content.offset != 0.0) band->SetOffset(content.offset);
        if (!content.unit.empty()) band->SetUnitType(content.unit.c_str());
        auto * values = const_cast<double *>(content.values.data()) + i * pixels;
        EXPECT_EQ(CE_None, band->RasterIO(GF_Write, 0, 0, content.width, content.height, values,
                                          content.width, content.height, GDT_Float64, 0, 0, nullptr));
    }
    GDALClose(dataset);
    return path;
}
