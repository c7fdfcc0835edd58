// Finding is the walk itself. Forcing shapes notes the replacements on the walk, and puts them in when it is
// done, as a scene must not change under a walk. Flattening, joining and splitting work on the list of flat
// shapes, which is the scene without its nodes.

#include <nbx/analysis/scenegraphanalyzer.h>

#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nbx/container/sequence/nonpersistentarray.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/shape/polygonset.h>
#include <nbx/scene/view/tf.h>

#include "flatscene.h"
#include "scenewalk.h"
#include "shapejoin.h"
#include "simpleshapes.h"
#include "transparency.h"

namespace NBX {

namespace {

using Matrix = Matrix4x4Base<double>;

bool hasScene(const SceneThing * scene) {
    NBX_CHECK(scene, L"no scene");
    return scene != nullptr;
}

/// Polygons that stand in for one shape.
class ShapeRewriting {
public:
    /// The polygon set, or a node with several, or with their attributes; null where there are none.
    SO<RenderObj> polygonsFor(SceneWalk & walk, Shape * shape) {
        const SO<SceneThing> node(new SceneThing());
        const std::vector<SimpleShape> parts = simpleShapes(walk.engine(), shape);
        for (const SimpleShape & part : parts) {
            if (dynamic_cast<const PolygonSet *>(part.shape.get()))
                appendPart(*node, part, walk.matrix());
            else
                leaveOut(*part.shape);
        }
        if (parts.empty()) leaveOut(*shape);
        if (node->objects() == 0) return nullptr;
        const bool isPlain = node->objects() == 1 && node->childNodes() == 0;
        return isPlain ? SO<RenderObj>(node->object(0)) : SO<RenderObj>(node);
    }

    void report() const {
        for (const auto & [info, count] : counts_)
            NBX_FAILURE(L"shapes of the class " << info->name().text()
                                                << L", which cannot be turned into polygons, are left out: "
                                                << count);
    }

private:
    static void appendPart(SceneThing & node, const SimpleShape & part, const Matrix & matrix) {
        const bool isInPlace = part.matrix == matrix;
        if (isInPlace && part.attributes.empty()) {
            node.append(part.shape.get());
            return;
        }
        const SO<SceneThing> below(new SceneThing(&node));
        for (const SO<MonoAttribute> & attribute : part.attributes)
            below->append(attribute.get());
        if (!isInPlace) below->append(new Tf(matrix.inverse() * part.matrix));
        below->append(part.shape.get());
    }

    /// Shapes without a box draw nothing, and are no loss.
    void leaveOut(const Shape & shape) {
        if (!shape.boundingBox().isDefined()) return;
        for (auto & [info, count] : counts_)
            if (info == shape.classInfoNBX()) {
                ++count;
                return;
            }
        counts_.emplace_back(shape.classInfoNBX(), 1);
    }

    std::vector<std::pair<const ClassInfo *, unsigned>> counts_; ///< by first meeting
};

using Replacements = std::unordered_map<SceneThing *, std::unordered_map<unsigned, SO<RenderObj>>>;

void replaceObjects(SceneThing & node, const std::unordered_map<unsigned, SO<RenderObj>> & replacements) {
    unsigned number = 0;
    node.rewrite([&](RenderObj * object) {
        const auto found = replacements.find(number++);
        return found == replacements.end() ? SO<RenderObj>(object) : found->second;
    });
}

} // namespace

void SceneGraphAnalyzer::forceShapeType(SceneThing * scene, int type) {
    if (!hasScene(scene)) return;
    NBX_CHECK(type == ST_PolygonSet, L"unknown type of shapes: " << type);
    if (type != ST_PolygonSet) return;
    ShapeRewriting rewriting;
    Replacements replacements;
    SceneWalk walk;
    walk.run(*scene, [&](const SceneWalk::Place & place) {
        auto * shape = dynamic_cast<Shape *>(place.object.get());
        if (!shape || dynamic_cast<const PolygonSet *>(shape)) return true;
        auto & ofNode = replacements[const_cast<SceneThing *>(place.node)];
        // A node that stands at several places is rewritten as it is met first.
        if (!ofNode.contains(place.number)) ofNode[place.number] = rewriting.polygonsFor(walk, shape);
        return false;
    });
    for (const auto & [node, ofNode] : replacements)
        replaceObjects(*node, ofNode);
    rewriting.report();
}

SO<Iterator<SO<FoundObject>>> SceneGraphAnalyzer::findObjects(const ID & className, SceneThing * scene,
                                                              bool exactClass) {
    const SO<NonPersistentArray<SO<FoundObject>>> result(new NonPersistentArray<SO<FoundObject>>());
    if (!hasScene(scene)) return result;
    SceneWalk walk;
    walk.run(*scene, [&](const SceneWalk::Place & place) {
        const ClassInfo * info = place.object->classInfoNBX();
        if (exactClass ? info->name() == className : info->isA(className))
            result->append(new FoundObject(place.object, walk.context(), walk.matrix()));
        return true;
    });
    return result;
}

void SceneGraphAnalyzer::flattenScene(SceneThing * scene) {
    if (!hasScene(scene)) return;
    const std::vector<FlatShape> shapes = flatShapes(*scene);
    scene->clear();
    for (const FlatShape & flat : shapes)
        appendFlat(*scene, flat);
}

SO<SceneThing> SceneGraphAnalyzer::createOptimizedScene(SceneThing * scene, bool bakeColors, bool joinAll) {
    const SO<SceneThing> result(new SceneThing());
    if (!hasScene(scene)) return result;
    for (const FlatShape & flat : joinedShapes(flatShapes(*scene), bakeColors, joinAll))
        appendFlat(*result, flat);
    return result;
}

void SceneGraphAnalyzer::splitScene(SceneThing * scene, double alpha, SO<SceneThing> & opaque,
                                    SO<SceneThing> & transparent) {
    // The scene may be one of those that are set.
    const SO<SceneThing> held(scene);
    opaque = new SceneThing();
    transparent = new SceneThing();
    if (!hasScene(scene)) return;
    Transparency transparency(alpha);
    for (const FlatShape & flat : flatShapes(*scene)) {
        const Transparency::Parts parts = transparency.divide(flat);
        if (parts.opaque) appendFlat(*opaque, {parts.opaque, flat.context, flat.matrix});
        if (parts.transparent) appendFlat(*transparent, {parts.transparent, flat.context, flat.matrix});
    }
}

} // namespace NBX
