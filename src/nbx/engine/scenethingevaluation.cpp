// The part of SceneThing that speaks to an engine, kept out of the scene's own folder.

#include <nbx/scene/scenething.h>

#include <nbx/engine/engine.h>
#include <nbx/object/errorhandler.h>
#include <nbx/scene/attribute.h>
#include <nbx/scene/shape.h>

namespace NBX {

namespace {

/// Attributes pushed in one block, popped in reverse at its end.
class PushedAttributes {
public:
    explicit PushedAttributes(Engine * engine) : engine_(engine) {}
    ~PushedAttributes() {
        while (!attributes_.empty()) {
            engine_->pop(attributes_.back().get());
            attributes_.pop_back();
        }
    }
    PushedAttributes(const PushedAttributes &) = delete;
    PushedAttributes & operator=(const PushedAttributes &) = delete;

    void push(Attribute * attribute) {
        attributes_.emplace_back(attribute);
        engine_->push(attribute);
    }

private:
    Engine * engine_;
    std::vector<SO<Attribute>> attributes_;
};

bool isActivePassEffect(const RenderObj * object) {
    const auto * attribute = dynamic_cast<const Attribute *>(object);
    return attribute && attribute->isPassEffect() && attribute->isEnabled();
}

void paintObject(Engine * engine, RenderObj * object) {
    if (const auto * shape = dynamic_cast<const Shape *>(object))
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
    PushedAttributes pushed(engine);
    GatheredEffects effects;
    for (unsigned i = begin; i < end && i < objects(); ++i) {
        const SO<RenderObj> object = objects_[i];
        if (auto * attribute = dynamic_cast<Attribute *>(object.get())) {
            if (!attribute->isPassEffect())
                pushed.push(attribute);
            else if (attribute->isEnabled())
                effects.add(attribute);
            continue;
        }
        if (effects.isEmpty()) {
            paintObject(engine, object.get());
            continue;
        }
        const unsigned segmentEnd = endOfSegment(i);
        engine->paintWithEffects(effects.topFirst(), [&] { evaluateObjects(engine, i, segmentEnd); });
        effects.clear();
        // The segment's attributes hold for what comes behind it as well.
        for (; i + 1 < segmentEnd && i + 1 < objects(); ++i)
            if (auto * later = dynamic_cast<Attribute *>(objects_[i + 1].get());
                later && !later->isPassEffect())
                pushed.push(later);
    }
}

void SceneThing::install(Engine * engine) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    for (const SO<RenderObj> & object : objects_)
        if (auto * attribute = dynamic_cast<Attribute *>(object.get())) engine->push(attribute);
}

void SceneThing::deinstall(Engine * engine) {
    NBX_CHECK(engine, L"no engine");
    if (!engine) return;
    for (auto object = objects_.rbegin(); object != objects_.rend(); ++object)
        if (auto * attribute = dynamic_cast<Attribute *>(object->get())) engine->pop(attribute);
}

} // namespace NBX
