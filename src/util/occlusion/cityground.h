#pragma once

#include <functional>

#include <vector>

#include <nbx/math/bounds.h>
#include <zmt/raster/gdal/coordinatesystem.h>

namespace ZMT::UTIL {

constexpr unsigned s_groundCells = 256;

/// The ground around `box`, whose frame has its origin at `origin` in geo coordinates, as triangles in that
/// frame, three corners each: `s_groundCells` cells of at least a metre along the box and somewhat beyond,
/// and coarser ones in the distance. None where there are no heights.
std::vector<NBX::Vector3Base<double>>
groundOfCity(const NBX::Bounds & box, const NBX::Vector3Base<double> & origin,
             const std::function<double(const RASTER::MapPlace &)> & heightAt);

} // namespace ZMT::UTIL
