#pragma once

#include <functional>

#include <nbx/engine/shapepainter.h>
#include <nbx/gl/context/enginegl.h>
#include <nbx/math/bounds.h>
#include <nbx/scene/shape/shape.h>

/// Looks at the state in the middle of a scene.
class Probe : public NBX::Shape {
    NBX_TEMPLATE_CLASS(Probe, NBX::Shape)
public:
    Probe() : NBX::Shape(true) {}
    NBX::Bounds boundingBox() const override { return {}; }
};

class ProbePainter : public NBX::ShapePainter {
    NBX_TEMPLATE_CLASS(ProbePainter, NBX::ShapePainter)
public:
    NBX::ID target() const override { return Probe::ClassNameNBX(); }
    bool render(NBX::Engine * engine, const NBX::Shape *) override {
        if (s_observe) s_observe(engine);
        return true;
    }
    static inline std::function<void(NBX::Engine *)> s_observe;
};

inline const bool probeRegistered = (NBX::EngineGL::registerHandler(new ProbePainter), true);
