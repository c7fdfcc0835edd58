#pragma once

#include <nbx/analysis/foundobject.h>
#include <nbx/container/sequence/iterator.h>
#include <nbx/scene/node/scenething.h>

namespace NBX {

/// Looks through scenes and rewrites them. What is disabled, or hangs in a node that is not rendered, counts
/// as not there; of a `LODNode` the first level counts. All walks are without recursion, and their time is
/// that of walking once over all places where objects stand. A null scene is reported under "scene" with
/// "no scene".
///
/// (1) `flattenScene`, `createOptimizedScene` and `splitScene` keep every polygon and line at its place, with
///     its attributes.
/// (2) Results follow the order in which the scene is drawn, and are the same in every process.
class SceneGraphAnalyzer {
public:
    /// Shapes that scenes can be reduced to.
    enum ShapeType { ST_PolygonSet = 0 };

    /// Turns every shape that is no polygon set into what its simplifier makes of it: polygon sets, in the
    /// place of the shape. What does not come to polygons, such as lines, is taken out, with one report of
    /// level 2 for each class. Another type is reported under "type == ST_PolygonSet", and nothing is done.
    static void forceShapeType(SceneThing * scene, int type);

    /// All places of objects of class `className` in the order of drawing, those of derived classes among
    /// them unless `exactClass`. Also attributes and nodes are found; members of composites too.
    static SO<Iterator<SO<FoundObject>>> findObjects(const ID & className, SceneThing * scene,
                                                     bool exactClass);

    /// Rewrites the scene to one level: nodes of one shape each, behind the attributes that are in force for
    /// it; a shape without attributes stands in the scene itself. Transformations are applied to the vertices
    /// and normals of polygon and line sets, in double precision; other shapes under a transformation are
    /// simplified to these, or where that is not possible stand behind it in their node. Windings stay as
    /// they are, also under mirrors. Texture coordinates that are generated from positions are not those of
    /// before.
    static void flattenScene(SceneThing * scene);

    /// A flat scene, as `flattenScene` makes it, whose polygon sets are joined where their attributes are
    /// equal in value and their vertices have the same attributes; images are compared by file name or
    /// object. With `bakeColors` the colour in force goes into the vertices of sets without colours of their
    /// own, so that sets that differ in that alone are joined; this is for scenes that are seen without
    /// light, and leaves sets with a material alone. With `joinAll` sets are joined wherever they stand, else
    /// only those that are drawn one after the other, which keeps the order of what is transparent. `scene`
    /// stays.
    static SO<SceneThing> createOptimizedScene(SceneThing * scene, bool bakeColors, bool joinAll);

    /// Divides a scene by what can be seen through: to `transparent` go the shapes whose texture, colour or
    /// material has somewhere an alpha below `alpha`, and those triangles of which a vertex has; all others
    /// go to `opaque`. Both are new flat scenes, which may be empty. `scene` stays. Images that have an alpha
    /// layer are looked through once each; those in files are let go again.
    static void splitScene(SceneThing * scene, double alpha, SO<SceneThing> & opaque,
                           SO<SceneThing> & transparent);
};

} // namespace NBX
