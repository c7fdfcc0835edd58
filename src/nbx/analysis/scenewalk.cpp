// The same rules as those of evaluating a scene, without recursion: attributes and handlers hold for what
// follows in their node and for all below; a pass effect holds up to the next group of such effects in its
// node. An engine runs along, as its simplifiers say what attributes do to the matrix, and as simplifiers of
// shapes look at what is in force. The list of attributes is made only for places that ask for it.

#include "scenewalk.h"

#include <algorithm>

#include <nbx/engine/handler.h>
#include <nbx/scene/attribute/attributecomposite.h>
#include <nbx/scene/attribute/clipplane.h>
#include <nbx/scene/attribute/directionallight.h>
#include <nbx/scene/attribute/distantlight.h>
#include <nbx/scene/attribute/pointlight.h>
#include <nbx/scene/node/lodnode.h>
#include <nbx/scene/shape/composite.h>
#include <nbx/scene/view/tf.h>

namespace NBX {

namespace {

using Vector = Vector3Base<double>;
using Matrix = Matrix4x4Base<double>;

bool renders(const SceneNode & node) {
    return node.isEnabled() && (node.getNodeState() & SceneNode::NS_Renders) != 0;
}

/// What an attribute that stands in the frame of `matrix` is in the frame of the scene.
SO<RenderObj> placed(Attribute * attribute, const Matrix & matrix) {
    if (matrix == Matrix()) return attribute;
    if (const auto * light = dynamic_cast<const PointLight *>(attribute)) {
        const SO<PointLight> copy(new PointLight(*light));
        copy->setPosition(matrix * light->getPosition());
        return copy;
    }
    if (const auto * light = dynamic_cast<const DirectionalLight *>(attribute)) {
        const SO<DirectionalLight> copy(new DirectionalLight(*light));
        copy->setDirection(matrix.transformDirection(light->getDirection()));
        return copy;
    }
    if (const auto * light = dynamic_cast<const DistantLight *>(attribute)) {
        const SO<DistantLight> copy(new DistantLight(*light));
        copy->setDirection(matrix.transformDirection(light->getDirection()));
        return copy;
    }
    if (const auto * plane = dynamic_cast<const ClipPlane *>(attribute)) {
        const SO<ClipPlane> copy(new ClipPlane(*plane));
        const Matrix back = matrix.inverse();
        const Vector n = plane->getNormal();
        copy->setPlane(back.transposed().transformDirection(n),
                       n.dot(Vector(back(0, 3), back(1, 3), back(2, 3))) + plane->getDistance());
        return copy;
    }
    return attribute;
}

unsigned sizeOf(const RenderObj & holder) {
    if (const auto * thing = dynamic_cast<const SceneThing *>(&holder)) return thing->objects();
    if (const auto * lod = dynamic_cast<const LODNode *>(&holder)) return std::min(lod->lodNodes(), 1U);
    const auto * composite = dynamic_cast<const Composite *>(&holder);
    return composite ? composite->shapes() : 0;
}

RenderObj * objectOf(const RenderObj & holder, unsigned i) {
    if (const auto * thing = dynamic_cast<const SceneThing *>(&holder)) return thing->object(i);
    if (const auto * lod = dynamic_cast<const LODNode *>(&holder)) return lod->getLodNode(i);
    return dynamic_cast<const Composite &>(holder).shape(i);
}

/// The members of a composite attribute, and of those within it, in their order.
std::vector<Attribute *> leavesOf(Attribute * attribute) {
    std::vector<Attribute *> leaves, waiting{attribute};
    while (!waiting.empty()) {
        Attribute * next = waiting.back();
        waiting.pop_back();
        const auto * composite = dynamic_cast<const AttributeComposite *>(next);
        if (!composite) {
            leaves.push_back(next);
        } else if (composite->isEnabled()) {
            for (unsigned i = composite->attributes(); i-- > 0;)
                waiting.push_back(composite->attribute(i));
        }
    }
    return leaves;
}

} // namespace

SceneWalk::SceneWalk() : engine_(new Engine()) {}

SceneWalk::~SceneWalk() = default;

void SceneWalk::run(const SceneThing & scene, const Visit & visit) {
    if (!renders(scene)) return;
    enter(const_cast<SceneThing *>(&scene));
    Place place;
    while (nextPlace(place)) {
        if (!place.object->isEnabled() && !dynamic_cast<PolyAttribute *>(place.object.get())) continue;
        if (const auto * node = dynamic_cast<const SceneNode *>(place.object.get()); node && !renders(*node))
            continue;
        if (visit(place)) take(place.object);
    }
}

bool SceneWalk::holdsObjects(const Shape & shape) {
    return dynamic_cast<const Composite *>(&shape) != nullptr;
}

bool SceneWalk::nextPlace(Place & place) {
    while (!levels_.empty()) {
        Level & level = levels_.back();
        if (level.next < sizeOf(*level.holder)) {
            place = {objectOf(*level.holder, level.next), level.node, level.next};
            ++level.next;
            return true;
        }
        leave();
    }
    return false;
}

void SceneWalk::take(const SO<RenderObj> & object) {
    if (auto * attribute = dynamic_cast<Attribute *>(object.get())) {
        push(attribute);
    } else if (auto * handler = dynamic_cast<Handler *>(object.get())) {
        engine_->pushHandler(handler);
        pushed_.push_back({object, false});
        others_.push_back({object, 0});
        context_ = nullptr;
    } else {
        levels_.back().gathersEffects = false;
        enter(object);
    }
}

void SceneWalk::enter(const SO<RenderObj> & holder) {
    if (sizeOf(*holder) == 0) return;
    levels_.push_back(
        {holder, dynamic_cast<const SceneThing *>(holder.get()), 0, pushed_.size(), others_.size(), true});
}

void SceneWalk::leave() {
    const Level & level = levels_.back();
    if (pushed_.size() > level.pushed || others_.size() > level.others) context_ = nullptr;
    for (; pushed_.size() > level.pushed; pushed_.pop_back()) {
        const Pushed & last = pushed_.back();
        if (auto * handler = dynamic_cast<Handler *>(last.object.get())) {
            engine_->popHandler(handler);
            continue;
        }
        auto * attribute = dynamic_cast<Attribute *>(last.object.get());
        engine_->pop(attribute);
        if (last.isCurrentMono) monos_[attribute->category()].pop_back();
    }
    others_.erase(others_.begin() + std::ptrdiff_t(level.others), others_.end());
    levels_.pop_back();
}

void SceneWalk::push(Attribute * attribute) {
    for (Attribute * leaf : leavesOf(attribute))
        pushLeaf(leaf);
}

void SceneWalk::pushLeaf(Attribute * attribute) {
    if (attribute->isPassEffect()) {
        if (attribute->isEnabled()) pushEffect(attribute);
    } else if (auto * mono = dynamic_cast<MonoAttribute *>(attribute)) {
        if (mono->isEnabled()) pushMono(mono);
    } else {
        others_.push_back({placed(attribute, matrix()), 0});
        engine_->push(attribute);
        pushed_.push_back({SO<RenderObj>(attribute), false});
        context_ = nullptr;
    }
}

void SceneWalk::pushMono(MonoAttribute * attribute) {
    const Matrix before = matrix();
    engine_->push(attribute);
    const bool isTransformation = dynamic_cast<const Tf *>(attribute) || !(matrix() == before);
    pushed_.push_back({SO<RenderObj>(attribute), !isTransformation});
    if (isTransformation) return;
    monos_[attribute->category()].emplace_back(++monoNumber_, SO<MonoAttribute>(attribute));
    context_ = nullptr;
}

void SceneWalk::pushEffect(Attribute * effect) {
    Level & level = levels_.back();
    const std::size_t number = levels_.size();
    if (!level.gathersEffects)
        std::erase_if(others_, [number](const Other & other) { return other.effectLevel == number; });
    level.gathersEffects = true;
    others_.push_back({SO<RenderObj>(effect), number});
    context_ = nullptr;
}

const SO<const AttributeContext> & SceneWalk::context() {
    if (context_) return context_;
    std::vector<NumberedMono> current;
    for (const auto & [category, stack] : monos_)
        if (!stack.empty()) current.push_back(stack.back());
    std::sort(current.begin(), current.end(),
              [](const NumberedMono & a, const NumberedMono & b) { return a.first < b.first; });
    std::vector<SO<MonoAttribute>> monos;
    monos.reserve(current.size());
    for (const NumberedMono & mono : current)
        monos.push_back(mono.second);
    std::vector<SO<RenderObj>> others;
    others.reserve(others_.size());
    for (const Other & other : others_)
        others.push_back(other.object);
    return context_ = new AttributeContext(std::move(monos), std::move(others));
}

} // namespace NBX
