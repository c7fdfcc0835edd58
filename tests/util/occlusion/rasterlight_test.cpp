#include <zmt/util/occlusion/rasterlight.h>

#include <cmath>
#include <cstring>
#include <map>
#include <set>
#include <tuple>

#include <nbx/container/sequence/array.h>
#include <nbx/image/image.h>
#include <nbx/scene/shape/polygonset.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/raster/rasterband.h>
#include <zmt/raster/relief/reliefwalk.h>

#include "comparedlight.h"
#include "raylight.h"
#include "support/cancelingdisplay.h"
#include "support/glfixture.h"
#include "util/occlusion/tileheights.h"

namespace {

using NBX::SO;
using ZMT::RASTER::CellSize;
using ZMT::RASTER::RasterBand;
using ZMT::UTIL::LightList;
using ZMT::UTIL::RasterLight;
using ZMT::UTIL::TileHeights;
using V = NBX::Vector3Base<double>;
using Height = std::function<float(unsigned, unsigned)>;

/// A raster whose heights are computed.
class ComputedBand : public RasterBand {
    NBX_TEMPLATE_CLASS(ComputedBand, RasterBand)
public:
    ComputedBand(unsigned width, unsigned height, double cell, Height heights)
        : RasterBand({width, height, 0.0, 0.0, cell, cell}), heights_(std::move(heights)) {}

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width; ++x)
                cells[y * width + x] = heights_(col + x, row + y);
    }

private:
    Height heights_;
};

std::vector<CellSize> sizes(const RasterBand & band) {
    return std::vector<CellSize>(band.cellsY(), CellSize{band.cellSizeX(), band.cellSizeY()});
}

float waves(unsigned x, unsigned y) {
    return float(400.0 + 60.0 * std::sin(x * 0.21) * std::cos(y * 0.17) +
                 25.0 * std::sin(x * 0.05 + y * 0.08));
}

class RasterLightTest : public GLFixture {
protected:
    static RasterLight::Settings settings(int directions) {
        RasterLight::Settings s;
        s.lighting.numSkyDirections = directions;
        s.halo = 16;
        s.farHalo = 64;
        return s;
    }
    /// The light of all cells, row by row from the southern one.
    std::vector<float> baked(const RasterBand & band, const RasterLight::Settings & s) {
        std::vector<float> all(std::size_t(band.cellsX()) * band.cellsY(), -1.0F);
        order.clear();
        const bool done = RasterLight::bake(
            band, sizes(band), s, canvas, [&](const NBX::Area & cells, const std::vector<float> & light) {
                order.push_back(cells);
                for (unsigned y = 0; y < cells.getHeight(); ++y)
                    std::memcpy(
                        &all[(std::size_t(cells.getY()) + y) * band.cellsX() + std::size_t(cells.getX())],
                        &light[std::size_t(y) * cells.getWidth()], cells.getWidth() * sizeof(float));
            });
        EXPECT_TRUE(done);
        return all;
    }

    std::vector<NBX::Area> order;
};

TEST_F(RasterLightTest, APlaneHasAllOfTheLight) {
    const SO<ComputedBand> band(new ComputedBand(40, 30, 5.0, [](unsigned, unsigned) { return 123.0F; }));
    for (const float light : baked(*band, settings(40)))
        EXPECT_NEAR(1.0F, light, 0.004F);
}

TEST_F(RasterLightTest, CellsAreLitAsByRays) {
    constexpr unsigned cells = 48;
    const SO<ComputedBand> band(new ComputedBand(cells, cells, 10.0, waves));
    const RasterLight::Settings s = settings(100);
    const std::vector<float> light = baked(*band, s);
    std::srand(s.seed);
    const LightList lights = LightList::combined(s.lighting);
    const TileHeights heights(*band, NBX::Area(0, 0, cells, cells), {10.0, 10.0}, s.halo, s.farHalo);
    RayLight rays;
    rays.add(*heights.newCasters());
    rays.commit();
    const SO<NBX::PolygonSet> receiver = heights.newReceiver(cells);
    ComparedLight compared;
    for (unsigned y = 0; y < cells; ++y)
        for (unsigned x = 0; x < cells; ++x) {
            const unsigned v = (y + 1) * (cells + 2) + x + 1;
            compared.add(light[y * cells + x],
                         rays.light(receiver->newVertexIterator()->get(v),
                                    receiver->newNormalIterator()->get(v), lights, 0.1) /
                             lights.onOpenPlane().y);
        }
    EXPECT_GE(compared.correlation(), 0.98);
    EXPECT_LE(compared.meanDifference(), 0.02);
}

TEST_F(RasterLightTest, TilesMeetWithoutASeamAndHowManyAreHeldChangesNothing) {
    // Two by two tiles, the outer ones a few cells wide.
    constexpr unsigned width = 530, height = 524;
    const SO<ComputedBand> band(new ComputedBand(width, height, 10.0, waves));
    RasterLight::Settings s = settings(6);
    s.piece = 1;
    const std::vector<float> one = baked(*band, s);
    ASSERT_EQ(4u, order.size());
    EXPECT_EQ(512, order[0].getY());
    EXPECT_EQ(12u, order[0].getHeight());
    EXPECT_EQ(512, order[1].getX());
    EXPECT_EQ(18u, order[1].getWidth());
    EXPECT_EQ(0, order[2].getY());
    s.piece = 3;
    EXPECT_EQ(0, std::memcmp(one.data(), baked(*band, s).data(), one.size() * sizeof(float)));
    // Steps from cell to cell across the border are as large as those beside it.
    const auto meanStep = [&](unsigned x) {
        double sum = 0.0;
        for (unsigned y = 0; y < height; ++y)
            sum += std::abs(one[y * width + x] - one[y * width + x - 1]);
        return sum / height;
    };
    EXPECT_LT(meanStep(512), 1.4 * (meanStep(510) + meanStep(511) + meanStep(513) + meanStep(514)) / 4.0);
}

/// The area on the map of the triangles of a mesh.
double areaOf(const NBX::PolygonSet & set) {
    const auto vertices = set.newVertexIterator();
    const auto corners = set.newIndexIterator();
    double area = 0.0;
    for (unsigned i = 0; i + 2 < corners->size(); i += 3) {
        const V a = vertices->get(corners->get(i)), b = vertices->get(corners->get(i + 1)),
                c = vertices->get(corners->get(i + 2));
        area += std::abs((b.x - a.x) * (c.z - a.z) - (c.x - a.x) * (b.z - a.z)) / 2.0;
    }
    return area;
}

TEST(TileHeightsTest, FarHeightsLieBesideNearOnesAtEveryBorder) {
    // The raster ends between the cells that are seen from far, or at one of them.
    for (const unsigned cells : {43u, 48u, 49u, 50u}) {
        const SO<ComputedBand> band(new ComputedBand(cells, cells, 10.0, waves));
        for (const auto & [x, y, halo] : {std::tuple{0, 0, 8u}, {16, 24, 8u}, {32, 32, 8u}, {32, 0, 16u}}) {
            const auto width = std::min(8u, cells - unsigned(x)), height = std::min(8u, cells - unsigned(y));
            const TileHeights heights(*band, NBX::Area(x, y, width, height), {1.0, 1.0}, halo, 1024);
            const SO<NBX::PolygonSet> casters = heights.newCasters();
            const NBX::Bounds box = casters->boundingBox();
            const V size = box.getURB() - box.getLLF();
            EXPECT_NEAR(size.x * size.z, areaOf(*casters), 1e-6)
                << cells << " cells, tile at " << x << " " << y;
        }
    }
}

TEST_F(RasterLightTest, CellsAtTheBorderAreLitAsThoseInside) {
    constexpr unsigned cells = 45;
    const SO<ComputedBand> rough(new ComputedBand(cells, cells, 10.0, [](unsigned x, unsigned y) {
        return (x * 7919 + y * 104729) % 5 < 2 ? 0.0F : 9.0F;
    }));
    const std::vector<float> light = baked(*rough, settings(60));
    const auto meanOfRow = [&](unsigned row) {
        double sum = 0.0;
        for (unsigned i = 5; i < 40; ++i)
            sum += light[row * cells + i];
        return sum / 35.0;
    };
    for (const unsigned row : {1u, 41u, 42u, 43u})
        EXPECT_NEAR(meanOfRow(20), meanOfRow(row), 0.08) << row;
}

TEST_F(RasterLightTest, FarHeightsShadeATile) {
    // A wall far to the west of the second tile, beyond the halo, and the sun low above it.
    const auto light = [&](float wall) {
        const SO<ComputedBand> band(new ComputedBand(
            520, 8, 10.0, [wall](unsigned x, unsigned) { return x < 481 && x > 470 ? wall : 0.0F; }));
        RasterLight::Settings s = settings(0);
        s.lighting.extraDirections = new NBX::Array<V>(std::vector<V>{{-1.0, 0.4, 0.0}});
        s.lighting.extraColors = new NBX::Array<V>(std::vector<V>{{1, 1, 1}});
        return baked(*band, s)[4 * 520 + 515];
    };
    EXPECT_NEAR(1.0F, light(0.0F), 0.01F);
    EXPECT_NEAR(0.0F, light(400.0F), 0.01F);
}

TEST_F(RasterLightTest, CellsWithoutHeightsHaveNoLightAndSpoilNoOthers) {
    const float none = std::nanf("");
    const SO<ComputedBand> band(new ComputedBand(40, 40, 10.0, [&](unsigned x, unsigned y) {
        return (x > 10 && x < 20 && y > 5) || x == 30 ? none : 7.0F;
    }));
    const std::vector<float> light = baked(*band, settings(20));
    for (unsigned y = 0; y < 40; ++y)
        for (unsigned x = 0; x < 40; ++x) {
            const bool isVoid = (x > 10 && x < 20 && y > 5) || x == 30;
            EXPECT_EQ(isVoid, std::isnan(light[y * 40 + x])) << x << " " << y;
            EXPECT_NEAR(1.0F, isVoid ? 1.0F : light[y * 40 + x], 0.01F) << x << " " << y;
        }
    const SO<ComputedBand> nothing(new ComputedBand(3, 3, 10.0, [&](unsigned, unsigned) { return none; }));
    for (const float value : baked(*nothing, settings(20)))
        EXPECT_TRUE(std::isnan(value));
    const SO<ComputedBand> single(new ComputedBand(1, 1, 10.0, [&](unsigned, unsigned) { return 5.0F; }));
    EXPECT_NEAR(1.0F, baked(*single, settings(20))[0], 0.01F);
}

TEST_F(RasterLightTest, CancellingStopsBeforeAnythingIsWritten) {
    const CancelingDisplay display;
    const SO<ComputedBand> band(new ComputedBand(9, 9, 10.0, waves));
    bool written = false;
    EXPECT_FALSE(RasterLight::bake(*band, sizes(*band), settings(9), canvas,
                                   [&](const NBX::Area &, const std::vector<float> &) { written = true; }));
    EXPECT_FALSE(written);
}

TEST_F(RasterLightTest, CellsWithoutASizeHaveNoLight) {
    const double none = std::nan("");
    const SO<ComputedBand> band(new ComputedBand(5, 5, 10.0, waves));
    EXPECT_TRUE(RasterLight::bake(*band, std::vector<CellSize>(5, CellSize{none, none}), settings(9), canvas,
                                  [](const NBX::Area &, const std::vector<float> & light) {
                                      for (const float value : light)
                                          EXPECT_TRUE(std::isnan(value));
                                  }));
}

} // namespace
