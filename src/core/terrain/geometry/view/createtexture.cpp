// A scene seen from straight above is set up, with the terrain at its finest level, drawn piece by piece into
// the image, and the image is draped over the ground. Shadings are lit by the given light; normals are drawn
// as colours, by painters that stand in the scene in front of the terrain.

#include <zmt/core/terrain/geometry/view/createtexture.h>

#include <algorithm>

#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/image/subimage.h>
#include <nbx/math/area.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <zmt/core/misc/tadjuster.h>
#include <zmt/core/misc/usedisplaylistgl.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/frame/terrainscaling.h>
#include <zmt/core/terrain/frame/terrainwatcher.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdatanormalpaintergl.h>
#include <zmt/core/terrain/geometry/regular/gridpatchnormalpaintergl.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/tiledlodtexture.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;

constexpr int s_maxCanvasSize = 1024;

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

/// A scene seen from straight above, north up. What `content` holds fills the square from -1 to 1.
struct BirdsEyeView {
    NBX::SO<NBX::SceneThing> scene{new NBX::SceneThing};
    NBX::SO<NBX::Camera> camera;
    NBX::SO<TAdjuster> content;

    BirdsEyeView() {
        const NBX::SO<NBX::LookAt> eye(new NBX::LookAt({0, 2, 0}, {0, 0, 0}, {0, 0, 1}));
        camera = new NBX::Camera(eye.get(), newProjection(-1.0, 1.0, -1.0, 1.0).get(), NBX::Camera::S_Global,
                                 NBX::Camera::SP_Fill);
        scene->append(camera.get());
        const NBX::SO<NBX::Box> volume(new NBX::Box({1, 1, 1}, {-1, -1, -1}));
        content = new TAdjuster(scene.get(), volume.get(), false, false);
    }
    static NBX::SO<NBX::Ortho> newProjection(double left, double right, double bottom, double top) {
        return new NBX::Ortho(left, right, bottom, top, 0.1, 100.0);
    }
    /// Directs the camera to the part `area` of the whole picture, which has the size of `picture`.
    void look(const NBX::Area & area, const NBX::Image & picture) {
        const auto x = [&](double column) { return 2.0 * column / picture.width() - 1.0; };
        const auto y = [&](double line) { return 2.0 * line / picture.height() - 1.0; };
        camera->setProjection(newProjection(x(area.getX()), x(double(area.getX()) + area.getWidth()),
                                            y(area.getY()), y(double(area.getY()) + area.getHeight()))
                                  .get());
    }
};

/// Puts the terrain behind what is in `content` so far.
void appendTerrain(TAdjuster & content, Terrain & terrain) {
    // Lists that other painters recorded must neither show here nor be replaced.
    content.append(new UseDisplayListGL(false));
    content.append(new TerrainWatcher);
    content.append(&terrain);
}

/// Draws the scene into the whole image, in pieces where it is larger than the canvas. Each piece has a view
/// of its own, so that the terrain leaves out what lies in the others.
bool drawInto(NBX::Image & target, BirdsEyeView & view) {
    const int width = target.width(), height = target.height();
    if (width <= 0 || height <= 0) return false;
    const FinestLevel finestLevel;
    const NBX::SO<NBX::PBufferCanvasGL> canvas(new NBX::PBufferCanvasGL(
        unsigned(std::min(width, s_maxCanvasSize)), unsigned(std::min(height, s_maxCanvasSize))));
    canvas->append(view.scene.get());
    bool drawn = true;
    for (int y = 0; drawn && y < height; y += s_maxCanvasSize)
        for (int x = 0; drawn && x < width; x += s_maxCanvasSize) {
            const NBX::Area area(x, y, unsigned(std::min(s_maxCanvasSize, width - x)),
                                 unsigned(std::min(s_maxCanvasSize, height - y)));
            view.look(area, target);
            const NBX::SO<NBX::SubImage> part(new NBX::SubImage(&target, area));
            drawn = canvas->largeScaleSnapshot(part.get(), NBX::GLCanvas::COLOR_BUFFER);
        }
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
    if (drawInto(*target, view)) return newTexture(terrain, *target);
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
