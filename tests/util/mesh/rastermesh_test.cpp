#include <zmt/util/mesh/rastermesh.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include <nbx/object/progress.h>
#include <zmt/raster/gdal/coordinatesystem.h>

#include "support/cancelingdisplay.h"
#include "util/mesh/rasterplan.h"

namespace {

using ZMT::RASTER::CoordinateSystem;
using ZMT::RASTER::GeoRaster;
using ZMT::UTIL::RasterMesh;
using ZMT::UTIL::RasterRefinement;
using ZMT::UTIL::SurfaceMesh;

/// A steep slope with waves on it, in cells of 1/400 of a degree or of 30 m.
GeoRaster slope(const char * system, unsigned columns = 300, unsigned rows = 300) {
    GeoRaster raster;
    raster.reference = CoordinateSystem::parse(system);
    const bool isInDegrees = raster.reference.isGeographic;
    raster.raster = new ZMT::RASTER::SimpleRasterData<float>(
        columns, rows, isInDegrees ? 86.0 : 500000.0, isInDegrees ? 65.0 : 3e6, isInDegrees ? 0.0025 : 30.0,
        isInDegrees ? 0.0025 : 30.0, false, 0.0f);
    for (unsigned y = 0; y < rows; ++y)
        for (unsigned x = 0; x < columns; ++x)
            raster.raster->setValue(x, y, 100.0f * float(y) + 40.0f * std::sin(float(x) * 0.05f));
    return raster;
}

SurfaceMesh make(const GeoRaster & raster, const RasterMesh::Options & options) {
    auto mesh = RasterMesh::create(raster, options);
    EXPECT_TRUE(mesh);
    return mesh ? *mesh : SurfaceMesh();
}

/// What the refinement of the cells comes to, which knows no map.
double errorOfCells(const GeoRaster & raster, double goal) {
    RasterRefinement refinement(*raster.raster);
    refinement.refine({goal});
    return refinement.error();
}

TEST(RasterMesh, OnAMapInMetresTheErrorIsThatOfTheCells) {
    const GeoRaster raster = slope("EPSG:32645");
    RasterMesh::Options options;
    options.goal.error = 3.0;
    const SurfaceMesh mesh = make(raster, options);
    EXPECT_NEAR(errorOfCells(raster, 3.0), mesh.error, 1e-3);
    EXPECT_EQ("EPSG:32645", mesh.system);
}

TEST(RasterMesh, TheErrorHoldsOnTheMapToWhichDegreesAreBent) {
    const GeoRaster raster = slope("EPSG:4326");
    RasterMesh::Options options;
    options.goal.error = 3.0;
    // A bend of half a cell of this slope is more than that.
    EXPECT_LE(make(raster, options).error, 3.0);
}

/// Of all heights that a triangle covers, by trying all triangles.
double measured(const GeoRaster & raster, const SurfaceMesh & mesh) {
    const ZMT::UTIL::RasterPlan plan(raster);
    double error = 0.0;
    for (unsigned row = 0; row < raster.raster->cellsY(); ++row)
        for (unsigned column = 0; column < raster.raster->cellsX(); ++column) {
            const auto place = plan.place(column, row);
            const double x = place.x - mesh.origin.x, y = place.y - mesh.origin.y;
            for (const auto & t : mesh.triangles) {
                const auto &a = mesh.positions[t[0]], &b = mesh.positions[t[1]], &c = mesh.positions[t[2]];
                const auto side = [&](const auto & from, const auto & to) {
                    return (double(to[0]) - from[0]) * (y - from[1]) -
                           (double(to[1]) - from[1]) * (x - from[0]);
                };
                const double u = side(b, c), v = side(c, a), w = side(a, b);
                if (u < 0.0 || v < 0.0 || w < 0.0) continue;
                const double plane = (u * a[2] + v * b[2] + w * c[2]) / (u + v + w);
                error = std::max(error, std::fabs(plane - raster.raster->value(column, row)));
                break;
            }
        }
    return error;
}

TEST(RasterMesh, EachHeightCountsByTheTriangleInWhichItLies) {
    // A ridge along the middle row, which is bent on the map, so that its heights lie south of its edges:
    // there the steep northern side would be far above.
    const GeoRaster raster = slope("EPSG:4326", 401, 21);
    for (unsigned y = 0; y < 21; ++y)
        for (unsigned x = 0; x < 401; ++x)
            raster.raster->setValue(x, y,
                                    y < 10 ? 500.0f * (float(y) - 10.0f) : -4000.0f * (float(y) - 10.0f));
    RasterMesh::Options options;
    options.goal.triangles = 40;
    const SurfaceMesh mesh = make(raster, options);
    EXPECT_NEAR(measured(raster, mesh), mesh.error, 1e-3);
}

TEST(RasterMesh, ThreadsChangeNothing) {
    RasterMesh::Options options;
    options.goal.error = 3.0;
    const SurfaceMesh one = make(slope("EPSG:4326"), options);
    options.threads = 4;
    const SurfaceMesh four = make(slope("EPSG:4326"), options);
    EXPECT_EQ(one.positions, four.positions);
    EXPECT_EQ(one.triangles, four.triangles);
    EXPECT_EQ(one.error, four.error);
}

TEST(RasterMesh, AWidthIsThatOfTheMeshAndTheBaseItsBottom) {
    RasterMesh::Options options;
    options.goal.error = 3.0;
    options.width = 100.0;
    options.base = -500.0;
    const SurfaceMesh mesh = make(slope("EPSG:4326"), options);
    const auto extent = [&](unsigned k) {
        float low = mesh.positions[0][k], high = low;
        for (const auto & p : mesh.positions) {
            low = std::min(low, p[k]);
            high = std::max(high, p[k]);
        }
        return std::pair(low, high);
    };
    EXPECT_NEAR(100.0, extent(0).second - extent(0).first, 1e-4);
    EXPECT_EQ(0.0f, extent(2).first);
    EXPECT_EQ(-500.0, mesh.origin.z);
}

TEST(RasterMesh, WithoutHeightsThereAreNoTriangles) {
    GeoRaster raster = slope("EPSG:32645", 9, 9);
    for (unsigned i = 0; i < 81; ++i)
        raster.raster->setValue(i % 9, i / 9, std::numeric_limits<float>::quiet_NaN());
    RasterMesh::Options options;
    options.base = -5.0;
    EXPECT_TRUE(make(raster, options).triangles.empty());
}

TEST(RasterMesh, CanBeCancelled) {
    const CancelingDisplay display;
    NBX::Progress progress("refining");
    EXPECT_FALSE(RasterMesh::create(slope("EPSG:4326"), {}, &progress));
}

} // namespace
