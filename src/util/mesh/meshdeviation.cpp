#include "meshdeviation.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>

#include "core/terrain/geometry/regular/latticetriangle.h"

#include <nbx/object/progress.h>

namespace ZMT::UTIL {

namespace {

using CORE::LatticeTriangle;

/// Twice the area of a triangle in the plan, positive where it turns left.
double turn(const std::array<float, 3> & a, const std::array<float, 3> & b, double x, double y) {
    return (double(b[0]) - a[0]) * (y - a[1]) - (double(b[1]) - a[1]) * (x - a[0]);
}

} // namespace

double MeshDeviation::distance(std::uint32_t triangle, double x, double y, double height) const {
    constexpr unsigned s_mostSteps = 16; // roundings and bends are small against triangles
    double sides[3];
    for (unsigned steps = 0;; ++steps) {
        const auto & corners = surface_.triangles[triangle];
        std::uint32_t beyond = RasterSurface::s_none;
        double least = 0.0;
        for (unsigned k = 0; k < 3; ++k) {
            sides[k] = turn(mesh_.positions[corners[k]], mesh_.positions[corners[(k + 1) % 3]], x, y);
            if (sides[k] >= least || surface_.neighbours[triangle][k] == RasterSurface::s_none) continue;
            least = sides[k];
            beyond = surface_.neighbours[triangle][k];
        }
        if (beyond == RasterSurface::s_none || steps == s_mostSteps) break;
        triangle = beyond;
    }
    const auto & corners = surface_.triangles[triangle];
    const double a = mesh_.positions[corners[0]][2], b = mesh_.positions[corners[1]][2],
                 c = mesh_.positions[corners[2]][2];
    const double area = sides[0] + sides[1] + sides[2];
    const double plane = a + sides[2] / area * (b - a) + sides[0] / area * (c - a);
    return std::fabs(plane - height);
}

MeshDeviation::Worst MeshDeviation::worstOf(std::uint32_t triangle) const {
    LatticeTriangle lattice{};
    for (unsigned k = 0; k < 3; ++k) {
        const auto & vertex = surface_.vertices[surface_.triangles[triangle][k]];
        lattice.corners[k] = {vertex.column, vertex.row};
    }
    Worst worst;
    const unsigned columns = heights_.cellsX();
    lattice.forEachRow([&](std::int64_t row, std::int64_t first, std::int64_t last) {
        const float * cells = heights_.cells() + std::size_t(row) * columns;
        for (std::int64_t column = first; column <= last; ++column) {
            const double height = double(cells[column]);
            if (heights_.isUndefValue(height)) continue;
            const auto place = plan_.place(unsigned(column), unsigned(row));
            const double error =
                distance(triangle, (place.x - mesh_.origin.x) * mesh_.scale,
                         (place.y - mesh_.origin.y) * mesh_.scale, (height - mesh_.origin.z) * mesh_.scale);
            if (!(error > worst.error)) continue;
            worst = {error, {std::uint32_t(column), std::uint32_t(row)}};
        }
    });
    worst.error /= mesh_.scale;
    return worst;
}

MeshDeviation::Result MeshDeviation::measure(double allowed, unsigned threads,
                                             NBX::Progress * progress) const {
    constexpr std::uint32_t s_piece = 256;
    const auto count = static_cast<std::uint32_t>(surface_.triangles.size());
    std::vector<Worst> worst(count);
    std::atomic<std::uint32_t> next{0};
    std::atomic<bool> isCancelled{false};
    const auto work = [&](bool isShown) {
        for (std::uint32_t first; !isCancelled && (first = next.fetch_add(s_piece)) < count;) {
            for (std::uint32_t t = first; t < std::min(first + s_piece, count); ++t)
                worst[t] = worstOf(t);
            if (isShown && progress && !progress->update(progress->currentValue())) isCancelled = true;
        }
    };
    std::vector<std::thread> others;
    for (unsigned i = 1; i < threads && i * s_piece < count; ++i)
        others.emplace_back(work, false);
    work(true);
    for (std::thread & thread : others)
        thread.join();
    Result result;
    result.isCancelled = isCancelled;
    for (const Worst & one : worst) {
        result.error = std::max(result.error, one.error);
        if (one.error > allowed) result.worst.push_back(one.vertex);
    }
    return result;
}

} // namespace ZMT::UTIL
