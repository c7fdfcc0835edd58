#pragma once

#include <limits>
#include <string>
#include <vector>

#include <gdal_priv.h>
#include <gdal_utils.h>
#include <gtest/gtest.h>

#include <cpl_string.h>

#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/relief/reliefwalk.h>

inline const std::string s_everest = ZMT_DATA_DIR "/../tests/data/everest_30m_heights.tif";

/// What GDAL makes of the heights in a file, from the northern line down.
inline std::vector<float> gdalRelief(const std::string & path, const char * kind,
                                     const std::vector<const char *> & words = {}) {
    GDALAllRegister();
    CPLStringList options;
    for (const char * word : {"-of", "MEM"})
        options.AddString(word);
    for (const char * word : words)
        options.AddString(word);
    GDALDatasetH source = GDALOpen(path.c_str(), GA_ReadOnly);
    GDALDEMProcessingOptions * processing = GDALDEMProcessingOptionsNew(options.List(), nullptr);
    GDALDatasetH result = GDALDEMProcessing("", source, kind, nullptr, processing, nullptr);
    GDALDEMProcessingOptionsFree(processing);
    std::vector<float> values;
    if (result) {
        GDALDataset & dataset = *GDALDataset::FromHandle(result);
        const int width = dataset.GetRasterXSize(), height = dataset.GetRasterYSize();
        values.resize(std::size_t(width) * std::size_t(height));
        EXPECT_EQ(CE_None, dataset.GetRasterBand(1)->RasterIO(GF_Read, 0, 0, width, height, values.data(),
                                                              width, height, GDT_Float32, 0, 0, nullptr));
        GDALClose(result);
    }
    GDALClose(source);
    EXPECT_FALSE(values.empty()) << path;
    return values;
}

/// Keeps all rows.
class KeptRows : public ZMT::RASTER::RowSink {
public:
    void put(unsigned first, unsigned count, float * rows) override {
        EXPECT_EQ(lines, first);
        lines += count;
        values.insert(values.end(), rows, rows + std::size_t(count) * width);
    }

    std::size_t width = 0;
    unsigned lines = 0;
    std::vector<float> values;
};

/// What our own product makes of it, `noData` where it is nothing.
inline std::vector<float> ourRelief(const std::string & path, const ZMT::RASTER::ReliefProduct & product,
                                    float noData) {
    const ZMT::RASTER::RasterFile file(path);
    const auto band = file.band();
    KeptRows kept;
    kept.width = band->cellsX();
    const std::vector<ZMT::RASTER::CellSize> cells(band->cellsY(), {band->cellSizeX(), band->cellSizeY()});
    EXPECT_TRUE(ZMT::RASTER::ReliefWalk::run(*band, product, cells, kept));
    for (float & value : kept.values)
        if (value != value) value = noData;
    return kept.values;
}
