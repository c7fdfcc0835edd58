#pragma once

#include <nbx/scene/view/tf.h>

namespace NBX {

class Translation : public Tf {
    NBX_STORED_CLASS(Translation, Tf)
public:
    explicit Translation(const Vector3Base<double> & offset = {});

    Vector3Base<double> getOffset() const;
};

} // namespace NBX
