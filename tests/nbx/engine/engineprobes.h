#pragma once

#include <string>
#include <vector>

#include "nbx/engine/handlertable.h"
#include <nbx/engine/attributesimplifier.h>
#include <nbx/engine/engine.h>
#include <nbx/engine/monoattributepainter.h>
#include <nbx/engine/shapepainter.h>
#include <nbx/engine/shapesimplifier.h>
#include <nbx/scene/attribute/monoattribute.h>
#include <nbx/scene/attribute/polyattribute.h>
#include <nbx/scene/shape/shape.h>

/// What the handlers of the probes below did, in order, such as "+a", "-a", "box".
inline std::vector<std::string> & probeLog() {
    static std::vector<std::string> log;
    return log;
}

/// The log as one line; starts a new one.
inline std::string takeProbeLog() {
    std::string result;
    for (const std::string & entry : probeLog())
        result += (result.empty() ? "" : " ") + entry;
    probeLog().clear();
    return result;
}

class ProbeShape : public NBX::Shape {
    NBX_TEMPLATE_CLASS(ProbeShape, NBX::Shape)
public:
    explicit ProbeShape(std::string name) : NBX::Shape(true), name(std::move(name)) {}
    std::string name;
};

/// A shape with no handlers of its own.
class DerivedProbeShape : public ProbeShape {
    NBX_TEMPLATE_CLASS(DerivedProbeShape, ProbeShape)
public:
    using ProbeShape::ProbeShape;
};

/// A shape that has a simplifier only, which paints a `ProbeShape` of the same name in brackets.
class ComplexProbeShape : public NBX::Shape {
    NBX_TEMPLATE_CLASS(ComplexProbeShape, NBX::Shape)
public:
    explicit ComplexProbeShape(std::string name) : NBX::Shape(true), name(std::move(name)) {}
    std::string name;
};

class ProbeAttribute : public NBX::MonoAttribute {
    NBX_TEMPLATE_CLASS(ProbeAttribute, NBX::MonoAttribute)
public:
    explicit ProbeAttribute(std::string name) : NBX::MonoAttribute(true), name(std::move(name)) {}
    std::string name;
};

/// Stands in the category of its parent, without a painter of its own class.
class DerivedProbeAttribute : public ProbeAttribute {
    NBX_TEMPLATE_CLASS(DerivedProbeAttribute, ProbeAttribute)
public:
    using ProbeAttribute::ProbeAttribute;
    NBX::ID category() const override { return ProbeAttribute::ClassNameNBX(); }
};

/// An attribute with a simplifier only.
class SimplifiedProbeAttribute : public NBX::MonoAttribute {
    NBX_TEMPLATE_CLASS(SimplifiedProbeAttribute, NBX::MonoAttribute)
public:
    explicit SimplifiedProbeAttribute(std::string name) : NBX::MonoAttribute(true), name(std::move(name)) {}
    std::string name;
};

class ProbePolyAttribute : public NBX::PolyAttribute {
    NBX_TEMPLATE_CLASS(ProbePolyAttribute, NBX::PolyAttribute)
public:
    ProbePolyAttribute() : NBX::PolyAttribute(true) {}
};

class ProbeEffect : public NBX::MonoAttribute {
    NBX_TEMPLATE_CLASS(ProbeEffect, NBX::MonoAttribute)
public:
    explicit ProbeEffect(std::string name) : NBX::MonoAttribute(true), name(std::move(name)) {}
    bool isPassEffect() const override { return true; }
    std::string name;
};

class ProbeShapePainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(ProbeShapePainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return ProbeShape::ClassNameNBX(); }
    bool render(NBX::Engine *, const NBX::Shape * shape) override {
        probeLog().push_back(static_cast<const ProbeShape *>(shape)->name);
        return true;
    }
};

class ComplexProbeSimplifier : public NBX::ShapeSimplifier {
    NBX_TEMPLATE_CLASS(ComplexProbeSimplifier, NBX::ShapeSimplifier)
public:
    NBX::ID target() const override { return ComplexProbeShape::ClassNameNBX(); }
    bool simplify(NBX::Engine * engine, const NBX::Shape * shape) override {
        const std::string & name = static_cast<const ComplexProbeShape *>(shape)->name;
        engine->paint(NBX::SO<ProbeShape>(new ProbeShape("(" + name + ")")).get());
        return true;
    }
};

class ProbeAttributePainter : public NBX::MonoAttributePainter {
    NBX_TEMPLATE_CLASS(ProbeAttributePainter, NBX::MonoAttributePainter)
public:
    NBX::ID target() const override { return ProbeAttribute::ClassNameNBX(); }
    bool apply(NBX::Engine *, const NBX::MonoAttribute * attribute, bool entering) override {
        probeLog().push_back((entering ? "+" : "-") + static_cast<const ProbeAttribute *>(attribute)->name);
        return true;
    }
};

class ProbeAttributeSimplifier : public NBX::AttributeSimplifier {
    NBX_TEMPLATE_CLASS(ProbeAttributeSimplifier, NBX::AttributeSimplifier)
public:
    NBX::ID target() const override { return SimplifiedProbeAttribute::ClassNameNBX(); }
    bool simplify(NBX::Engine *, const NBX::Attribute * attribute, bool entering) override {
        const auto * probe = static_cast<const SimplifiedProbeAttribute *>(attribute);
        probeLog().push_back((entering ? "<" : ">") + probe->name);
        return true;
    }
};

/// An engine that sees the handlers above, and logs the pass effects, top first, twice around the shapes.
class ProbeEngine : public NBX::Engine {
    NBX_TEMPLATE_CLASS(ProbeEngine, NBX::Engine)
public:
    static NBX::HandlerTable & table() {
        static NBX::HandlerTable handlers = [] {
            NBX::HandlerTable made;
            made.add(new ProbeShapePainter());
            made.add(new ComplexProbeSimplifier());
            made.add(new ProbeAttributePainter());
            made.add(new ProbeAttributeSimplifier());
            return made;
        }();
        return handlers;
    }
    void paintWithEffects(const std::vector<NBX::Attribute *> & topFirst,
                          const std::function<void()> & paintShapes) override {
        std::string names;
        for (const NBX::Attribute * effect : topFirst)
            names += static_cast<const ProbeEffect *>(effect)->name;
        for (const char * pass : {"1", "2"}) {
            probeLog().push_back(names + pass + "{");
            paintShapes();
            probeLog().push_back("}");
        }
    }

    unsigned modelViewChanges = 0, projectionChanges = 0, polyChanges = 0;

protected:
    const NBX::HandlerTable * ownHandlers() const override { return &table(); }
    void modelViewChanged() override { ++modelViewChanges; }
    void projectionChanged() override { ++projectionChanges; }
    void polyAttributesChanged(const NBX::ID &) override { ++polyChanges; }
};
