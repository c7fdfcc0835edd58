#include <zmt/core/terrain/texture/createtexture.h>

#include <algorithm>

#include <nbx/gl/lightmodelgl.h>
#include <nbx/gl/pbuffercanvasgl.h>
#include <nbx/gl/shapematerialgl.h>
#include <nbx/image/image.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/box.h>
#include <nbx/scene/camera.h>
#include <nbx/scene/distantlight.h>
#include <nbx/scene/lookat.h>
#include <nbx/scene/ortho.h>
#include <nbx/scene/scenething.h>
#include <zmt/core/misc/tadjuster.h>
#include <zmt/core/misc/usedisplaylistgl.h>
#include <zmt/core/terrain/geometry/geotransformation.h>
#include <zmt/core/terrain/geometry/gridpatchnormalpaintergl.h>
#include <zmt/core/terrain/geometry/microtrianglesdatanormalpaintergl.h>
#include <zmt/core/terrain/geometry/terrain.h>
#include <zmt/core/terrain/geometry/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/terrainscaling.h>
#include <zmt/core/terrain/geometry/terrainwatcher.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;

constexpr unsigned s_maxCanvasSize = 1024;

/// While it lives, terrains are drawn at their finest level.
class FinestLevel {
public:
    FinestLevel()
        : geometryError_(TerrainPainterGLSettings::getGeometryError()),
          textureError_(TerrainPainterGLSettings::getTextureError()) {
        TerrainPainterGLSettings::setGeometryError(0.0);
        TerrainPainterGLSettings::setTextureError(0.0);
    }
    ~FinestLevel() {
        TerrainPainterGLSettings::setGeometryError(geometryError_);
        TerrainPainterGLSettings::setTextureError(textureError_);
    }
    FinestLevel(const FinestLevel &) = delete;
    FinestLevel & operator=(const FinestLevel &) = delete;

private:
    double geometryError_, textureError_;
};

/// A scene seen from straight above, north up. What `content` holds fills the whole picture.
struct BirdsEyeView {
    NBX::SO<NBX::SceneThing> scene{new NBX::SceneThing};
    NBX::SO<TAdjuster> content;

    BirdsEyeView() {
        const NBX::SO<NBX::Ortho> projection(new NBX::Ortho(-1.0, 1.0, -1.0, 1.0, 0.1, 100.0));
        const NBX::SO<NBX::LookAt> eye(new NBX::LookAt({0, 2, 0}, {0, 0, 0}, {0, 0, 1}));
        scene->append(
            new NBX::Camera(eye.get(), projection.get(), NBX::Camera::S_Global, NBX::Camera::SP_Fill));
        const NBX::SO<NBX::Box> volume(new NBX::Box({1, 1, 1}, {-1, -1, -1}));
        content = new TAdjuster(scene.get(), volume.get(), false, false);
    }
};

/// Puts the terrain behind what is in `content` so far.
void appendTerrain(TAdjuster & content, Terrain & terrain) {
    // Lists that other painters recorded must neither show here nor be replaced.
    content.append(new UseDisplayListGL(false));
    content.append(new TerrainWatcher);
    content.append(&terrain);
}

/// Draws the scene into the whole image, in pieces where it is larger than the canvas.
bool drawInto(NBX::Image & target, NBX::SceneThing & scene) {
    const unsigned width = unsigned(std::max(0, target.width()));
    const unsigned height = unsigned(std::max(0, target.height()));
    if (width == 0 || height == 0) return false;
    const FinestLevel finestLevel;
    const NBX::SO<NBX::PBufferCanvasGL> canvas(
        new NBX::PBufferCanvasGL(std::min(width, s_maxCanvasSize), std::min(height, s_maxCanvasSize)));
    canvas->append(&scene);
    const bool drawn = canvas->largeScaleSnapshot(&target, NBX::GLCanvas::COLOR_BUFFER);
    canvas->destroy();
    return drawn;
}

/// Drapes the picture over the ground that it shows.
NBX::SO<TerrainTexture> newTexture(const Terrain & terrain, NBX::Image & image) {
    const NBX::Bounds box = GeoTransformation::nbx2geoTf(terrain.boundingBox());
    const Point southWest = box.getLLF(), northEast = box.getURB();
    const NBX::SO<RASTER::TiledGeoImagePyramid> pyramid(new RASTER::MemoryTiledGeoImagePyramid(
        &image, NBX::Bounds({southWest.x, southWest.z, 0.0}, {northEast.x, northEast.z, 0.0}), false,
        NBX::Color::black));
    return new TiledLODTexture(pyramid.get());
}

NBX::SO<TerrainTexture> draw(Terrain & terrain, const NBX::SO<NBX::Image> & target, BirdsEyeView & view) {
    appendTerrain(*view.content, terrain);
    if (drawInto(*target, *view.scene)) return newTexture(terrain, *target);
    NBX_FAILURE(L"the terrain could not be drawn from above");
    return nullptr;
}

} // namespace

NBX::SO<TerrainTexture> CreateTexture::createShading(NBX::SO<Terrain> terrain,
                                                     NBX::SO<NBX::DistantLight> light,
                                                     NBX::SO<NBX::Image> target, const NBX::Color & ambient,
                                                     const Point & scale) {
    NBX_CHECK(terrain, L"no terrain");
    NBX_CHECK(target, L"no target image");
    NBX_CHECK(light, L"no light");
    if (!terrain || !target || !light) return nullptr;
    BirdsEyeView view;
    view.content->append(new NBX::ShapeMaterialGL(ambient, NBX::Color::black, 115.0,
                                                  NBX::ShapeMaterialGL::C_AmbientAndDiffuse, NBX::Color(0.2),
                                                  NBX::Color(0.5), NBX::Color(0.0), false, true));
    view.content->append(light.get());
    view.content->append(new TerrainScaling(scale));
    return draw(*terrain, target, view);
}

NBX::SO<TerrainTexture> CreateTexture::createNormal(NBX::SO<Terrain> terrain, NBX::SO<NBX::Image> target,
                                                    const Point & scale) {
    NBX_CHECK(terrain, L"no terrain");
    NBX_CHECK(target, L"no target image");
    if (!terrain || !target) return nullptr;
    BirdsEyeView view;
    view.content->append(new GridPatchNormalPainterGL(scale));
    view.content->append(new MicroTrianglesDataNormalPainterGL(scale));
    view.content->append(new NBX::LightModelGL(0));
    return draw(*terrain, target, view);
}

} // namespace ZMT::CORE
