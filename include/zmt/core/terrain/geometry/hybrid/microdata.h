#pragma once

#include <nbx/scene/shape/shape.h>

namespace ZMT::CORE {

class HybridData;

/// What stands in place of one cell of a hybrid grid.
class MicroData : public NBX::Shape {
    NBX_CLASS(MicroData, NBX::Shape)
public:
    /// Not owned; it must live as long as this object is used.
    const HybridData * container() const { return container_; }

protected:
    explicit MicroData(const HybridData * container);

private:
    const HybridData * container_;
};

} // namespace ZMT::CORE
