#pragma once

#include <nbx/engine/engine.h>

namespace NBX {

/// Pushes a model matrix for the life of a block, also where what is painted in it throws.
class ModelMatrixScope {
public:
    ModelMatrixScope(Engine * engine, const Matrix4x4Base<double> & matrix) : engine_(engine) {
        engine_->pushModelMatrix(matrix);
    }
    ~ModelMatrixScope() { engine_->popModelMatrix(); }
    ModelMatrixScope(const ModelMatrixScope &) = delete;
    ModelMatrixScope & operator=(const ModelMatrixScope &) = delete;

private:
    Engine * engine_;
};

} // namespace NBX
