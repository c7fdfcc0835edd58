// Changes of the list keep what they take out alive until the list is whole again, as a destructor may look
// at it. The walks over nodes below nodes use lists of levels in place of recursion: scenes may be of any
// depth. A transformation holds for the objects behind it in its node.

#include <nbx/scene/node/scenething.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/scene/node/lodnode.h>
#include <nbx/scene/shape/shape.h>
#include <nbx/scene/view/tf.h>

#include "nbx/scene/base/reaches.h"
#include "nbx/scene/base/serializeobjects.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(SceneThing, SceneNode)

SceneThing::SceneThing(SceneThing * parent) {
    if (parent) parent->append(this);
}

bool SceneThing::closesCycle(const RenderObj * object) const {
    return reaches<SceneNode>(object, this);
}

bool SceneThing::accepts(const RenderObj * object) const {
    NBX_CHECK(object, L"no object");
    if (!object) return false;
    const bool cycle = closesCycle(object);
    if (cycle) NBX_REPORT(0, L"!closesCycle(object)", L"node would contain itself");
    return !cycle;
}

void SceneThing::append(RenderObj * object) {
    if (!accepts(object)) return;
    objects_.emplace_back(object);
    modified();
}

void SceneThing::prepend(RenderObj * object) {
    insert(0, object);
}

void SceneThing::insert(unsigned i, RenderObj * object) {
    NBX_CHECK(i <= objects(), L"i out of range");
    if (!accepts(object)) return;
    objects_.emplace(objects_.begin() + std::min(i, objects()), object);
    modified();
}

bool SceneThing::remove(const RenderObj * object) {
    const int i = find(object);
    if (i < 0) return false;
    const SO<RenderObj> held = objects_[static_cast<unsigned>(i)];
    objects_.erase(objects_.begin() + i);
    modified();
    return true;
}

bool SceneThing::replace(const RenderObj * object, RenderObj * replacement) {
    const int i = find(object);
    if (i < 0 || !accepts(replacement)) return false;
    SO<RenderObj> held(replacement);
    objects_[static_cast<unsigned>(i)].swap(held);
    modified();
    return true;
}

void SceneThing::rewrite(const Rewriting & replacement) {
    std::vector<SO<RenderObj>> written;
    for (const SO<RenderObj> & object : objects_) {
        SO<RenderObj> other = replacement(object.get());
        if (other && (other == object || accepts(other.get()))) written.push_back(std::move(other));
    }
    if (written == objects_) return;
    written.swap(objects_);
    modified();
}

void SceneThing::clear() {
    if (objects_.empty()) return;
    std::vector<SO<RenderObj>> held;
    held.swap(objects_);
    modified();
}

int SceneThing::find(const RenderObj * object) const {
    const auto found = std::find(objects_.begin(), objects_.end(), object);
    return found == objects_.end() ? -1 : static_cast<int>(found - objects_.begin());
}

RenderObj * SceneThing::object(unsigned i) const {
    NBX_CHECK(i < objects(), L"i out of range");
    return i < objects() ? objects_[i].get() : nullptr;
}

SceneNode * SceneThing::childNode(unsigned i) const {
    unsigned passed = 0;
    for (const SO<RenderObj> & object : objects_)
        if (auto * node = dynamic_cast<SceneNode *>(object.get()); node && passed++ == i) return node;
    NBX_CHECK(i < passed, L"i out of range");
    return nullptr;
}

unsigned SceneThing::childNodes() const {
    return static_cast<unsigned>(
        std::count_if(objects_.begin(), objects_.end(), [](const SO<RenderObj> & object) {
            return dynamic_cast<SceneNode *>(object.get()) != nullptr;
        }));
}

bool SceneThing::traverse(const Visit & visit) const {
    struct Level {
        const SceneThing * thing;
        std::size_t next;
        Matrix4x4Base<double> matrix;
    };
    std::vector<Level> levels{{this, 0, {}}};
    while (!levels.empty()) {
        Level & level = levels.back();
        if (level.next == level.thing->objects_.size()) {
            levels.pop_back();
            continue;
        }
        RenderObj * object = level.thing->objects_[level.next++].get();
        if (!visit(object, level.matrix)) return false;
        if (const auto * tf = dynamic_cast<const Tf *>(object); tf && tf->isEnabled())
            level.matrix = level.matrix * tf->getMatrix();
        else if (const auto * thing = dynamic_cast<const SceneThing *>(object))
            levels.push_back({thing, 0, Matrix4x4Base<double>(level.matrix)});
    }
    return true;
}

struct SceneThing::BoxLevel {
    const SceneThing * thing;
    std::size_t next = 0;
    Matrix4x4Base<double> matrix;
    Bounds box;

    void add(const Bounds & part) { box += part.transform(matrix); }
};

/// The node whose objects are to be looked at for the box of `level`, null when `object` was dealt with.
const SceneThing * SceneThing::addToBox(BoxLevel & level, RenderObj * object, Engine * engine) {
    if (const auto * shape = dynamic_cast<const Shape *>(object)) {
        level.add(shape->boundingBox());
    } else if (auto * node = dynamic_cast<SceneNode *>(object)) {
        if (!(node->getNodeState() & NS_Bounds)) return nullptr;
        if (const auto * lod = dynamic_cast<const LODNode *>(node)) return lod->levels();
        // Other nodes may have boxes of their own.
        if (node->classInfoNBX() == ClassInfoNBX()) return static_cast<const SceneThing *>(node);
        level.add(node->boundingBox(engine));
    } else if (const auto * tf = dynamic_cast<const Tf *>(object)) {
        level.matrix = level.matrix * tf->getMatrix();
    }
    return nullptr;
}

Bounds SceneThing::boundingBox(Engine * engine) {
    std::vector<BoxLevel> levels{{this, 0, {}, {}}};
    for (;;) {
        BoxLevel & level = levels.back();
        if (level.next == level.thing->objects_.size()) {
            const Bounds box = level.box;
            levels.pop_back();
            if (levels.empty()) return box;
            levels.back().add(box);
            continue;
        }
        RenderObj * object = level.thing->objects_[level.next++].get();
        if (!object->isEnabled()) continue;
        if (const SceneThing * below = addToBox(level, object, engine)) levels.push_back({below, 0, {}, {}});
    }
}

void SceneThing::acceptChildren(std::vector<Visitable *> & children) const {
    SceneNode::acceptChildren(children);
    for (const SO<RenderObj> & object : objects_)
        children.push_back(object.get());
}

void SceneThing::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<SceneNode>(m, this);
    std::vector<SO<RenderObj>> stored = objects_;
    serializeObjects(m, "objects", stored);
    if (!m.isReading()) return;
    leaveOutCircles<SceneNode>(m, stored);
    objects_.swap(stored);
    modified();
}

} // namespace NBX
