// Two levels of detail, one inside the other. The first walk goes down until no texturing effect wants finer
// textures: there the effects give their textures to a patch, and the second walk collects below it the
// patches whose error is small enough on the screen. So one texture serves many small patches. Draped
// triangles are drawn with the textures of the first walk's patches.

#include <zmt/core/terrain/geometry/view/terrainpaintergl.h>

#include <cmath>
#include <numbers>

#include <GL/gl.h>

#include <nbx/engine/engine.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/scene/attribute/attributecomposite.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/composite.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>
#include <zmt/core/terrain/geometry/view/terrain.h>

#include "core/terrain/frame/terraintexgen.h"
#include "core/terrain/geometry/base/frontfacegl.h"
#include "originwatch.h"
#include "terrainpaintinggl.h"

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;

// The attributes of all terrains, made when the library loads and never changed.

const NBX::SO<NBX::ContextData<bool>>
    outerWallFlag(new NBX::ContextData<bool>(GeometryPatchPainterGL::outerWallFlag(), true));

const NBX::SO<NBX::ShapeMaterialGL>
    outerWallMaterial(new NBX::ShapeMaterialGL(NBX::Color(0.5), NBX::Color(0.5), 115.0, 3, NBX::Color(0.2),
                                               NBX::Color(0.5), NBX::Color(0.0), false, true));

const NBX::SO<NBX::DepthBufferGL> outerWallDepth(new NBX::DepthBufferGL(NBX::DepthBufferGL::O_All, true, true,
                                                                        GL_LESS, 0.0, 1.0));

const NBX::SO<NBX::LightModelGL> outerWallLight(new NBX::LightModelGL(0));

NBX::SO<NBX::AttributeComposite> outerWallAttributes() {
    NBX::SO<NBX::AttributeComposite> attributes(new NBX::AttributeComposite);
    attributes->append(outerWallFlag.get());
    attributes->append(outerWallMaterial.get());
    attributes->append(outerWallDepth.get());
    attributes->append(outerWallLight.get());
    return attributes;
}

/// The walk over one terrain in one frame.
class Traversal {
public:
    Traversal(TerrainPaintingGL & painting, double geometryError)
        : painting_(painting), viewInfo_(*painting.viewInfo()),
          geometryError2_(geometryError * geometryError),
          renderingEnabled_(TerrainPainterGLSettings::renderingEnabled()) {}

    void paintTerrain(const Terrain & terrain) {
        // Turns the order of children so that the nearest comes first.
        const Point & d = viewInfo_.direction();
        const int rotation = static_cast<int>(std::atan2(-d.x, -d.z) * 2.0 / std::numbers::pi + 2.0);

        const NBX::AttributeScope texGen(painting_.engine(), terrainTexGen().get());
        painting_.paintFrame([&] {
            if (const NBX::SO<GeometryPatch> root = terrain.root())
                traverse(*root, 0, static_cast<unsigned>(rotation));
        });
    }

private:
    /// The texture level. `cullState` is 1 once a box was found entirely inside the view.
    void traverse(const GeometryPatch & patch, int cullState, unsigned rotation) {
        NBX::Bounds box = patch.boundingBox();
        // Draped triangles may rise above the terrain.
        const NBX::Bounds & texturedBox = painting_.texturedBox();
        if (box.intersects(texturedBox)) box += Point(box.getURB().x, texturedBox.getURB().y, box.getURB().z);
        if (cullState != 1) cullState = viewInfo_.cull(box);
        if (cullState == -1) return;

        const Point eye = box.nearestPoint(painting_.nearPoint());
        NBX::SO<NBX::Shape> shape;
        if (patch.children() == 0) {
            shape = const_cast<GeometryPatch *>(&patch);
            TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() += patch.boundingBox();
        } else {
            if (painting_.wantsDetail(patch, eye)) {
                const unsigned n = patch.children();
                for (unsigned i = 0; i < n; ++i)
                    if (const auto child = patch.child((rotation + i) % n))
                        traverse(*child, cullState, rotation);
                return;
            }
            NBX::SO<NBX::Composite> composite(new NBX::Composite);
            selectGeometry(*composite, &patch, cullState, rotation);
            shape = composite;
        }
        paint(patch, *shape, box, eye);
    }

    void paint(const GeometryPatch & patch, NBX::Shape & shape, const NBX::Bounds & box, const Point & eye) {
        if (renderingEnabled_) {
            const NBX::AttributeScope walls(painting_.engine(), wallAttributes_.get());
            painting_.engine()->paint(&shape);
        }

        NBX::SO<NBX::SceneThing> thing(new NBX::SceneThing);
        painting_.appendEffects(*thing, patch, 1.0, eye);
        if (renderingEnabled_) thing->append(&shape);
        painting_.appendTexturedGeometries(*thing, box);
        thing->evaluate(painting_.engine());
    }

    /// The geometry level.
    void selectGeometry(NBX::Composite & composite, const GeometryPatch * geometry, int cullState,
                        unsigned rotation) const {
        NBX_CHECK(geometry, L"no geometry");
        if (!geometry) return;
        const NBX::Bounds box = geometry->boundingBox();
        if (cullState != 1) cullState = viewInfo_.cull(box);
        if (cullState == -1) return;

        const unsigned n = geometry->children();
        if (n > 0 && showsError(*geometry, box.nearestPoint(painting_.nearPoint()))) {
            for (unsigned i = 0; i < n; ++i)
                selectGeometry(composite, geometry->child((rotation + i) % n).get(), cullState, rotation);
            return;
        }
        composite.append(const_cast<GeometryPatch *>(geometry));
        TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() += box;
    }

    /// Sets the error up as a vertical segment at the nearest point of the patch.
    bool showsError(const GeometryPatch & patch, const Point & eye) const {
        const Point half(0.0, patch.approximationError() / 2.0, 0.0);
        return geometryError2_ <= viewInfo_.screenDistance2(eye - half, eye + half);
    }

    TerrainPaintingGL & painting_;
    const NBX::ViewInfo & viewInfo_;
    double geometryError2_;
    bool renderingEnabled_;
    NBX::SO<NBX::AttributeComposite> wallAttributes_ = outerWallAttributes();
};

} // namespace

NBX_CLASS_IMPL(TerrainPainterGL, NBX::ShapePainter)

NBX::ID TerrainPainterGL::target() const {
    return Terrain::ClassNameNBX();
}

bool TerrainPainterGL::render(NBX::Engine * engine, const NBX::Shape * shape) {
    static const NBX::SO<NBX::ContextData<bool>> activeTerrain(
        new NBX::ContextData<bool>("ActiveTerrainAttribute", true));
    const auto * terrain = dynamic_cast<const Terrain *>(shape);
    if (!terrain) return false;

    {
        const FrontFaceGL clockwise(GL_CW, GL_CCW);
        const NBX::AttributeScope scope(engine, activeTerrain.get());
        TerrainPaintingGL painting(engine);
        if (!painting.isIdle()) {
            Traversal(painting, TerrainPainterGLSettings::getGeometryError()).paintTerrain(*terrain);
            painting.postForRedisplay();
        }
    }
    if (TerrainPainterGLSettings::renderingEnabled()) OriginWatch::check(*terrain);
    return true;
}

namespace {

[[maybe_unused]] const bool hasTexGen = (terrainTexGen(), true);

} // namespace

NBX_REGISTER_HANDLER_GL(TerrainPainterGL)

} // namespace ZMT::CORE
