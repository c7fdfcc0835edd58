#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "featureshapes.h"

namespace ZMT::RASTER {

/// A feature on its way from a file to those who see it.
struct FeatureRecord {
    std::int64_t id = 0;
    std::vector<FieldValue> values;
    std::string style;
    FeatureShapes shapes;

    bool isOfAreas() const;
    /// Appends it to `bytes`, for `decode`.
    void encode(std::vector<std::uint8_t> & bytes) const;
    /// The number of bytes of a record that begins with these, of which there are `s_headBytes`.
    static std::size_t encodedBytes(const std::uint8_t * head);
    /// Replaces all; of the values those of `fields` are taken.
    void decode(const std::uint8_t * bytes, std::span<const unsigned> fields);

    static constexpr std::size_t s_headBytes = 8;
};

} // namespace ZMT::RASTER
