#pragma once

#include <nbx/object/id.h>
#include <nbx/scene/shape/shape.h>

namespace ZMT::UTIL {

/// Where it stands in a scene, the engine begins to regard the attributes of a category again, or to
/// disregard them. Calls nest, so that a scene has one of each kind.
class AcceptanceControl : public NBX::Shape {
    NBX_CLASS(AcceptanceControl, NBX::Shape)
public:
    AcceptanceControl(const NBX::ID & category, bool accepts)
        : NBX::Shape(true), category_(category), accepts_(accepts) {}

    const NBX::ID & category() const { return category_; }
    bool accepts() const { return accepts_; }
    /// Undefined.
    NBX::Bounds boundingBox() const override { return {}; }

private:
    NBX::ID category_;
    bool accepts_;
};

} // namespace ZMT::UTIL
