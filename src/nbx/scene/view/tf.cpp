#include <nbx/scene/view/tf.h>

#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(Tf, MonoAttribute)

Tf::Tf(const Matrix4x4Base<double> & matrix) : MonoAttribute(true), matrix_(matrix) {}

void Tf::setMatrix(const Matrix4x4Base<double> & matrix) {
    if (matrix_ == matrix) return;
    matrix_ = matrix;
    modified();
}

ID Tf::category() const {
    return ClassNameNBX();
}

void Tf::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    attributeWithDefault(m, "matrix", matrix_, Matrix4x4Base<double>());
}

} // namespace NBX
