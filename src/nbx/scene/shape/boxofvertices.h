#pragma once

#include <nbx/container/sequence/iterator.h>
#include <nbx/math/bounds.h>

namespace NBX {

/// Undefined without vertices; null has none.
inline Bounds boxOfVertices(const Iterator<Vector3Base<double>> * vertices) {
    Bounds box;
    const unsigned n = vertices ? vertices->size() : 0;
    for (unsigned i = 0; i < n; ++i)
        box += vertices->get(i);
    return box;
}

} // namespace NBX
