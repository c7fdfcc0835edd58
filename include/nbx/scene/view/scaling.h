#pragma once

#include <nbx/scene/view/tf.h>

namespace NBX {

class Scaling : public Tf {
    NBX_STORED_CLASS(Scaling, Tf)
public:
    /// About the origin.
    explicit Scaling(const Vector3Base<double> & factors = {1.0, 1.0, 1.0});

    Vector3Base<double> getFactors() const;
};

} // namespace NBX
