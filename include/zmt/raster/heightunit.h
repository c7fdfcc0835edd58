#pragma once

#include <optional>
#include <string>

#include <zmt/raster/simplerasterdata.h>

namespace ZMT::RASTER {

/// Units of heights, as files name them.
class HeightUnit {
public:
    /// How many metres it is, whatever its case: of metres, feet, yards and their usual abbreviations; 1 for
    /// the empty name, nothing for one that is not known.
    static std::optional<double> metres(const std::string & name);

    /// Multiplies the defined heights.
    static void scale(SimpleRasterData<float> & heights, double factor);
};

} // namespace ZMT::RASTER
