#include "meshsolid.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ZMT::UTIL {

namespace {

/// A border's edge, from corner `corner` of a triangle to the next one; the surface is on its left.
struct BorderEdge {
    std::uint32_t triangle;
    unsigned corner;
};

/// The triangles around a vertex from one edge of the border to another, with the vertex's place in each.
using Fan = std::vector<BorderEdge>;

/// Makes the vertices where parts of a surface touch one vertex for each part.
class PinchParting {
public:
    PinchParting(SurfaceMesh & mesh, const RasterSurface & surface, double cell)
        : mesh_(mesh), surface_(surface), cell_(cell) {}

    void run(const std::vector<BorderEdge> & border) {
        std::vector<std::pair<std::uint32_t, std::size_t>> byVertex; // and the border's edge that leaves it
        byVertex.reserve(border.size());
        for (std::size_t i = 0; i < border.size(); ++i)
            byVertex.emplace_back(surface_.triangles[border[i].triangle][border[i].corner], i);
        std::sort(byVertex.begin(), byVertex.end());
        for (std::size_t i = 0; i < byVertex.size();) {
            std::size_t end = i + 1;
            while (end < byVertex.size() && byVertex[end].first == byVertex[i].first)
                ++end;
            std::vector<Fan> fans;
            for (; end - i > 1 && fans.size() < end - i;)
                fans.push_back(fanFrom(border[byVertex[i + fans.size()].second]));
            part(fans);
            i = end;
        }
    }

private:
    /// From the edge that leaves the vertex on, counter-clockwise.
    Fan fanFrom(const BorderEdge & leaving) const {
        Fan fan{leaving};
        const std::uint32_t vertex = surface_.triangles[leaving.triangle][leaving.corner];
        for (;;) {
            const auto [triangle, corner] = fan.back();
            const std::uint32_t next = surface_.neighbours[triangle][(corner + 2) % 3];
            if (next == RasterSurface::s_none) return fan;
            unsigned k = 0;
            while (surface_.triangles[next][k] != vertex)
                ++k;
            fan.push_back({next, k});
        }
    }

    /// All but the widest one, which leaves no more than half a turn to the others, get vertices of their
    /// own.
    void part(std::vector<Fan> & fans) {
        if (fans.empty()) return;
        std::size_t widest = 0;
        for (std::size_t i = 1; i < fans.size(); ++i)
            if (angleOf(fans[i]) > angleOf(fans[widest])) widest = i;
        for (std::size_t i = 0; i < fans.size(); ++i)
            if (i != widest) moveApart(fans[i]);
    }

    /// To corner `corner + step` of a triangle, in the plan.
    std::array<double, 2> spoke(const BorderEdge & at, unsigned step) const {
        const auto & corners = surface_.triangles[at.triangle];
        const auto & from = mesh_.positions[corners[at.corner]];
        const auto & to = mesh_.positions[corners[(at.corner + step) % 3]];
        return {double(to[0]) - from[0], double(to[1]) - from[1]};
    }

    double angleOf(const Fan & fan) const {
        double angle = 0.0;
        for (const BorderEdge & at : fan) {
            const auto a = spoke(at, 1), b = spoke(at, 2);
            angle += std::atan2(a[0] * b[1] - a[1] * b[0], a[0] * b[0] + a[1] * b[1]);
        }
        return angle;
    }

    /// Into the fan, along its middle, and not so far that a triangle would turn over.
    void moveApart(const Fan & fan) {
        constexpr double s_share = 1.0 / 64.0, s_ofTriangle = 0.25;
        const auto first = spoke(fan.front(), 1);
        const double middle = std::atan2(first[1], first[0]) + 0.5 * angleOf(fan);
        double length = cell_ * s_share;
        for (const BorderEdge & at : fan) {
            const auto a = spoke(at, 1), b = spoke(at, 2);
            const double edge = std::hypot(b[0] - a[0], b[1] - a[1]);
            length = std::min(length, s_ofTriangle * std::fabs(a[0] * b[1] - a[1] * b[0]) / edge);
        }
        const std::uint32_t vertex = surface_.triangles[fan.front().triangle][fan.front().corner];
        auto position = mesh_.positions[vertex];
        position[0] = float(position[0] + length * std::cos(middle));
        position[1] = float(position[1] + length * std::sin(middle));
        const auto added = static_cast<std::uint32_t>(mesh_.positions.size());
        mesh_.positions.push_back(position);
        if (!mesh_.textureCoordinates.empty())
            mesh_.textureCoordinates.push_back(mesh_.textureCoordinates[vertex]);
        for (const BorderEdge & at : fan)
            mesh_.triangles[at.triangle][at.corner] = added;
    }

    SurfaceMesh & mesh_;
    const RasterSurface & surface_;
    double cell_;
};

} // namespace

void MeshSolid::close(SurfaceMesh & mesh, const RasterSurface & surface, float base, double cell) {
    std::vector<BorderEdge> border;
    for (std::uint32_t t = 0; t < surface.triangles.size(); ++t)
        for (unsigned k = 0; k < 3; ++k)
            if (surface.neighbours[t][k] == RasterSurface::s_none) border.push_back({t, k});
    PinchParting(mesh, surface, cell).run(border);

    const auto above = static_cast<std::uint32_t>(mesh.positions.size());
    const std::size_t top = mesh.triangles.size();
    mesh.positions.reserve(std::size_t(above) * 2);
    mesh.triangles.reserve(top * 2 + border.size() * 2);
    for (std::uint32_t v = 0; v < above; ++v)
        mesh.positions.push_back({mesh.positions[v][0], mesh.positions[v][1], base});
    for (std::size_t v = 0; v < above && !mesh.textureCoordinates.empty(); ++v)
        mesh.textureCoordinates.push_back(mesh.textureCoordinates[v]);
    for (std::size_t t = 0; t < top; ++t) {
        const auto [a, b, c] = mesh.triangles[t];
        mesh.triangles.push_back({a + above, c + above, b + above});
    }
    for (const BorderEdge & edge : border) {
        const std::uint32_t a = mesh.triangles[edge.triangle][edge.corner];
        const std::uint32_t b = mesh.triangles[edge.triangle][(edge.corner + 1) % 3];
        mesh.triangles.push_back({a + above, b + above, b});
        mesh.triangles.push_back({a + above, b, a});
    }
}

} // namespace ZMT::UTIL
