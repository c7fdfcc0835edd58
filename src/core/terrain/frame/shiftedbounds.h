#pragma once

#include <nbx/math/bounds.h>

namespace ZMT::CORE {

/// `box`, moved by `offset`; what is undefined stays so.
inline NBX::Bounds shifted(const NBX::Bounds & box, const NBX::Vector3Base<double> & offset) {
    return box.isDefined() ? NBX::Bounds(box.getLLF() + offset, box.getURB() + offset) : box;
}

} // namespace ZMT::CORE
