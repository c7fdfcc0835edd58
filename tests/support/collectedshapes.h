#pragma once

#include <functional>
#include <string>
#include <vector>

#include <nbx/engine/engine.h>
#include <nbx/engine/handler.h>
#include <nbx/engine/technique.h>
#include <nbx/scene/shape/polygonset.h>

/// What simplifiers hand to the engine.
namespace CollectedShapes {

using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;

/// Sees every shape.
class Collector : public NBX::Handler {
    NBX_TEMPLATE_CLASS(Collector, NBX::Handler)
public:
    NBX::ID service() const override { return "CollectedShapes"; }
    NBX::ID target() const override { return NBX::Shape::ClassNameNBX(); }
};

inline const bool registered = (NBX::Engine::registerHandler(new Collector), true);

struct Entry {
    NBX::SO<const NBX::Shape> shape;
    Matrix model;
};

/// Notes every shape, and leaves all but polygon sets to their simplifiers.
class Technique : public NBX::Technique {
    NBX_TEMPLATE_CLASS(Technique, NBX::Technique)
public:
    NBX::ID service() const override { return "CollectedShapes"; }
    bool process(NBX::Engine * engine, NBX::Handler *, const NBX::Shape * shape) override {
        entries.push_back({NBX::SO<const NBX::Shape>(shape), engine->modelMatrix()});
        if (observe) observe(engine, shape);
        return dynamic_cast<const NBX::PolygonSet *>(shape) != nullptr;
    }
    bool apply(NBX::Engine *, NBX::Handler *, const NBX::MonoAttribute *, bool) override { return false; }

    std::vector<Entry> entries;
    std::function<void(NBX::Engine *, const NBX::Shape *)> observe;

    template <class T> std::vector<const T *> all() const {
        std::vector<const T *> result;
        for (const Entry & entry : entries)
            if (const auto * shape = dynamic_cast<const T *>(entry.shape.get())) result.push_back(shape);
        return result;
    }
};

inline std::vector<Point> points(const NBX::SO<NBX::PolygonSet::Vertices> & sequence) {
    std::vector<Point> result;
    for (unsigned i = 0; sequence && i < sequence->size(); ++i)
        result.push_back(sequence->get(i));
    return result;
}

} // namespace CollectedShapes
