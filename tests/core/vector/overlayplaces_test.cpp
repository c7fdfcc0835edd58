// Lines of real files lie where they lie on the map, from above and from the side.

#include <cpl_vsi.h>

#include <nbx/engine/raytracingtechnique.h>

#include "memoryfeatures.h"
#include "overlayplacestest.h"

using NBX::SO;

namespace {

const std::string s_glaciers = ZMT_DATA_DIR "/everest_glaciers.geojson";
const std::string s_coastline = ZMT_DATA_DIR "/world_coastline.geojson";
const std::string s_countries = ZMT_DATA_DIR "/world_countries.geojson";
const std::string s_contours = ZMT_DATA_DIR "/../tests/data/everest_contours.geojson";

class OverlayPlacesTest : public OverlayPlacesFixture {
protected:
    /// Without ALL_TOUCHED GDAL sets one pixel of each row or column that a line crosses, with it every pixel
    /// that it touches. Each way the one is taken that asks more: what is drawn lies at the thin line, and
    /// all that the line touches lies at what is drawn.
    void expectSameLines(const std::string & path, int epsg, double farthestTouched) {
        SCOPED_TRACE(path);
        lay(file(path), "color=black, width=1, fill=#00000000");
        show(fromAbove().get());
        const SO<NBX::Image> image = settledPicture();
        // Where a line ends, or touches only the corner of a pixel, it is faint.
        const Mask drawn = drawnPixels(image, 32), visible = drawnPixels(image, 8);
        const SourceLines source(path, epsg);
        const Mask thin = rasterized(source, false), touched = rasterized(source, true);
        EXPECT_GT(drawn.count(), 300U);
        EXPECT_LE(drawn.farthestFrom(thin), 1.0);
        EXPECT_LE(touched.farthestFrom(visible), farthestTouched);
        EXPECT_LE(touched.numberFarFrom(visible), touched.count() / 1000) << "of " << touched.count();
    }
    /// Even ground around a place of the world, in a system whose axes are degrees times a length.
    void standOnTheWorld(double east, double north, double cell) {
        constexpr unsigned cells = 33;
        layout = {cells, cells, east - 0.5 * (cells - 1) * cell, north - 0.5 * (cells - 1) * cell,
                  cell,  cell};
        grid = TestTerrain::grid(layout, [](unsigned, unsigned) { return 1.0; });
        ZMT::CORE::GeoTransformation::setNBXOrigin(grid->origin());
        terrain = new Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 400).get());
        const OGRSpatialReferenceH system = OSRNewSpatialReference(nullptr);
        EXPECT_EQ(OSRImportFromEPSG(system, s_worldSystem), OGRERR_NONE);
        char * text = nullptr;
        OSRExportToWkt(system, &text);
        wkt = text;
        VSIFree(text);
        OSRDestroySpatialReference(system);
    }
    /// Pixels whose darkness, of 255, is at least `faintest`. A line of one texel covers less than half of
    /// a pixel.
    static Mask drawnPixels(const SO<NBX::Image> & image, int faintest) {
        Mask mask(s_side);
        for (int y = 0; y < s_side; ++y)
            for (int x = 0; x < s_side; ++x)
                mask.at(x, y) = darkness(image, x, y) >= faintest;
        return mask;
    }
    /// Contours of the ground, 100 m apart, as GDAL finds them.
    std::shared_ptr<MemoryFeatures> contours() const {
        const int width = int(layout.cellsX), height = int(layout.cellsY);
        const GDALDatasetH raster =
            GDALCreate(GDALGetDriverByName("MEM"), "", width, height, 1, GDT_Float32, nullptr);
        double place[6] = {
            layout.minX - 0.5 * s_cell, s_cell, 0.0, layout.minY + (height - 0.5) * s_cell, 0.0, -s_cell};
        GDALSetGeoTransform(raster, place);
        std::vector<float> row(layout.cellsX);
        const GDALRasterBandH band = GDALGetRasterBand(raster, 1);
        for (int y = 0; y < height; ++y) {
            for (unsigned x = 0; x < layout.cellsX; ++x)
                row[x] = float(grid->vertex(x, unsigned(y)).y + grid->origin().y);
            EXPECT_EQ(GDALRasterIO(band, GF_Write, 0, height - 1 - y, width, 1, row.data(), width, 1,
                                   GDT_Float32, 0, 0),
                      CE_None);
        }
        const GDALDatasetH vectors =
            GDALCreate(GDALGetDriverByName("Memory"), "", 0, 0, 0, GDT_Unknown, nullptr);
        const OGRLayerH layer = GDALDatasetCreateLayer(vectors, "lines", nullptr, wkbLineString, nullptr);
        char interval[] = "LEVEL_INTERVAL=100", base[] = "LEVEL_BASE=50";
        char * options[] = {interval, base, nullptr};
        EXPECT_EQ(GDALContourGenerateEx(band, layer, options, nullptr, nullptr), CE_None);
        auto features = std::make_shared<MemoryFeatures>();
        while (const OGRFeatureH feature = OGR_L_GetNextFeature(layer)) {
            const OGRGeometryH geometry = OGR_F_GetGeometryRef(feature);
            MemoryFeatures::Feature::Line line;
            for (int i = 0; i < OGR_G_GetPointCount(geometry); ++i)
                line.emplace_back(OGR_G_GetX(geometry, i), 0.0, OGR_G_GetY(geometry, i));
            features->addLine(line);
            OGR_F_Destroy(feature);
        }
        GDALClose(vectors);
        GDALClose(raster);
        return features;
    }
    /// Of the cell at a place of the ground: by how much the sums of its opposite corners differ, and the
    /// steepest way between two of its corners.
    std::pair<double, double> bendAndSlope(const Point & local) const {
        const double left = grid->boundingBox().getLLF().x, low = grid->boundingBox().getLLF().z;
        const auto x = unsigned(std::clamp((local.x - left) / s_cell, 0.0, layout.cellsX - 2.0));
        const auto y = unsigned(std::clamp((local.z - low) / s_cell, 0.0, layout.cellsY - 2.0));
        const double a = grid->vertex(x, y).y, b = grid->vertex(x + 1, y).y;
        const double c = grid->vertex(x, y + 1).y, d = grid->vertex(x + 1, y + 1).y;
        const double east = std::max(std::abs(b - a), std::abs(d - c));
        const double north = std::max(std::abs(c - a), std::abs(d - b));
        return {std::abs(a + d - b - c), std::hypot(east, north) / s_cell};
    }

    static constexpr double s_cell = 30.0;
    static constexpr int s_worldSystem = 4087; ///< by EPSG
};

TEST_F(OverlayPlacesTest, LinesFromAboveAreThoseThatGDALRasterizes) {
    for (const std::string & path : {s_glaciers, s_contours})
        expectSameLines(path, 32645, 1.0);
}

/// Simplified outlines lose tips that reach into a pixel by a hundredth of it.
TEST_F(OverlayPlacesTest, CoastsAndBordersAreThoseThatGDALRasterizes) {
    standOnTheWorld(1.2e6, 4.6e6, 2e5);
    for (const double side : {6e6, 1.5e6}) {
        ground = side;
        for (const std::string & path : {s_coastline, s_countries})
            expectSameLines(path, s_worldSystem, 1.5);
    }
}

/// Texels are larger than pixels here, so that a pixel tells where its texel lies.
TEST_F(OverlayPlacesTest, LinesSeenFromTheSideArePickedWhereTheyAre) {
    constexpr double texel = 4.0, angle = 45.0;
    Settings::setTextureError(texel);
    const NBX::Bounds box = terrain->boundingBox();
    const Point eyes[] = {box.point(0.4, 3.0, -0.15), box.point(-0.2, 2.0, 0.7)};
    const SO<NBX::SceneThing> ground(new NBX::SceneThing);
    ground->append(terrain.get());
    const SO<NBX::Engine> tracer(new NBX::Engine);
    const auto nothing = std::make_shared<MemoryFeatures>();
    for (const Point & eye : eyes) {
        const SO<NBX::Camera> camera(new NBX::Camera(new NBX::LookAt(eye, box.point(0.5, 0.3, 0.5)),
                                                     new NBX::Perspective(angle, 50.0, 20000.0)));
        lay(nothing, "width=1");
        show(camera.get());
        const SO<NBX::Image> bare = settledPicture();
        for (const std::string & path : {s_glaciers, s_contours}) {
            const SourceLines source(path);
            lay(file(path), "color=black, width=1, fill=#00000000");
            show(camera.get());
            const SO<NBX::Image> image = settledPicture();
            unsigned picked = 0;
            for (int y = 0; y < s_side; ++y)
                for (int x = 0; x < s_side; ++x) {
                    // Some pixels of skylines are dark without any line.
                    if (darkness(image, x, y) - darkness(bare, x, y) < 128) continue;
                    const SO<NBX::RayTracingTechnique> ray(
                        new NBX::RayTracingTechnique(camera->rayThrough(x + 0.5, y + 0.5, s_side, s_side)));
                    ray->trace(tracer.get(), ground.get());
                    if (!ray->hasHit()) continue;
                    ++picked;
                    const Point place = ray->nearestHit().point;
                    const double pixel =
                        (place - eye).length() * 2.0 * std::tan(angle / 2.0 * 0.017453292519943295) / s_side;
                    const Point geo = place + grid->origin();
                    EXPECT_LE(source.distance(geo.x, geo.z), texel * pixel) << x << ", " << y;
                }
            EXPECT_GT(picked, 100U);
        }
    }
}

/// The picture divides a cell by a diagonal, GDAL draws a straight line through it.
TEST_F(OverlayPlacesTest, ContoursLieOnTheirHeight) {
    ground = 1000.0;
    const double pixel = ground / s_side;
    const auto lines = contours();
    ASSERT_GT(lines->size(), 5U);
    lay(lines, "color=black, width=1");
    show(fromAbove().get());
    const SO<NBX::Image> image = settledPicture();
    const Point middle = grid->boundingBox().center();
    unsigned seen = 0;
    for (int y = 0; y < s_side; ++y)
        for (int x = 0; x < s_side; ++x) {
            if (darkness(image, x, y) < 32) continue;
            const Point place(middle.x + (x + 0.5) * pixel - ground / 2.0, 0.0,
                              middle.z + (y + 0.5) * pixel - ground / 2.0);
            const double height = terrain->calculateHeight(place + grid->origin(), false);
            const double away = std::abs(std::remainder(height - 50.0, 100.0));
            const auto [bend, slope] = bendAndSlope(place);
            ++seen;
            EXPECT_LE(away, bend / 2.0 + slope * pixel) << x << ", " << y;
        }
    EXPECT_GT(seen, 500U);
}

} // namespace
