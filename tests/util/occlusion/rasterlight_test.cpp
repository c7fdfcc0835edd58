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
#include <zmt/raster/gdal/rasterfile.h>
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

/// Boxes in cells and heights.
class Bodies {
public:
    void add(const V & low, const V & high) {
        const auto corner = [&](unsigned i) {
            return V(i & 1 ? high.x : low.x, i & 2 ? high.y : low.y, i & 4 ? high.z : low.z);
        };
        for (const unsigned i : {0, 1, 3, 0, 3, 2, 4, 5, 7, 4, 7, 6, 0, 1, 5, 0, 5, 4,
                                 2, 3, 7, 2, 7, 6, 0, 2, 6, 0, 6, 4, 1, 3, 7, 1, 7, 5})
            corners_.push_back(corner(i));
    }
    const std::vector<V> & corners() const { return corners_; }
    SO<NBX::PolygonSet> set() const {
        return new NBX::PolygonSet(NBX::PolygonSet::PT_Triangles, new NBX::Array<V>(corners_));
    }

private:
    std::vector<V> corners_;
};

/// Level ground at the height 100, with cells of 10 m.
SO<ComputedBand> plain(unsigned width, unsigned height) {
    return new ComputedBand(width, height, 10.0, [](unsigned, unsigned) { return 100.0F; });
}

/// A house of 30 m in a yard with walls of 20 m.
Bodies yard() {
    Bodies bodies;
    bodies.add({20.5, 100, 21.5}, {25.5, 130, 26.5});
    bodies.add({9.5, 100, 9.5}, {38.5, 120, 11.5});
    bodies.add({9.5, 100, 36.5}, {38.5, 120, 38.5});
    bodies.add({9.5, 100, 9.5}, {11.5, 120, 38.5});
    bodies.add({36.5, 100, 9.5}, {38.5, 120, 38.5});
    return bodies;
}

TEST_F(RasterLightTest, ABoxInAYardIsLitAsByRays) {
    constexpr unsigned cells = 48;
    RasterLight::Settings s = settings(300);
    const Bodies bodies = yard();
    s.casters = bodies.set();
    const std::vector<float> light = baked(*plain(cells, cells), s);
    std::srand(s.seed);
    const LightList lights = LightList::combined(s.lighting);
    RayLight rays;
    const auto inMetres = [](const V & p) { return V(10.0 * p.x, p.y, 10.0 * p.z); };
    for (std::size_t i = 0; i < bodies.corners().size(); i += 3)
        rays.add(inMetres(bodies.corners()[i]), inMetres(bodies.corners()[i + 1]),
                 inMetres(bodies.corners()[i + 2]));
    rays.commit();
    ComparedLight compared;
    for (unsigned y = 0; y < cells; ++y)
        for (unsigned x = 0; x < cells; ++x)
            compared.add(double(light[y * cells + x]),
                         rays.light({10.0 * x, 100.0, 10.0 * y}, {0.0, 1.0, 0.0}, lights, 0.1) /
                             lights.onOpenPlane().y);
    RecordProperty("correlation", testing::PrintToString(compared.correlation()));
    RecordProperty("difference", testing::PrintToString(compared.meanDifference()));
    EXPECT_GE(compared.correlation(), 0.98);
    EXPECT_LE(compared.meanDifference(), 0.02);
    EXPECT_LT(light[20 * cells + 23], 0.85F);
    EXPECT_NEAR(0.0F, light[24 * cells + 23], 0.01F) << "below the house";
}

TEST_F(RasterLightTest, AWallInTheNorthDarkensAsMuchAsItsMirrorImage) {
    constexpr unsigned cells = 40;
    std::srand(3);
    std::vector<V> directions;
    const auto quarter = ZMT::UTIL::AmbientOcclusion::createLightDirections(40);
    for (const V & d : *quarter)
        for (const double z : {-1.0, 1.0})
            directions.push_back(LightList::turnedUp({d.x, z * d.y, d.z}));
    const auto mean = [&](double wall, unsigned firstRow) {
        RasterLight::Settings s = settings(0);
        s.lighting.extraDirections = new NBX::Array<V>(directions);
        s.lighting.extraColors = new NBX::Array<V>(std::vector<V>(directions.size(), V(1, 1, 1)));
        Bodies bodies;
        bodies.add({-0.5, 100, wall - 1.0}, {39.5, 140, wall + 1.0});
        s.casters = bodies.set();
        const std::vector<float> light = baked(*plain(cells, cells), s);
        double sum = 0.0;
        for (unsigned y = firstRow; y < firstRow + 6; ++y)
            for (unsigned x = 0; x < cells; ++x)
                sum += double(light[y * cells + x]) / (6.0 * cells);
        return sum;
    };
    const double southOfIt = mean(30.0, 22), northOfIt = mean(9.0, 12);
    EXPECT_LT(southOfIt, 0.9);
    EXPECT_NEAR(southOfIt, northOfIt, 0.005);
}

TEST_F(RasterLightTest, BodiesBesideTheRasterShadeItAsFarAsHeightsDo) {
    RasterLight::Settings s = settings(0);
    s.lighting.extraColors = new NBX::Array<V>(std::vector<V>{{1, 1, 1}});
    // A wall in the direction of the sun, so many cells beyond the border of the raster.
    const auto light = [&](const V & side, double beyond) {
        s.lighting.extraDirections = new NBX::Array<V>(std::vector<V>{side + V(0.0, 0.2, 0.0)});
        const V middle = V(19.5, 100.0, 19.5) + side * (20.0 + beyond), along(side.z, 0.0, side.x);
        Bodies bodies;
        bodies.add(middle - along * 30.0, middle + along * 30.0 + side + V(0.0, 800.0, 0.0));
        s.casters = bodies.set();
        const V seen = V(19.5, 0.0, 19.5) + side * 19.0;
        return baked(*plain(40, 40), s)[unsigned(seen.z) * 40 + unsigned(seen.x)];
    };
    for (const V & side : {V(1, 0, 0), V(-1, 0, 0), V(0, 0, 1), V(0, 0, -1)}) {
        EXPECT_NEAR(0.0F, light(side, 3.0), 0.01F) << side.x << side.z;
        EXPECT_NEAR(0.0F, light(side, 60.0), 0.01F) << side.x << side.z;
        EXPECT_NEAR(1.0F, light(side, 67.0), 0.01F) << side.x << side.z << " is beyond the tile and 64 cells";
    }
}

TEST_F(RasterLightTest, BodiesAcrossTilesGiveTheSameForAnyPiece) {
    constexpr unsigned width = 530, height = 9;
    Bodies bodies;
    bodies.add({505.5, 90, 3.5}, {519.5, 140, 5.5});
    RasterLight::Settings s = settings(40);
    s.casters = bodies.set();
    s.piece = 1;
    const std::vector<float> one = baked(*plain(width, height), s);
    s.piece = 2;
    EXPECT_EQ(0, std::memcmp(one.data(), baked(*plain(width, height), s).data(), one.size() * sizeof(float)));
    EXPECT_LT(one[2 * width + 511], 0.8F);
    EXPECT_NEAR(one[2 * width + 511], one[2 * width + 512], 0.03F);
}

/// A part of another band.
class PartOfBand : public RasterBand {
    NBX_TEMPLATE_CLASS(PartOfBand, RasterBand)
public:
    PartOfBand(const SO<RasterBand> & all, const NBX::Area & part)
        : RasterBand({part.getWidth(), part.getHeight(), 0.0, 0.0, 90.0, 90.0}), all_(all), part_(part) {}

protected:
    void readCells(unsigned col, unsigned row, unsigned width, unsigned height,
                   float * cells) const override {
        all_->read(col + unsigned(part_.getX()), row + unsigned(part_.getY()), width, height, cells);
    }

private:
    SO<RasterBand> all_;
    NBX::Area part_;
};

/// Of the cells that have light.
double meanOf(const std::vector<float> & light) {
    double sum = 0.0, cells = 0.0;
    for (const float value : light) {
        if (std::isnan(value)) continue;
        sum += double(value);
        cells += 1.0;
    }
    return sum / cells;
}

TEST_F(RasterLightTest, AroundEverestAHaloOfTwiceTheSizeChangesLittle) {
    const ZMT::RASTER::RasterFile file(ZMT_DATA_DIR "/everest_srtm3.tif");
    // West of the border of tiles lies a part of the second one's halo.
    const SO<PartOfBand> band(new PartOfBand(file.band(), NBX::Area(570, 1100, 600, 64)));
    const auto means = [&](unsigned halo, unsigned farHalo) {
        RasterLight::Settings s = settings(12);
        s.halo = halo;
        s.farHalo = farHalo;
        const std::vector<float> light = baked(*band, s);
        std::vector<float> second;
        for (unsigned y = 0; y < 64; ++y)
            second.insert(second.end(), &light[y * 600 + 512], &light[y * 600] + 600);
        return second;
    };
    const RasterLight::Settings usual;
    const std::vector<float> once = means(usual.halo, usual.farHalo);
    const std::vector<float> twice = means(2 * usual.halo, 2 * usual.farHalo);
    EXPECT_NEAR(meanOf(once), meanOf(twice), 0.01);
    EXPECT_NE(meanOf(once), meanOf(means(8, usual.farHalo))) << "a smaller one is seen";
}

TEST_F(RasterLightTest, BothRenderersGiveTheSame) {
    const SO<ComputedBand> band(new ComputedBand(100, 80, 10.0, waves));
    RasterLight::Settings s = settings(20);
    const Bodies bodies = yard();
    s.casters = bodies.set();
    const std::vector<float> buffers = baked(*band, s);
    ZMT::UTIL::AmbientOcclusion::setFBOEnabled(false);
    const std::vector<float> pbuffers = baked(*band, s);
    ZMT::UTIL::AmbientOcclusion::setFBOEnabled(true);
    std::size_t others = 0;
    for (std::size_t i = 0; i < buffers.size(); ++i)
        others += std::abs(buffers[i] - pbuffers[i]) > 2.0F / 255.0F ? 1 : 0;
    EXPECT_LE(1000 * others, buffers.size());
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
