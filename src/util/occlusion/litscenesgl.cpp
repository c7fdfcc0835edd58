// Casters and receivers become scenes that the engine draws with its painters. Textures and materials have no
// part in it, so that they are left out. Terrains are drawn at their finest level while the light is added
// up: by the painter of their patches, of which trees put many into one here, or else by their own.

#include "litscenesgl.h"

#include <algorithm>
#include <vector>

#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/gl/state/shapematerialgl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/image/image.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/lookat.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/translation.h>
#include <zmt/core/terrain/frame/localframe.h>
#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/core/terrain/geometry/regular/gridpatch.h>
#include <zmt/core/terrain/geometry/view/terrain.h>
#include <zmt/core/terrain/texture/terraintexturingeffect.h>

#include "acceptancecontrol.h"
#include "ambientocclusionshaders.h"
#include "finestpatches.h"
#include "lighttargetsgl.h"

namespace ZMT::UTIL {

namespace {

using NBX::SceneThing;
using NBX::SO;
using Settings = CORE::TerrainPainterGLSettings;
using Vector = NBX::Vector3Base<double>;

/// While it lives, terrains are drawn complete and at their finest level.
class FinestLevel {
public:
    FinestLevel()
        : geometryError_(Settings::getGeometryError()), snapshotMode_(Settings::snapshotModeEnabled()),
          queries_(Settings::occlusionQueriesEnabled()) {
        Settings::setGeometryError(0.0);
        Settings::enableSnapshotMode(true);
        Settings::enableOcclusionQueries(false);
    }
    ~FinestLevel() {
        Settings::setGeometryError(geometryError_);
        Settings::enableSnapshotMode(snapshotMode_);
        Settings::enableOcclusionQueries(queries_);
    }
    FinestLevel(const FinestLevel &) = delete;
    FinestLevel & operator=(const FinestLevel &) = delete;

private:
    double geometryError_;
    bool snapshotMode_, queries_;
};

/// While it lives, nothing that was drawn gives way in graphics memory: all of it is drawn again for the next
/// direction.
class OneFrame {
public:
    OneFrame() { NBX::GraphicsMemoryManager::instance()->beginFrame(); }
    ~OneFrame() { NBX::GraphicsMemoryManager::instance()->endFrame(); }
    OneFrame(const OneFrame &) = delete;
    OneFrame & operator=(const OneFrame &) = delete;
};

/// What would only cost time, or take the place of the shadow map.
std::vector<NBX::ID> leftOut() {
    return {NBX::TextureGL::ClassNameNBX(), NBX::ShapeMaterialGL::ClassNameNBX()};
}

/// A scene of what `append` puts into it, without textures and materials.
template <class Append> SO<SceneThing> newPlainScene(Append append) {
    SO<SceneThing> scene(new SceneThing);
    for (const NBX::ID & category : leftOut())
        scene->append(new AcceptanceControl(category, false));
    append(*scene);
    for (const NBX::ID & category : leftOut())
        scene->append(new AcceptanceControl(category, true));
    return scene;
}

/// The ground, as it is drawn for each direction.
class Ground {
public:
    explicit Ground(CORE::Terrain & terrain)
        : terrain_(terrain), frame_(terrain.origin()), patches_(FinestPatches::of(terrain.root())) {}

    /// What of it may lie above or below `part`, which is in scene coordinates.
    SO<SceneThing> newNode(const NBX::Bounds & part) const {
        // Patches are drawn in local coordinates.
        SO<SceneThing> node(new SceneThing);
        node->append(new NBX::Translation(frame_.originInScene()));
        if (patches_.empty()) node->append(&terrain_);
        for (const SO<CORE::GridPatch> & patch : patches_)
            if (liesOver(frame_.toScene(patch->boundingBox()), part)) node->append(patch.get());
        return node;
    }

private:
    static bool liesOver(const NBX::Bounds & a, const NBX::Bounds & b) {
        const Vector low = a.getLLF(), high = a.getURB(), otherLow = b.getLLF(), otherHigh = b.getURB();
        return low.x <= otherHigh.x && otherLow.x <= high.x && low.z <= otherHigh.z && otherLow.z <= high.z;
    }

    CORE::Terrain & terrain_;
    CORE::LocalFrame frame_;
    std::vector<SO<CORE::GridPatch>> patches_; ///< none where its own painter draws the terrain
};

} // namespace

LitSceneGL newLitSceneGL(const AOImpl::TerrainStep & step) {
    LitSceneGL scene;
    const Ground whole(*step.terrain);
    scene.casters = newPlainScene([&](SceneThing & thing) {
        thing.append(whole.newNode(step.terrain->boundingBox()).get());
        if (step.casters) thing.append(step.casters.get());
    });
    scene.receiver = newPlainScene([&](SceneThing & thing) { thing.append(whole.newNode(step.part).get()); });
    scene.program = AmbientOcclusionShaders::getTerrainTextureCreatorProgram();

    const NBX::Bounds ground = step.terrain->boundingBox();
    const Vector low = step.part.getLLF(), high = step.part.getURB(), center = step.part.center();
    // All heights of the terrain may show in the part.
    const double bottom = std::min(ground.getLLF().y, low.y), top = std::max(ground.getURB().y, high.y);
    const double margin = std::max(top - bottom, 1.0);
    const SO<NBX::LookAt> eye(
        new NBX::LookAt({center.x, top + margin, center.z}, {center.x, bottom, center.z}, {0.0, 0.0, 1.0}));
    const SO<NBX::Ortho> projection(new NBX::Ortho(low.x - center.x, high.x - center.x, low.z - center.z,
                                                   high.z - center.z, 0.5 * margin,
                                                   top - bottom + 2.0 * margin));
    scene.receiverView = eye->matrix();
    scene.receiverProjection = projection->matrix(1.0);
    scene.lit = ground.intersection(NBX::Bounds({low.x, bottom, low.z}, {high.x, top, high.z}));
    scene.casting = ground;
    if (step.casters) scene.casting += step.casters->boundingBox();
    return scene;
}

LitSceneGL newLitSceneGL(const AOImpl::MeshStep & step) {
    LitSceneGL scene;
    scene.casters = newPlainScene([&](SceneThing & thing) {
        if (step.casters) thing.append(step.casters.get());
    });
    scene.receiver = newPlainScene([&](SceneThing & thing) { thing.append(step.receiver.get()); });
    scene.border = scene.receiver;
    scene.program = AmbientOcclusionShaders::getAtlasCreatorProgram();
    scene.lit = scene.casting = step.receiver->boundingBox();
    if (step.casters) scene.casting += step.casters->boundingBox();
    return scene;
}

NBX::SO<NBX::Image> renderLightGL(LightTargetsGL & targets, const LitSceneGL & scene,
                                  const LightList & lights, int borderWidth, NBX::Progress * progress) {
    const FinestLevel finest;
    const OneFrame frame;
    if (scene.lit.isDefined() && !accumulateLightGL(targets, scene, lights, progress)) return nullptr;
    closeLightGL(targets, scene, borderWidth);
    return targets.read();
}

} // namespace ZMT::UTIL
