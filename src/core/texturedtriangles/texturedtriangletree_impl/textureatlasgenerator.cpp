// Parameterization. A patch is turned into the plane of x and z, its smallest rectangle moved to the origin,
// turned upright and scaled to the unit square; from there it goes to its place on the atlas.

#include "textureatlasgenerator.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include <nbx/container/sequence/array.h>
#include <nbx/gl/context/glcanvas.h>
#include <nbx/image/atlas/textureatlascreator.h>
#include <nbx/math/algorithmimpl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonsettool.h>

#include "texturesizecalculator.h"
#include "trianglecorners.h"

namespace ZMT::CORE {

namespace {

using Vector = TextureAtlasGenerator::Vector;
using Vectors = TextureAtlasGenerator::Vectors;
using Triangles = TextureAtlasGenerator::Triangles;
using Groups = TextureAtlasGenerator::Groups;
using Matrix = NBX::AlgorithmImpl::Matrix;
using Corners = std::array<Vector, 3>;

/// Texels of the shortest side of a patch, and of the atlas that no patch takes.
constexpr int s_leastPatchEdge = TextureSizeCalculator::BORDER;
/// In world units.
constexpr double s_leastEdge = 1e-10;

struct AtlasSettings {
    int border, atlasSize, maxPatchSize;
};

/// How a patch comes to the unit square in x and z.
struct PatchFrame {
    const Triangles * triangles = nullptr;
    Vector origin;        ///< taken off first
    Matrix toUnitSquare;  ///< from there
    double width, height; ///< of its rectangle, in world units
};

double doubleArea(const Corners & c) {
    return (c[1] - c[0]).cross(c[2] - c[0]).length();
}

double longestEdge2(const Corners & c) {
    return std::max({(c[1] - c[0]).length2(), (c[2] - c[1]).length2(), (c[0] - c[2]).length2()});
}

/// Whether the triangles are small enough altogether. One that is longer than a patch may be counts for as
/// much as the patch can show of it.
bool areaFits(const TriangleCorners & corners, double unitsPerTexel, const AtlasSettings & settings) {
    // The limit grows with the size of a texel, not with its area: what it lets through is decided by
    // packing.
    const double limit = double(settings.atlasSize) * settings.atlasSize * unitsPerTexel;
    const double longest = settings.maxPatchSize * unitsPerTexel, longest2 = longest * longest;
    double sum = 0.0;
    for (int triangle = 0; triangle < corners.size(); ++triangle) {
        const Corners at = corners[triangle];
        const double area = doubleArea(at) / 2.0, edge2 = longestEdge2(at);
        if (std::isnan(area)) continue;
        sum += settings.maxPatchSize > 0 && edge2 > longest2 ? area * (longest2 / edge2) : area;
        if (sum > limit) return false;
    }
    return true;
}

/// That of the triangle with the largest area; zero where there is none.
Vector normalOfPatch(const TriangleCorners & corners, const Triangles & triangles) {
    double largest = -1.0;
    Corners best{};
    for (const int triangle : triangles) {
        if (!corners.contains(triangle)) continue;
        const Corners at = corners[triangle];
        if (const double area = doubleArea(at); area > largest) {
            largest = area;
            best = at;
        }
    }
    return NBX::PolygonSetTool::getTriangleNormal(best[0], best[1], best[2]);
}

/// Nothing for a patch without extent.
std::optional<PatchFrame> frameOf(const TriangleCorners & corners, const Triangles & triangles) {
    const Vector normal = normalOfPatch(corners, triangles);
    if (!(normal.length2() >= leastNormal2)) return std::nullopt;
    PatchFrame frame;
    frame.triangles = &triangles;
    const Matrix turn = NBX::AlgorithmImpl::rotateToXZPlane(normal);
    std::vector<Vector> turned;
    turned.reserve(triangles.size() * std::size_t(3));
    for (const int triangle : triangles) {
        if (!corners.contains(triangle)) continue;
        const Corners at = corners[triangle];
        if (turned.empty()) frame.origin = at[0];
        for (const Vector & corner : at)
            turned.push_back(turn * (corner - frame.origin));
    }
    const auto rectangle = NBX::AlgorithmImpl::boundingRectangle(turned);
    if (!rectangle) return std::nullopt;
    const auto & [first, second, third, fourth] = *rectangle;
    frame.width = (second - first).length();
    frame.height = (fourth - first).length();
    if (frame.width <= s_leastEdge || frame.height <= s_leastEdge) return std::nullopt;
    const double angle = NBX::AlgorithmImpl::calculateAngleCCW({1.0, 0.0, 0.0}, second - first);
    frame.toUnitSquare = Matrix::scaling({1.0 / frame.width, 1.0, 1.0 / frame.height}) *
                         Matrix::rotation({0.0, 1.0, 0.0}, angle) * Matrix::translation(-first) * turn;
    return frame;
}

/// Texels of a side of `length` world units, with its borders.
int texelsOf(double length, double unitsPerTexel, const AtlasSettings & settings) {
    const int most = settings.atlasSize - s_leastPatchEdge;
    const double texels = length / unitsPerTexel + 0.5;
    // Not-a-number and what is beyond the numbers of texels is cut as well.
    int pixels = texels < most ? static_cast<int>(texels) : most;
    pixels = std::min(std::max(pixels, s_leastPatchEdge) + 2 * settings.border, most);
    return settings.maxPatchSize > 0 ? std::min(pixels, settings.maxPatchSize) : pixels;
}

/// From the unit square in x and z to the atlas, with y, the height, behind.
Matrix toAtlas(const NBX::Area & area, const AtlasSettings & settings) {
    const double size = settings.atlasSize;
    const double s = 1.0 / size + 1.0;
    const double x = area.getX() + settings.border, y = area.getY() + settings.border;
    const double width = area.getWidth() - 2.0 * settings.border,
                 height = area.getHeight() - 2.0 * settings.border;
    return Matrix({width * s / size, 0.0, 0.0, x * s / size,  //
                   0.0, 0.0, height * s / size, y * s / size, //
                   0.0, 1.0, 0.0, 0.0,                        //
                   0.0, 0.0, 0.0, 1.0});
}

void writeCoordinates(const PatchFrame & frame, const Matrix & unitToAtlas, const TriangleCorners & corners,
                      std::vector<Vector> & coordinates) {
    const Matrix m = unitToAtlas * frame.toUnitSquare;
    for (const int triangle : *frame.triangles) {
        if (!corners.contains(triangle)) continue;
        auto out = coordinates.begin() + static_cast<std::ptrdiff_t>(triangle) * 3;
        for (const Vector & corner : corners[triangle])
            *out++ = m * (corner - frame.origin);
    }
}

/// Lays patches out; `unitsPerTexel` is asked by the number of the patch.
NBX::SO<Vectors> layOut(const Vectors & vertices, const Groups & patches,
                        const std::function<double(unsigned)> & unitsPerTexel,
                        const AtlasSettings & settings) {
    const TriangleCorners corners(vertices);
    const std::vector<NBX::SO<Triangles>> held(patches.begin(), patches.end());
    std::vector<PatchFrame> frames;
    const NBX::SO<NBX::NonPersistentArray<std::pair<unsigned, unsigned>>> sizes(
        new NBX::NonPersistentArray<std::pair<unsigned, unsigned>>);
    for (unsigned i = 0; i < held.size(); ++i) {
        const auto frame = held[i] ? frameOf(corners, *held[i]) : std::nullopt;
        if (!frame) continue;
        const int width = texelsOf(frame->width, unitsPerTexel(i), settings);
        const int height = texelsOf(frame->height, unitsPerTexel(i), settings);
        // No room within the borders.
        if (std::min(width, height) <= 2 * settings.border) return nullptr;
        sizes->append({static_cast<unsigned>(width), static_cast<unsigned>(height)});
        frames.push_back(*frame);
    }
    const auto side = static_cast<unsigned>(settings.atlasSize);
    const NBX::SO<NBX::Iterator<NBX::Area>> areas =
        NBX::TextureAtlasCreator::createSubImagePlacement(sizes.get(), side, side);
    if (!areas) return nullptr;
    std::vector<Vector> coordinates(vertices.size());
    for (unsigned i = 0; i < frames.size(); ++i)
        writeCoordinates(frames[i], toAtlas(areas->get(i), settings), corners, coordinates);
    return new NBX::Array<Vector>(std::move(coordinates));
}

/// All patches of all planes of all directions.
NBX::SO<Groups> patchesOf(const Vectors & vertices, const AtlasSettings & settings) {
    using Generator = TextureAtlasGenerator;
    const NBX::SO<NBX::NonPersistentArray<NBX::SO<Triangles>>> patches(
        new NBX::NonPersistentArray<NBX::SO<Triangles>>);
    const NBX::SO<Groups> parallel = Generator::groupParallelTriangles(&vertices);
    for (unsigned i = 0; parallel && i < parallel->size(); ++i) {
        const NBX::SO<Groups> coplanar = Generator::groupCoplanarTriangles(&vertices, parallel->get(i).get());
        for (unsigned k = 0; coplanar && k < coplanar->size(); ++k) {
            const NBX::SO<Groups> rectangular = Generator::groupRectangularPatches(
                &vertices, coplanar->get(k).get(), settings.border, settings.atlasSize);
            for (unsigned r = 0; rectangular && r < rectangular->size(); ++r)
                patches->append(rectangular->get(r));
        }
    }
    return patches;
}

NBX::SO<Vectors> coordinatesOfOne(int border, int atlasSize) {
    const double f = double(border) / atlasSize;
    return new NBX::Array<Vector>(
        std::vector<Vector>{{f, f, 0.0}, {1.0 - f, f, 0.0}, {1.0 - f, 1.0 - f, 0.0}});
}

/// The number of its patch for every triangle, -1 for one without.
NBX::SO<NBX::Array<int>> numbersOfPatches(const Groups & patches, int triangles) {
    const NBX::SO<NBX::Array<int>> numbers(new NBX::Array<int>(static_cast<unsigned>(triangles), -1));
    for (unsigned i = 0; i < patches.size(); ++i) {
        const NBX::SO<Triangles> patch = patches.get(i);
        for (unsigned k = 0; patch && k < patch->size(); ++k)
            if (const int triangle = patch->get(k); triangle >= 0 && triangle < triangles)
                numbers->set(static_cast<unsigned>(triangle), static_cast<int>(i));
    }
    return numbers;
}

/// Gives the canvas the size of the atlas. False when that is not possible.
bool fit(NBX::GLCanvas & canvas, int atlasSize) {
    const auto side = static_cast<unsigned>(atlasSize);
    return (canvas.getWidth() == side && canvas.getHeight() == side) || canvas.setSize(side, side);
}

} // namespace

NBX::SO<Vectors> TextureAtlasGenerator::create(const Vectors * vertices, double unitsPerTexel, int border,
                                               int atlasSize) {
    if (vertices && vertices->size() / 3 == 1) return coordinatesOfOne(border, atlasSize);
    return createAtlasParameterization(vertices, unitsPerTexel, border, atlasSize, 0);
}

TextureAtlasGenerator::TextureMapping
TextureAtlasGenerator::create(const Vectors * vertices, const Vectors * texCoords,
                              const Triangles * textureNumbers, const Textures * textures,
                              double unitsPerTexel, int border, int atlasSize, NBX::GLCanvas * canvas) {
    NBX_CHECK(canvas, L"no canvas");
    const NBX::SO<Vectors> coordinates = create(vertices, unitsPerTexel, border, atlasSize);
    if (!canvas || !coordinates || !fit(*canvas, atlasSize)) return {};
    const NBX::SO<NBX::Image> image =
        renderTextureAtlas(vertices, texCoords, textureNumbers, textures, coordinates.get(), border, canvas);
    if (!image) return {};
    return {image, coordinates};
}

TextureAtlasGenerator::TextureMapping
TextureAtlasGenerator::create(const Vectors * triangles, const Vectors * texCoords, const Groups * patches,
                              const Textures * textures, const NBX::Iterator<double> * patchResolutions,
                              int border, int atlasSize, NBX::GLCanvas * canvas) {
    NBX_CHECK(triangles, L"no iterator");
    NBX_CHECK(texCoords, L"no iterator");
    NBX_CHECK(patches, L"no iterator");
    NBX_CHECK(textures, L"no iterator");
    NBX_CHECK(patchResolutions, L"no iterator");
    NBX_CHECK(canvas, L"no canvas");
    if (!triangles || !texCoords || !patches || !textures || !patchResolutions || !canvas) return {};
    const auto resolution = [&](unsigned patch) {
        return patch < patchResolutions->size() ? patchResolutions->get(patch) : 1.0;
    };
    const NBX::SO<Vectors> coordinates = layOut(*triangles, *patches, resolution, {border, atlasSize, 0});
    if (!coordinates || !fit(*canvas, atlasSize)) return {};
    const NBX::SO<NBX::Array<int>> numbers =
        numbersOfPatches(*patches, static_cast<int>(triangles->size() / 3));
    const NBX::SO<NBX::Image> image = renderTextureAtlas(triangles, texCoords, numbers.get(), textures,
                                                         coordinates.get(), patches, border, canvas);
    if (!image) return {};
    return {image, coordinates};
}

NBX::SO<Vectors> TextureAtlasGenerator::createAtlasParameterization(const Vectors * vertices,
                                                                    double unitsPerTexel, int border,
                                                                    int atlasSize, int maxPatchSize) {
    NBX_CHECK(vertices, L"no iterator");
    if (!vertices) return nullptr;
    const AtlasSettings settings{border, atlasSize, maxPatchSize};
    if (vertices->size() > 1 && !areaFits(TriangleCorners(*vertices), unitsPerTexel, settings))
        return nullptr;
    const NBX::SO<Groups> patches = patchesOf(*vertices, settings);
    return createAtlasParameterization(vertices, patches.get(), unitsPerTexel, border, atlasSize,
                                       maxPatchSize);
}

NBX::SO<Vectors> TextureAtlasGenerator::createAtlasParameterization(const Vectors * vertices,
                                                                    const Groups * patches,
                                                                    double unitsPerTexel, int border,
                                                                    int atlasSize, int maxPatchSize) {
    NBX_CHECK(vertices, L"no iterator");
    NBX_CHECK(patches, L"no iterator");
    if (!vertices || !patches) return nullptr;
    return layOut(*vertices, *patches, [unitsPerTexel](unsigned) { return unitsPerTexel; },
                  {border, atlasSize, maxPatchSize});
}

} // namespace ZMT::CORE
