#include "core/terrain/geometry/chunked/chunkedlodworsterror.h"

#include <support/patchdeviation.h>

#include "core/terrain/geometry/chunked/chunkedlodmesh.h"
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/raster/gdal/rasterfile.h>

#include "chunkedfixture.h"

using TestChunked::Patch;
using ZMT::CORE::ChunkedLodTerrain;
using ZMT::CORE::ChunkedLodWorstError;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::GeoTransformation;
using ZMT::CORE::GridData;

namespace {

/// Of a float at the heights and in the places of the crops.
constexpr double s_rounding = 0.002;

NBX::SO<GridData> cropOf(const std::string & name) {
    const auto raster =
        ZMT::RASTER::RasterFile(ZMT_DATA_DIR "/../tests/data/" + name + "_heights.tif").read();
    NBX::SO<GridData> grid(new GridData(raster.raster.get()));
    GeoTransformation::setNBXOrigin(grid->origin());
    return grid;
}

class ErrorsOfCropsTest : public testing::TestWithParam<const char *> {
protected:
    ~ErrorsOfCropsTest() override { GeoTransformation::setNBXOrigin({}); }

    template <class Visit>
    static void forEachPatch(const NBX::SO<GeometryPatch> & patch, const Visit & visit) {
        visit(*patch);
        for (unsigned i = 0; i < patch->children(); ++i)
            forEachPatch(patch->child(i), visit);
    }
};

TEST_P(ErrorsOfCropsTest, NoChunkedPatchIsWorseThanItsErrorTimesTheWorstRatio) {
    const NBX::SO<ChunkedLodTerrain> terrain(new ChunkedLodTerrain(cropOf(GetParam()).get()));
    double worst = 1.0;
    forEachPatch(terrain->root(), [&](const GeometryPatch & patch) {
        const auto & chunk = dynamic_cast<const Patch &>(patch);
        SCOPED_TRACE(testing::Message() << chunk.size() << " at " << chunk.x() << ", " << chunk.y());
        const double stated = patch.approximationError(), real = PatchDeviation::of(patch);
        EXPECT_EQ(stated, double(terrain->heightScale()) * chunk.threshold());
        EXPECT_LE(real, stated * terrain->worstErrorRatio() + terrain->heightScale() / 2.0 + s_rounding);
        if (stated > 0.0)
            worst = std::max(worst, (real - terrain->heightScale() / 2.0 - s_rounding) / stated);
        const auto parent = TestChunked::patch(patch.parent());
        EXPECT_LE(chunk.threshold(), parent ? parent->threshold() : 65535);
    });
    EXPECT_GT(worst, 1.0) << "errors add up";
    // Undefined cells count for the ratio.
    EXPECT_LT(terrain->worstErrorRatio(), worst * 1.1) << "no more triangles than needed";
}

TEST_P(ErrorsOfCropsTest, NoPatchOfATreeIsWorseThanItsError) {
    testing::internal::CaptureStderr();
    const auto root = ZMT::CORE::CreateGeometryTree::create(cropOf(GetParam()).get(), 300);
    testing::internal::GetCapturedStderr();
    forEachPatch(root, [&](const GeometryPatch & patch) {
        EXPECT_LE(PatchDeviation::of(patch), patch.approximationError() + s_rounding);
    });
}

INSTANTIATE_TEST_SUITE_P(Real, ErrorsOfCropsTest,
                         testing::Values("everest", "everest_30m", "exploradores", "jacksboro", "world"),
                         [](const auto & crop) { return std::string(crop.param); });

/// The worst ratio of all patches below a root, straight from the definition.
double plainRatio(const NBX::SO<ChunkedLodTerrain> & terrain, const NBX::SO<Patch> & patch) {
    if (patch->threshold() == 0) return 1.0;
    double worst = (PatchDeviation::of(*patch) - terrain->heightScale() / 2.0) / patch->approximationError();
    for (unsigned i = 0; i < patch->children(); ++i)
        worst = std::max(worst, plainRatio(terrain, TestChunked::patch(patch->child(i))));
    return worst;
}

TEST(ChunkedLodWorstError, IsThatOfTheWorstPatch) {
    TestChunked::Random random(7);
    for (unsigned run = 0; run < 60; ++run) {
        const unsigned sizeX = 2 + random() % 70, sizeY = 2 + random() % 70, rough = 1 + random() % 400;
        SCOPED_TRACE(testing::Message() << sizeX << " by " << sizeY << ", roughness " << rough);
        const auto terrain = TestChunked::terrain({sizeX, sizeY}, [&](unsigned x, unsigned y) {
            return 300.0 * std::sin(x * 0.11) * std::cos(y * 0.07) + random() % rough;
        });
        const auto errors = terrain->impl()->errors();
        const unsigned padded = terrain->impl()->paddedSize();
        const unsigned short threshold =
            std::min<unsigned short>(60000, errors[random() % (padded * padded)]);
        const NBX::SO<Patch> root(new Patch(terrain, 0, 0, padded, threshold, terrain->wall()));
        const double expected = plainRatio(terrain, root);
        const double found = ChunkedLodWorstError::ratio(*terrain->impl(), threshold);
        // Values of the raster are rounded, by half a step in either direction.
        const double rounding =
            (terrain->heightScale() + 1e-3) / std::max(1e-9, root->approximationError()) * 64;
        EXPECT_GE(found, expected - 1e-3);
        EXPECT_LE(found, expected + rounding + 1e-3);
    }
}

TEST(ChunkedLodWorstError, IsOneWhereEveryVertexIsShown) {
    const auto terrain = TestChunked::terrain({9, 9}, TestTerrain::bumpy);
    EXPECT_EQ(ChunkedLodWorstError::ratio(*terrain->impl(), 0), 1.0);
}

TEST(ChunkedLodWorstError, ErrorsOfVerticesInTheSameDirectionAddUp) {
    // Steep first, and flatter with each cell: all vertices lie above the middles of their edges.
    const auto terrain =
        TestChunked::terrain({9, 9}, [](unsigned x, unsigned) { return std::sqrt(double(x)); });
    const auto * errors = terrain->impl()->errors();
    const auto threshold = static_cast<unsigned short>(*std::max_element(errors + 1, errors + 8) + 1);
    EXPECT_GT(ChunkedLodWorstError::ratio(*terrain->impl(), threshold), 1.2);
}

TEST(ChunkedLodWorstError, TrianglesThatAreCutAtTheBorderCount) {
    // The middle of the last but one edge is where its heights are, but not where it is drawn.
    const auto height = [](unsigned x, unsigned) { return x < 4 ? 0.0 : 100.0 * (x - 4); };
    const auto whole = TestChunked::terrain({17, 17}, height), cut = TestChunked::terrain({14, 17}, height);
    const auto ratioAt = [](const NBX::SO<ChunkedLodTerrain> & terrain) {
        const NBX::SO<Patch> root(new Patch(terrain, 0, 0, 17, 20000, 0.0));
        return ChunkedLodWorstError::ratio(*terrain->impl(), 20000) - plainRatio(terrain, root);
    };
    EXPECT_NEAR(ratioAt(whole), 0.0, 1e-3);
    EXPECT_NEAR(ratioAt(cut), 0.0, 1e-3);
}

TEST(ChunkedLodWorstError, OfLargeTerrainsSamplesAreEnough) {
    // Rough ground, alike everywhere: nearly all patches are left out, and none is worse than the estimate.
    const auto terrain = TestChunked::terrain({600, 513}, [](unsigned x, unsigned y) {
        return 300.0 * std::sin(x * 0.11) * std::cos(y * 0.07) + (x * 7919 + y * 104729) % 211;
    });
    GeoTransformation::setNBXOrigin(terrain->origin());
    const double worst = plainRatio(terrain, TestChunked::patch(terrain->root()));
    EXPECT_LE(worst, terrain->worstErrorRatio());
    EXPECT_LE(terrain->worstErrorRatio(), worst * 1.26);
    GeoTransformation::setNBXOrigin({});
}

} // namespace
