#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

/// Encodes uncompressed GeoTIFF files (TIFF 6.0, GeoTIFF 1.0), whose pixels come last in the file.
struct SmallGeoTiff {
    enum class Pixels { Heights, Colors }; ///< 32-bit floats, or red, green and blue bytes

    unsigned width = 0, height = 0;
    Pixels pixels = Pixels::Heights;
    std::vector<float> heights = {};       ///< from the northern line on
    std::vector<std::uint8_t> colors = {}; ///< three a pixel, from the northern line on
    bool isPlaced = true;
    double west = 500000.0, north = 3100000.0, cell = 32.0; ///< outer edge, in metres
    std::uint16_t system = 32645;                           ///< EPSG code: UTM zone 45 north
    bool isInDegrees = false;                               ///< the code is that of a geographic system
    std::string noData = "";
    std::string unit = ""; ///< of the heights

    std::string encode() const;
};
