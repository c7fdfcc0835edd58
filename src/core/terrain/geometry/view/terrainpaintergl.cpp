// Two levels of detail, one inside the other. The first walk goes down until no texturing effect wants finer
// textures: there the effects give their textures to a patch, and the second walk collects below it the
// patches whose error is small enough on the screen. So one texture serves many small patches. Draped
// triangles are drawn with the textures of the first walk's patches.

#include <zmt/core/terrain/geometry/view/terrainpaintergl.h>

#include <cmath>
#include <numbers>
#include <vector>

#include <GL/gl.h>

#include <nbx/engine/engine.h>
#include <nbx/engine/navigation.h>
#include <nbx/engine/pathnavigation.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/effect/texturingeffectgl.h>
#include <nbx/gl/offscreen/pbuffercanvasgl.h>
#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/gl/state/lightmodelgl.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/scene/attribute/attributecomposite.h>
#include <nbx/scene/attribute/contextdata.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/composite.h>
#include <nbx/scene/view/viewinfo.h>
#include <nbx/scene/view/viewport.h>
#include <zmt/core/terrain/frame/terrainpainterframemanager.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/base/geometrypatch.h>
#include <zmt/core/terrain/geometry/base/geometrypatchpaintergl.h>
#include <zmt/core/terrain/geometry/draped/terraintexturedgeometry.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

#include "core/terrain/frame/terraintexgen.h"
#include "originwatch.h"

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;

constexpr double s_redisplayDelay = 0.05;
constexpr int s_asynchronousMode = 1;

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

/// The canvas of this frame, unless its picture must be complete at once.
NBX::GLCanvas * refinableCanvas(const NBX::Engine & engine) {
    const auto * data =
        dynamic_cast<NBX::ContextData<NBX::Canvas *> *>(engine.getAttribute(NBX::Canvas::ClassNameNBX()));
    auto * canvas = data ? dynamic_cast<NBX::GLCanvas *>(data->getValue()) : nullptr;
    return dynamic_cast<NBX::PBufferCanvasGL *>(canvas) ? nullptr : canvas;
}

/// Whether the view is being navigated. A flight that is being recorded must not lose detail.
bool isInMotion(const NBX::Engine & engine) {
    if (NBX::soCast<NBX::PathNavigation>(NBX::Navigation::activeNavigation())) return false;
    const auto * flag = dynamic_cast<NBX::ContextData<bool> *>(engine.getAttribute("MotionFlag"));
    return flag && flag->getValue();
}

/// The painting of one terrain in one frame.
class Traversal {
public:
    Traversal(NBX::Engine * engine, const Terrain & terrain, bool renderingEnabled, double textureError,
              double geometryError)
        : engine_(engine), engineGL_(dynamic_cast<NBX::EngineGL *>(engine)),
          geometryError2_(geometryError * geometryError), textureError_(textureError),
          renderingEnabled_(renderingEnabled) {
        NBX::GLCanvas * canvas = refinableCanvas(*engine);
        inMotion_ = canvas && isInMotion(*engine);
        asynchronous_ = canvas && canvas->getRenderingMode() == s_asynchronousMode &&
                        !TerrainPainterGLSettings::snapshotModeEnabled();
        readView();
        readEffects();
        readTexturedGeometries();
        if (!renderingEnabled_ && texturedGeometries_.empty()) return;

        paintTerrain(terrain);
        if (canvas && (inMotion_ || incomplete_)) canvas->postForRedisplay(s_redisplayDelay);
    }

private:
    void readView() {
        const NBX::Area area = engine_->viewport()->getArea();
        viewportWidth_ = area.getWidth();
        viewportHeight_ = area.getHeight();
        viewInfo_ = engine_->viewInfo();
        nearPoint_ = viewInfo_->position() + viewInfo_->direction() * viewInfo_->nearDistance();
    }

    /// From the top of the stack downwards.
    void readEffects() {
        const auto * stack = engine_->monoTable(TerrainTexturingEffect::ClassNameNBX());
        for (unsigned i = stack ? stack->size() : 0; i > 0; --i)
            if (auto effect = NBX::soCast<TerrainTexturingEffect>(stack->get(i - 1)))
                effects_.push_back(effect);
    }

    void readTexturedGeometries() {
        const NBX::ID & name = TerrainTexturedGeometry::ClassNameNBX();
        for (unsigned i = 0; i < engine_->polyAttributeCount(name, NBX::Engine::PS_All); ++i) {
            auto * geometry =
                dynamic_cast<TerrainTexturedGeometry *>(engine_->polyAttribute(name, i, NBX::Engine::PS_All));
            if (!geometry) continue;
            texturedGeometries_.push_back(geometry);
            texturedBox_ += geometry->boundingBox();
        }
    }

    void paintTerrain(const Terrain & terrain) {
        // Turns the order of children so that the nearest comes first.
        const Point & d = viewInfo_->direction();
        const int rotation = static_cast<int>(std::atan2(-d.x, -d.z) * 2.0 / std::numbers::pi + 2.0);

        TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() = NBX::Bounds();
        const TerrainPainterFrameManager::Info info{engine_, inMotion_};
        const NBX::AttributeScope texGen(engine_, terrainTexGen().get());
        TerrainPainterFrameManager::CallBeginFrameCallbacks(info);
        if (const NBX::SO<GeometryPatch> root = terrain.root())
            traverse(*root, 0, static_cast<unsigned>(rotation));
        TerrainPainterFrameManager::CallEndFrameCallbacks(info);
    }

    /// The texture level. `cullState` is 1 once a box was found entirely inside the view.
    void traverse(const GeometryPatch & patch, int cullState, unsigned rotation) {
        NBX::Bounds box = patch.boundingBox();
        // Draped triangles may rise above the terrain.
        if (box.intersects(texturedBox_))
            box += Point(box.getURB().x, texturedBox_.getURB().y, box.getURB().z);
        if (cullState != 1) cullState = viewInfo_->cull(box);
        if (cullState == -1) return;

        const Point eye = box.nearestPoint(nearPoint_);
        NBX::SO<NBX::Shape> shape;
        if (patch.children() == 0) {
            shape = const_cast<GeometryPatch *>(&patch);
            TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches() += patch.boundingBox();
        } else {
            if (effectsRefine(patch, eye)) {
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

    bool effectsRefine(const GeometryPatch & patch, const Point & eye) const {
        for (const auto & effect : effects_) {
            if (effect->refine(&patch, viewInfo_.get(), viewportWidth_, viewportHeight_, eye, textureError_,
                               inMotion_))
                return true;
            if (ignoresPrevious(*effect, patch, eye)) return false;
        }
        return false;
    }

    bool ignoresPrevious(const TerrainTexturingEffect & effect, const GeometryPatch & patch,
                         const Point & eye) const {
        return effect.ignorePreviousEffects(&patch, viewInfo_.get(), viewportWidth_, viewportHeight_, eye,
                                            textureError_, inMotion_);
    }

    void paint(const GeometryPatch & patch, NBX::Shape & shape, const NBX::Bounds & box, const Point & eye) {
        if (renderingEnabled_) {
            const NBX::AttributeScope walls(engine_, wallAttributes_.get());
            engine_->paint(&shape);
        }

        NBX::SO<NBX::SceneThing> thing(new NBX::SceneThing);
        for (const auto & effect : effects_) {
            const auto attribute =
                effect->request(&patch, engineGL_, viewInfo_.get(), viewportWidth_, viewportHeight_, 1.0, eye,
                                textureError_, inMotion_, asynchronous_, incomplete_);
            if (attribute) thing->append(attribute.get());
            if (ignoresPrevious(*effect, patch, eye)) break;
        }
        if (renderingEnabled_) thing->append(&shape);
        for (const auto & geometry : texturedGeometries_)
            if (const auto part = geometry->geometry(box)) thing->append(part.get());
        thing->evaluate(engine_);
    }

    /// The geometry level.
    void selectGeometry(NBX::Composite & composite, const GeometryPatch * geometry, int cullState,
                        unsigned rotation) const {
        NBX_CHECK(geometry, L"no geometry");
        if (!geometry) return;
        const NBX::Bounds box = geometry->boundingBox();
        if (cullState != 1) cullState = viewInfo_->cull(box);
        if (cullState == -1) return;

        const unsigned n = geometry->children();
        if (n > 0 && showsError(*geometry, box.nearestPoint(nearPoint_))) {
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
        return geometryError2_ <= viewInfo_->screenDistance2(eye - half, eye + half);
    }

    NBX::Engine * engine_;
    NBX::EngineGL * engineGL_;
    double geometryError2_;
    double textureError_;
    bool renderingEnabled_;
    bool inMotion_ = false;
    bool asynchronous_ = false;
    bool incomplete_ = false;
    unsigned viewportWidth_ = 0, viewportHeight_ = 0;
    NBX::SO<const NBX::ViewInfo> viewInfo_;
    Point nearPoint_; ///< where the line of sight meets the near plane
    std::vector<NBX::SO<TerrainTexturingEffect>> effects_;
    std::vector<NBX::SO<TerrainTexturedGeometry>> texturedGeometries_;
    NBX::Bounds texturedBox_;
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

    glFrontFace(GL_CW);
    {
        const NBX::AttributeScope scope(engine, activeTerrain.get());
        Traversal(engine, *terrain, TerrainPainterGLSettings::renderingEnabled(),
                  TerrainPainterGLSettings::getTextureError(), TerrainPainterGLSettings::getGeometryError());
    }
    glFrontFace(GL_CCW);
    if (TerrainPainterGLSettings::renderingEnabled()) OriginWatch::check(*terrain);
    return true;
}

namespace {

[[maybe_unused]] const bool hasTexGen = (terrainTexGen(), true);

} // namespace

NBX_REGISTER_HANDLER_GL(TerrainPainterGL)

} // namespace ZMT::CORE
