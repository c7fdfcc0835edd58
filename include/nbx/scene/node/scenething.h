#pragma once

#include <functional>
#include <vector>

#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>
#include <nbx/scene/node/scenenode.h>

namespace NBX {

/// The composite node: attributes, shapes and child nodes in one order. An attribute holds for what stands
/// behind it in this node, and for all below that, and so does a handler, which is asked before those that
/// are registered.
///
/// The operations that hand objects to an engine (`evaluate`, `install`, `deinstall`) live in the engine's
/// folder, so that the scene itself needs no engine.
class SceneThing : public SceneNode {
    NBX_STORED_CLASS(SceneThing, SceneNode)
public:
    /// Appends itself to `parent`, unless that is null.
    explicit SceneThing(SceneThing * parent = nullptr);

    /// A null object is reported under "object" with "no object" and left out. The same object may stand in
    /// a node more than once. A node must not come to stand below itself; that is reported under
    /// "!closesCycle(object)" with "node would contain itself", and left out.
    void append(RenderObj * object);
    void prepend(RenderObj * object);
    /// In front of object `i`; `i == objects()` appends. A number beyond is reported and appends.
    void insert(unsigned i, RenderObj * object);
    /// Removes the first occurrence; false when there is none.
    bool remove(const RenderObj * object);
    /// Puts `replacement` in the place of the first occurrence of `object`; false when there is none.
    bool replace(const RenderObj * object, RenderObj * replacement);
    /// Puts in the place of each object what `replacement` gives for it, and takes out those for which that
    /// is null. The time is that of one walk over the objects, and over what stands below the new ones.
    using Rewriting = std::function<SO<RenderObj>(RenderObj *)>;
    void rewrite(const Rewriting & replacement);
    void clear();

    bool contains(const RenderObj * object) const { return find(object) >= 0; }
    /// Number of the first occurrence, -1 without one.
    int find(const RenderObj * object) const;
    /// Null for a number out of range, which is reported.
    RenderObj * object(unsigned i) const;
    unsigned objects() const { return static_cast<unsigned>(objects_.size()); }
    /// The objects that are nodes, counted on their own; null for a number out of range, which is reported.
    SceneNode * childNode(unsigned i) const;
    unsigned childNodes() const;

    /// Pushes the attributes of this node on the engine, as if it were being evaluated, and pops them.
    void install(Engine * engine);
    void deinstall(Engine * engine);
    /// Attributes are pushed, shapes painted and child nodes evaluated in their order; at the end the
    /// attributes are popped in reverse. Pass effects that stand together are handed to the engine with the
    /// painting of what follows, up to the next pass effect.
    void evaluate(Engine * engine) override;
    /// Calls `visit` for each object of this node and, depth first, of the nodes below, in order, with the
    /// matrix from the object's frame to the one of this node's parent. False from `visit` ends the walk.
    /// Returns false when the walk was ended.
    using Visit = std::function<bool(RenderObj *, const Matrix4x4Base<double> &)>;
    bool traverse(const Visit & visit) const;

    /// The box of the enabled shapes and of the child nodes with `NS_Bounds`, under the node's
    /// transformations.
    Bounds boundingBox(Engine * engine) override;
    void acceptChildren(std::vector<Visitable *> & children) const override;
    /// Attribute "objects": the objects in order.
    void serialize(SerializationManager & m) override;

private:
    struct BoxLevel;
    static const SceneThing * addToBox(BoxLevel & level, RenderObj * object, Engine * engine);
    bool closesCycle(const RenderObj * object) const;
    bool accepts(const RenderObj * object) const;
    void evaluateObjects(Engine * engine, unsigned begin, unsigned end);
    unsigned endOfSegment(unsigned begin) const;

    std::vector<SO<RenderObj>> objects_;
};

} // namespace NBX
