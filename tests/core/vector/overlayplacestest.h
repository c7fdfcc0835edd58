#pragma once

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gdal.h>
#include <gdal_alg.h>
#include <ogr_api.h>
#include <ogr_srs_api.h>

#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/tree/creategeometrytree.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/decalterraintexturingeffect.h>
#include <zmt/core/vector/vectoroverlaytexture.h>
#include <zmt/raster/gdal/rasterfile.h>
#include <zmt/raster/gdal/vector/featurefile.h>

#include "support/testterrain.h"

#include "../terrain/texture/vector/vectortexturetest.h"

/// Lines of a file in the system with a number, as GDAL has them: outlines of areas as well.
class SourceLines {
public:
    explicit SourceLines(const std::string & path, int epsg = 32645) {
        GDALAllRegister();
        const GDALDatasetH file = GDALOpenEx(path.c_str(), GDAL_OF_VECTOR, nullptr, nullptr, nullptr);
        EXPECT_TRUE(file) << path;
        const OGRLayerH layer = GDALDatasetGetLayer(file, 0);
        const OGRSpatialReferenceH from = OSRClone(OGR_L_GetSpatialRef(layer));
        const OGRSpatialReferenceH to = OSRNewSpatialReference(nullptr);
        OSRImportFromEPSG(to, epsg);
        OSRSetAxisMappingStrategy(from, OAMS_TRADITIONAL_GIS_ORDER);
        OSRSetAxisMappingStrategy(to, OAMS_TRADITIONAL_GIS_ORDER);
        const OGRCoordinateTransformationH way = OCTNewCoordinateTransformation(from, to);
        while (const OGRFeatureH feature = OGR_L_GetNextFeature(layer)) {
            take(OGR_F_GetGeometryRef(feature), way);
            OGR_F_Destroy(feature);
        }
        OCTDestroyCoordinateTransformation(way);
        OSRDestroySpatialReference(to);
        OSRDestroySpatialReference(from);
        GDALClose(file);
    }
    ~SourceLines() {
        for (const OGRGeometryH line : lines_)
            OGR_G_DestroyGeometry(line);
    }
    SourceLines(const SourceLines &) = delete;
    SourceLines & operator=(const SourceLines &) = delete;

    const std::vector<OGRGeometryH> & lines() const { return lines_; }
    /// In metres.
    double distance(double east, double north) const {
        double least = 1e18; // squared
        for (const OGRGeometryH line : lines_) {
            const int count = OGR_G_GetPointCount(line);
            for (int i = 1; i < count; ++i) {
                const double ax = OGR_G_GetX(line, i - 1), ay = OGR_G_GetY(line, i - 1);
                const double bx = OGR_G_GetX(line, i) - ax, by = OGR_G_GetY(line, i) - ay;
                const double length2 = std::max(bx * bx + by * by, 1e-12);
                const double t = std::clamp(((east - ax) * bx + (north - ay) * by) / length2, 0.0, 1.0);
                const double dx = east - ax - t * bx, dy = north - ay - t * by;
                least = std::min(least, dx * dx + dy * dy);
            }
        }
        return std::sqrt(least);
    }

private:
    void take(OGRGeometryH geometry, OGRCoordinateTransformationH way) {
        const int parts = OGR_G_GetGeometryCount(geometry);
        for (int i = 0; i < parts; ++i)
            take(OGR_G_GetGeometryRef(geometry, i), way);
        if (parts > 0 || OGR_G_GetPointCount(geometry) < 2) return;
        const OGRGeometryH line = OGR_G_CreateGeometry(wkbLineString);
        for (int i = 0; i < OGR_G_GetPointCount(geometry); ++i)
            OGR_G_AddPoint_2D(line, OGR_G_GetX(geometry, i), OGR_G_GetY(geometry, i));
        EXPECT_EQ(OGR_G_Transform(line, way), OGRERR_NONE);
        lines_.push_back(line);
    }

    std::vector<OGRGeometryH> lines_;
};

/// A picture in which some pixels are set.
class Mask {
public:
    static constexpr int farthest = 8;

    explicit Mask(int side) : side_(side), set_(std::size_t(side) * side) {}
    int side() const { return side_; }
    char & at(int x, int y) { return set_[std::size_t(y) * side_ + x]; }
    bool isSet(int x, int y) const {
        return x >= 0 && y >= 0 && x < side_ && y < side_ && set_[std::size_t(y) * side_ + x] != 0;
    }
    unsigned count() const {
        return unsigned(std::count_if(set_.begin(), set_.end(), [](char c) { return c; }));
    }
    /// From the middle of a pixel to that of the nearest one that is set, at most `farthest`.
    double distance(int x, int y) const {
        double least = farthest;
        for (int j = -farthest; j <= farthest; ++j)
            for (int i = -farthest; i <= farthest; ++i)
                if (isSet(x + i, y + j)) least = std::min(least, std::hypot(i, j));
        return least;
    }
    /// How many pixels that are set here are more than a pixel from those of another picture; as below.
    unsigned numberFarFrom(const Mask & other) const {
        unsigned number = 0;
        for (int y = 3; y < side_ - 3; ++y)
            for (int x = 3; x < side_ - 3; ++x)
                number += isSet(x, y) && other.distance(x, y) > 1.0;
        return number;
    }
    /// The largest distance of a pixel that is set here to those of another picture; not at the border, where
    /// the nearest one may lie beyond it.
    double farthestFrom(const Mask & other) const {
        double largest = 0.0;
        for (int y = 3; y < side_ - 3; ++y)
            for (int x = 3; x < side_ - 3; ++x)
                if (isSet(x, y)) largest = std::max(largest, other.distance(x, y));
        return largest;
    }

private:
    int side_;
    std::vector<char> set_;
};

/// Overlays on 4.5 by 3.6 km of Mount Everest, in UTM zone 45, whose cells are 30 m wide.
class OverlayPlacesFixture : public VectorTextureFixture {
protected:
    using Terrain = ZMT::CORE::Terrain;
    using VectorOverlay = ZMT::CORE::VectorOverlay;
    using VectorOverlayTexture = ZMT::CORE::VectorOverlayTexture;
    using VectorStyleSheet = ZMT::CORE::VectorStyleSheet;
    using Settings = ZMT::CORE::TerrainPainterGLSettings;
    static constexpr int s_side = 256; ///< of the picture, in pixels

    void SetUp() override {
        VectorTextureFixture::SetUp();
        ZMT::CORE::TerrainPainterFrameManager::CallBeginFrameCallbacks({nullptr, false});
        ZMT::CORE::TerrainPainterFrameManager::CallEndFrameCallbacks({nullptr, false});
        reports.clear();
        resize(s_side);
        texture->setBufferSize(256);
        texture->setInternalFormat(s_rgba8);
        VectorTexture::setMaxTexturePatches(300);
        errorBefore_ = Settings::getTextureError();
        geometryErrorBefore_ = Settings::getGeometryError();
        Settings::setTextureError(0.5);
        Settings::setGeometryError(0.0);
        const ZMT::RASTER::RasterFile file(ZMT_DATA_DIR "/../tests/data/everest_30m_heights.tif");
        wkt = file.reference().wkt;
        const auto raster = file.read().raster;
        layout = file.grid();
        // Where the file has no heights the ground is even, so that everything shows.
        grid = TestTerrain::grid(layout, [&](unsigned x, unsigned y) {
            const double height = raster->value(x, y);
            return std::isnan(height) ? s_evenHeight : height;
        });
        ZMT::CORE::GeoTransformation::setNBXOrigin(grid->origin());
        terrain = new Terrain(grid.get(), ZMT::CORE::CreateGeometryTree::create(grid.get(), 400).get());
    }
    void TearDown() override {
        root->clear();
        overlaid = nullptr;
        terrain = nullptr;
        Settings::setTextureError(errorBefore_);
        Settings::setGeometryError(geometryErrorBefore_);
        ZMT::CORE::GeoTransformation::setNBXOrigin(originBefore_);
        VectorTextureFixture::TearDown();
    }

    /// A canvas of another size, with the same scene.
    void resize(int side) {
        VectorTexture::releaseSharedObjects();
        canvas->remove(root.get());
        canvas->releaseContext();
        canvas = SO<NBX::OffscreenCanvasGL>(new NBX::OffscreenCanvasGL(unsigned(side), unsigned(side)));
        engine = canvas->engine();
        ASSERT_TRUE(canvas->makeContextCurrent());
        canvas->append(root.get());
    }
    std::shared_ptr<const ZMT::RASTER::FeatureFile> file(const std::string & path) const {
        return std::make_shared<const ZMT::RASTER::FeatureFile>(path, "", wkt);
    }
    void lay(const std::shared_ptr<const ZMT::RASTER::FeatureSource> & source, const std::string & style) {
        overlaid = new VectorOverlayTexture(
            {SO<VectorOverlay>(new VectorOverlay(source, VectorStyleSheet::parse(style)))},
            ZMT::CORE::LocalFrame(grid->origin()), terrain->boundingBox());
    }
    void show(NBX::Camera * from) {
        root->clear();
        root->append(from);
        root->append(new ZMT::CORE::DecalTerrainTexturingEffect(new NBX::Array<SO<ZMT::CORE::TerrainTexture>>(
            std::vector<SO<ZMT::CORE::TerrainTexture>>{SO<ZMT::CORE::TerrainTexture>(overlaid.get())})));
        root->append(terrain.get());
    }
    /// All textures are there.
    SO<NBX::Image> settledPicture() {
        SO<NBX::Image> image;
        unsigned long before = 0;
        do {
            before = VectorTexture::renderCount();
            image = draw();
        } while (VectorTexture::renderCount() != before);
        return image;
    }
    /// Of `ground` metres from side to side.
    SO<NBX::Camera> fromAbove() const {
        const Point middle = grid->boundingBox().center();
        const double half = ground / 2.0;
        return new NBX::Camera(new NBX::LookAt(Point(middle.x, 500000.0, middle.z),
                                               Point(middle.x, 0.0, middle.z), Point(0.0, 0.0, 1.0)),
                               new NBX::Ortho(-half, half, -half, half, 1.0, 1000000.0),
                               NBX::Camera::S_Global);
    }
    double west() const { return grid->origin().x + grid->boundingBox().center().x - ground / 2.0; }
    double south() const { return grid->origin().z + grid->boundingBox().center().z - ground / 2.0; }
    static int darkness(const SO<NBX::Image> & image, int x, int y) { return 255 - pixel(image, x, y)[1]; }

    /// What GDAL sets of the ground seen from above.
    Mask rasterized(const SourceLines & source, bool allTouched) const {
        const GDALDatasetH image =
            GDALCreate(GDALGetDriverByName("MEM"), "", s_side, s_side, 1, GDT_Byte, nullptr);
        const double pixel = ground / s_side;
        double place[6] = {west(), pixel, 0.0, south() + ground, 0.0, -pixel};
        GDALSetGeoTransform(image, place);
        int band = 1;
        const std::vector<double> burned(source.lines().size(), 1.0);
        char touched[] = "ALL_TOUCHED=TRUE";
        char * options[] = {allTouched ? touched : nullptr, nullptr};
        EXPECT_EQ(GDALRasterizeGeometries(image, 1, &band, int(source.lines().size()), source.lines().data(),
                                          nullptr, nullptr, burned.data(), options, nullptr, nullptr),
                  CE_None);
        Mask mask(s_side);
        std::vector<char> row(s_side);
        for (int y = 0; y < s_side; ++y) {
            EXPECT_EQ(GDALRasterIO(GDALGetRasterBand(image, 1), GF_Read, 0, s_side - 1 - y, s_side, 1,
                                   row.data(), s_side, 1, GDT_Byte, 0, 0),
                      CE_None);
            for (int x = 0; x < s_side; ++x)
                mask.at(x, y) = row[std::size_t(x)];
        }
        GDALClose(image);
        return mask;
    }

    static constexpr double s_evenHeight = 5500.0;
    double ground = 3400.0; ///< that is seen from above, from side to side, in metres
    std::string wkt;
    ZMT::RASTER::RasterGrid layout;
    SO<ZMT::CORE::GridData> grid;
    SO<Terrain> terrain;
    SO<VectorOverlayTexture> overlaid;

private:
    const Point originBefore_ = ZMT::CORE::GeoTransformation::nbx2geoOffset();
    double errorBefore_ = 0.0, geometryErrorBefore_ = 0.0;
};
