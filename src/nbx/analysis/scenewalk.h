#pragma once

#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

#include <nbx/analysis/attributecontext.h>
#include <nbx/engine/engine.h>
#include <nbx/scene/node/scenething.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

/// A walk over a scene in the order of drawing, which knows the attributes in force at each place. It uses a
/// list of levels in place of recursion. The scene must not change meanwhile.
class SceneWalk {
public:
    /// An object, with the node that holds it and its number there; composites hold members without a node.
    struct Place {
        SO<RenderObj> object;
        const SceneThing * node;
        unsigned number;
    };
    /// False leaves out what the object holds.
    using Visit = std::function<bool(const Place &)>;

    SceneWalk();
    ~SceneWalk();
    SceneWalk(const SceneWalk &) = delete;
    SceneWalk & operator=(const SceneWalk &) = delete;

    /// Visits every enabled object below `scene`; attributes before they are in force.
    void run(const SceneThing & scene, const Visit & visit);

    /// Whether a shape is walked into for its members.
    static bool holdsObjects(const Shape & shape);
    /// What holds at the present place.
    Engine & engine() { return *engine_; }
    const Matrix4x4Base<double> & matrix() const { return engine_->modelMatrix(); }
    const SO<const AttributeContext> & context();

private:
    /// A node or composite whose objects are walked over.
    struct Level {
        SO<RenderObj> holder;
        const SceneThing * node; ///< null for a composite
        unsigned next;
        std::size_t pushed, others; ///< sizes of the lists before this level
        bool gathersEffects;        ///< pass effects that come now join those before
    };
    struct Pushed {
        SO<RenderObj> object;
        bool isCurrentMono; ///< stands in `monos_`
    };
    struct Other {
        SO<RenderObj> object;
        std::size_t effectLevel; ///< number of the level whose pass effect it is; 0 for other objects
    };
    using NumberedMono = std::pair<std::uint64_t, SO<MonoAttribute>>;

    bool nextPlace(Place & place);
    void enter(const SO<RenderObj> & holder);
    void leave();
    void take(const SO<RenderObj> & object);
    void push(Attribute * attribute);
    void pushLeaf(Attribute * attribute);
    void pushMono(MonoAttribute * attribute);
    void pushEffect(Attribute * effect);

    SO<Engine> engine_;
    std::vector<Level> levels_;
    std::vector<Pushed> pushed_; ///< on the engine
    std::unordered_map<ID, std::vector<NumberedMono>> monos_;
    std::vector<Other> others_;
    std::uint64_t monoNumber_ = 0;
    SO<const AttributeContext> context_; ///< null since something was pushed or popped
};

} // namespace NBX
