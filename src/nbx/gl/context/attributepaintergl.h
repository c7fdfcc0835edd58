#pragma once

#include <nbx/engine/monoattributepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

/// The painter of the mono attributes of one class: `Function` brings an attribute into effect where it is
/// `entering`, and else restores the default state. One such function a class, registered at the end of its
/// source by `NBX_REGISTER_ATTRIBUTE_GL`.
template <class AttributeClass, void (*Function)(EngineGL &, const AttributeClass &, bool entering)>
class AttributePainterGL : public MonoAttributePainter {
public:
    ID target() const override { return AttributeClass::ClassNameNBX(); }

    bool apply(Engine * engine, const MonoAttribute * attribute, bool entering) override {
        Function(static_cast<EngineGL &>(*engine), static_cast<const AttributeClass &>(*attribute), entering);
        return true;
    }
};

/// For attributes that leave some of their values open: calls `visit` with all of the stack of `attribute`,
/// the lowest first, without that one itself where it is leaving.
template <class AttributeClass, class Visit>
void forEachInForce(const EngineGL & engine, const AttributeClass & attribute, bool entering,
                    const Visit & visit) {
    const auto * stack = engine.monoTable(attribute.category());
    unsigned count = stack ? stack->size() : 0;
    if (!entering && count > 0 && stack->top().get() == &attribute) --count;
    for (unsigned i = 0; i < count; ++i)
        visit(static_cast<const AttributeClass &>(*stack->get(i)));
}

} // namespace NBX

#define NBX_REGISTER_ATTRIBUTE_GL(AttributeClass, function)                                                  \
    namespace {                                                                                              \
    using AttributeClass##Painter = NBX::AttributePainterGL<AttributeClass, &function>;                      \
    }                                                                                                        \
    NBX_REGISTER_HANDLER_GL(AttributeClass##Painter)
