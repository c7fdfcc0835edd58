// The part of SceneThing that speaks to an engine, kept out of the scene's own folder.

#include <nbx/scene/node/scenething.h>

#include <nbx/engine/engine.h>
#include <nbx/engine/handler.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute/attribute.h>
#include <nbx/scene/shape/shape.h>

namespace NBX {

namespace {

/// Whether the object changes how what follows is drawn. Pushing and popping do nothing with others.
bool push(Engine * engine, RenderObj * object) {
    if (auto * attribute = dynamic_cast<Attribute *>(object))
        engine->push(attribute);
    else if (auto * handler = dynamic_cast<Handler *>(object))
        engine->pushHandler(handler);
    else
        return false;
    return true;
}

void pop(Engine * engine, RenderObj * object) {
    if (auto * attribute = dynamic_cast<Attribute *>(object))
        engine->pop(attribute);
    else if (auto * handler = dynamic_cast<Handler *>(object))
        engine->popHandler(handler);
}

/// Attributes and handlers pushed in one block, popped in reverse at its end.
class PushedObjects {
public:
    explicit PushedObjects(Engine * engine) : engine_(engine) {}
    ~PushedObjects() {
        while (!objects_.empty()) {
            pop(engine_, objects_.back().get());
            objects_.pop_back();
        }
    }
    PushedObjects(const PushedObjects &) = delete;
    PushedObjects & operator=(const PushedObjects &) = delete;

    bool push(const SO<RenderObj> & object) {
        if (!NBX::push(engine_, object.get())) return false;
        objects_.push_back(object);
        return true;
    }

private:
    Engine * engine_;
    std::vector<SO<RenderObj>> objects_;
};

/// Null for other objects.
Attribute * passEffect(RenderObj * object) {
    auto * attribute = dynamic_cast<Attribute *>(object);
    return attribute && attribute->isPassEffect() ? attribute : nullptr;
}

bool isActivePassEffect(RenderObj * object) {
    const Attribute * effect = passEffect(object);
    return effect && effect->isEnabled();
}

/// `shape` is the object where it is one, else null.
void paintObject(Engine * engine, RenderObj * object, const Shape * shape) {
    if (shape)
        engine->paint(shape);
    else if (auto * node = dynamic_cast<SceneNode *>(object))
        node->evaluate(engine);
}

/// The pass effects gathered in front of what they are to be drawn on.
class GatheredEffects {
public:
    bool isEmpty() const { return effects_.empty(); }
    void add(Attribute * effect) {
        held_.emplace_back(effect);
        effects_.push_back(effect);
    }
    void clear() {
        held_.clear();
        effects_.clear();
    }
    const std::vector<Attribute *> & topFirst() const { return effects_; }

private:
    std::vector<SO<Attribute>> held_;
    std::vector<Attribute *> effects_;
};

} // namespace

void SceneThing::evaluate(Engine * engine) {
    NBX_CHECK(engine, L"no engine");
    if (!engine || !renders()) return;
    const SO<SceneThing> held(this);
    evaluateObjects(engine, 0, objects());
}

unsigned SceneThing::endOfSegment(unsigned begin) const {
    unsigned end = begin;
    while (end < objects() && !isActivePassEffect(objects_[end].get()))
        ++end;
    return end;
}

void SceneThing::evaluateObjects(Engine * engine, unsigned begin, unsigned end) {
    PushedObjects pushed(engine);
    GatheredEffects effects;
    for (unsigned i = begin; i < end && i < objects(); ++i) {
        const SO<RenderObj> object = objects_[i];
        // Asked first: most objects are shapes, and no shape is anything else.
        const auto * shape = dynamic_cast<const Shape *>(object.get());
        if (auto * effect = shape ? nullptr : passEffect(object.get())) {
            if (effect->isEnabled()) effects.add(effect);
            continue;
        }
        if (!shape && pushed.push(object)) continue;
        if (effects.isEmpty()) {
            paintObject(engine, object.get(), shape);
            continue;
        }
        const unsigned segmentEnd = endOfSegment(i);
        engine->paintWithEffects(effects.topFirst(), [&] { evaluateObjects(engine, i, segmentEnd); });
        effects.clear();
        // The segment's attributes hold for what comes behind it as well.
        for (; i + 1 < segmentEnd && i + 1 < objects(); ++i)
            if (!passEffect(objects_[i + 1].get())) pushed.push(objects_[i + 1]);
    }
}

void SceneThing::install(Engine * engine) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    for (const SO<RenderObj> & object : objects_)
        push(engine, object.get());
}

void SceneThing::deinstall(Engine * engine) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    for (auto object = objects_.rbegin(); object != objects_.rend(); ++object)
        pop(engine, object->get());
}

} // namespace NBX
