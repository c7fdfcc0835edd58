#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <support/glfixture.h>
#include <support/recordedreports.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/chunked/chunkedlodterrain.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "support/testterrain.h"

using ZMT::CORE::GeoTransformation;
using ZMT::CORE::Terrain;
using ZMT::CORE::TerrainPainterGLSettings;
using Point = NBX::Vector3Base<double>;

namespace {

class OriginWatchTest : public GLFixture {
protected:
    void TearDown() override {
        GeoTransformation::setNBXOrigin({});
        TerrainPainterGLSettings::enableRendering(true);
        GLFixture::TearDown();
    }

    void draw(Terrain * terrain, unsigned frames = 1) {
        const Point center = terrain->boundingBox().center();
        root->clear();
        root->append(new NBX::Camera(new NBX::LookAt(center + Point(0, 100, 0), center, {0, 0, 1}),
                                     new NBX::Ortho(-32, 32, -32, 32, 50, 200)));
        root->append(terrain);
        for (unsigned i = 0; i < frames; ++i)
            canvas->redisplay();
    }

    std::size_t missing() const {
        std::size_t count = 0;
        for (const NBX::ErrorReport & report : reports.reports())
            if (report.message.find(L"GeoTransformation::setNBXOrigin") != std::wstring::npos) {
                ++count;
                EXPECT_EQ(2, report.level);
                EXPECT_EQ(L"false", report.condition);
                EXPECT_NE(std::wstring::npos, report.message.find(L"origin is missing"));
            }
        return count;
    }

    NBX::SO<ZMT::CORE::GridData> grid =
        TestTerrain::grid({5, 5, 500000.0, 3100000.0, 10.0, 10.0}, TestTerrain::bumpy);
    NBX::SO<ZMT::CORE::GeometryPatch> tree = ZMT::CORE::CreateGeometryTree::create(grid.get(), 4000);
    NBX::SO<Terrain> terrain = new Terrain(grid.get(), tree.get());
    RecordedReports reports;
};

TEST_F(OriginWatchTest, IsToldOnceWithoutAnOrigin) {
    draw(terrain.get(), 3);
    EXPECT_EQ(1U, missing()) << reports;
    const NBX::SO<Terrain> other(new Terrain(grid.get(), tree.get()));
    draw(other.get(), 2);
    EXPECT_EQ(2U, missing()) << "each terrain is told";
}

TEST_F(OriginWatchTest, IsNotToldWithAnOrigin) {
    GeoTransformation::setNBXOrigin(grid->origin());
    draw(terrain.get(), 2);
    EXPECT_EQ(0U, missing()) << reports;
}

TEST_F(OriginWatchTest, OnlyWhatSinglePrecisionSpoilsIsTold) {
    const struct {
        const char * name;
        double minX, minY, cell;
        std::size_t expected;
    } rows[] = {{"at the origin", 0, 0, 10, 0},
                {"about the origin", -20, -20, 10, 0},
                {"metres of a zone", 500000, 3100000, 10, 1},
                {"metres south of the origin", 500000, -3100000, 10, 1},
                {"large cells", 500000, 3100000, 300, 0},
                {"degrees", 86.5, 28.5, 0.0008, 1},
                {"some metres away", 2000, 5000, 1, 0}};
    for (const auto & row : rows) {
        reports.clear();
        const auto data =
            TestTerrain::grid({5, 5, row.minX, row.minY, row.cell, row.cell}, TestTerrain::bumpy);
        const auto patches = ZMT::CORE::CreateGeometryTree::create(data.get(), 4000);
        draw(NBX::SO<Terrain>(new Terrain(data.get(), patches.get())).get());
        EXPECT_EQ(row.expected, missing()) << row.name;
    }
}

TEST_F(OriginWatchTest, IsNotToldWhereNothingIsDrawn) {
    TerrainPainterGLSettings::enableRendering(false);
    draw(terrain.get());
    EXPECT_EQ(0U, missing()) << reports;
}

TEST_F(OriginWatchTest, ChunkedOnesAreToldToo) {
    const NBX::SO<Terrain> chunked(new ZMT::CORE::ChunkedLodTerrain(grid.get()));
    draw(chunked.get(), 2);
    EXPECT_EQ(1U, missing()) << reports;
}

} // namespace
