#pragma once

#include <cstdint>
#include <vector>

#include <nbx/object/so.h>
#include <zmt/raster/simplerasterdata.h>

/// Fractal heights of 0 to about 2000 on `size` by `size` cells of 30 units; the same in every run. Value
/// noise in ten octaves, whose amplitudes fall as those of real relief do.
inline NBX::SO<ZMT::RASTER::SimpleRasterData<float>> makeSyntheticTerrain(unsigned size) {
    const auto hash = [](std::uint32_t x, std::uint32_t y, std::uint32_t octave) {
        std::uint32_t h = x * 0x9E3779B1u ^ y * 0x85EBCA77u ^ octave * 0xC2B2AE3Du;
        h = (h ^ (h >> 15)) * 0x2C1B3C6Du;
        h = (h ^ (h >> 12)) * 0x297A2D39u;
        return static_cast<float>(h ^ (h >> 15)) / 4294967296.0F;
    };
    NBX::SO<ZMT::RASTER::SimpleRasterData<float>> raster(
        new ZMT::RASTER::SimpleRasterData<float>(size, size, 0.0, 0.0, 30.0, 30.0, false, 0.0F));
    float * cells = raster->cells();
    float amplitude = 1000.0F;
    for (unsigned octave = 0; octave < 10; ++octave, amplitude *= 0.48F) {
        const float frequency = 4.0F * static_cast<float>(1u << octave) / 2048.0F;
        for (unsigned y = 0; y < size; ++y)
            for (unsigned x = 0; x < size; ++x) {
                const float u = static_cast<float>(x) * frequency, v = static_cast<float>(y) * frequency;
                const auto i = static_cast<std::uint32_t>(u), j = static_cast<std::uint32_t>(v);
                const auto smooth = [](float t) { return t * t * (3.0F - 2.0F * t); };
                const float s = smooth(u - static_cast<float>(i)), t = smooth(v - static_cast<float>(j));
                const float low = hash(i, j, octave) * (1 - s) + hash(i + 1, j, octave) * s;
                const float high = hash(i, j + 1, octave) * (1 - s) + hash(i + 1, j + 1, octave) * s;
                cells[std::size_t(y) * size + x] += amplitude * (low * (1 - t) + high * t);
            }
    }
    return raster;
}
