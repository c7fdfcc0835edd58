#include <nbx/scene/node/scenething.h>

#include <algorithm>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
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
    return dynamic_cast<const SceneNode *>(object) && reaches(object, this);
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
    return traverse(visit, Matrix4x4Base<double>());
}

bool SceneThing::traverse(const Visit & visit, Matrix4x4Base<double> matrix) const {
    for (const SO<RenderObj> & object : objects_) {
        if (!visit(object.get(), matrix)) return false;
        if (const auto * tf = dynamic_cast<const Tf *>(object.get()); tf && tf->isEnabled())
            matrix = matrix * tf->getMatrix();
        if (const auto * thing = dynamic_cast<const SceneThing *>(object.get()))
            if (!thing->traverse(visit, matrix)) return false;
    }
    return true;
}

Bounds SceneThing::boundingBox(Engine * engine) {
    Bounds box;
    Matrix4x4Base<double> matrix;
    for (const SO<RenderObj> & object : objects_) {
        if (!object->isEnabled()) continue;
        if (const auto * shape = dynamic_cast<const Shape *>(object.get())) {
            box += shape->boundingBox().transform(matrix);
        } else if (auto * node = dynamic_cast<SceneNode *>(object.get())) {
            if (node->getNodeState() & NS_Bounds) box += node->boundingBox(engine).transform(matrix);
        } else if (const auto * tf = dynamic_cast<const Tf *>(object.get())) {
            matrix = matrix * tf->getMatrix();
        }
    }
    return box;
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
    clear();
    for (const SO<RenderObj> & object : stored)
        append(object.get());
}

} // namespace NBX
