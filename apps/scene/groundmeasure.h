#pragma once

#include <functional>
#include <string>
#include <vector>

#include <nbx/math/vector3base.h>

// Lengths, heights and areas of ground, in map coordinates: x and z of a point are those of the map. All of
// it is as large as the map has it, which for most systems in metres is within a thousandth of the globe.

/// The height of the ground at a place of the map; not finite where there is none.
using GroundHeight = std::function<double(double x, double y)>;

/// The heights along a line on the map.
struct GroundProfile {
    struct Sample {
        double distance; ///< along the line on the map
        double x, y;
        double height; ///< not finite where there is no ground
    };
    std::vector<Sample> samples; ///< with those at the corners of the line
    double length = 0.0;         ///< on the map
    double groundLength = 0.0;   ///< along the ground; on the map where there is none
    double ascent = 0.0, descent = 0.0;
    double lowest = 0.0, highest = 0.0; ///< 0 without any height
    bool hasHeights = false, hasGaps = false;
};

/// Samples at most `spacing` apart, which is larger for lines of more than `mostProfileSamples` of them.
GroundProfile profileAlong(const std::vector<NBX::Vector3Base<double>> & line, double spacing,
                           const GroundHeight & heightAt);
inline constexpr double mostProfileSamples = 100'000.0;

/// "distance,x,y,height" and a line for each sample; the height is empty where there is none.
std::string profileText(const GroundProfile & profile);

/// Of the polygon with these corners, whose sides do not cross; 0 for fewer than three.
double planArea(const std::vector<NBX::Vector3Base<double>> & corners);
/// The same along the ground: by the mean slope of triangles between heights `spacing` apart, or farther in
/// polygons of more than `mostAreaCells` such squares. Where there is no ground the slope is that elsewhere.
double groundArea(const std::vector<NBX::Vector3Base<double>> & corners, double spacing,
                  const GroundHeight & heightAt);
inline constexpr double mostAreaCells = 262'144.0;
