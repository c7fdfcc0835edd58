#pragma once

#include <array>

#include <nbx/gl/program/baseuniformvariable.h>
#include <nbx/math/color.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>

namespace NBX::GL2 {

/// Sends a value to the variable at `location` of the program in use.
void sendUniform(int location, int value);
void sendUniform(int location, bool value);
void sendUniform(int location, float value);
void sendUniform(int location, double value);
void sendUniform(int location, const std::array<float, 2> & value);
void sendUniform(int location, const std::array<float, 3> & value);
void sendUniform(int location, const std::array<float, 4> & value);
void sendUniform(int location, const Vector3Base<float> & value);
void sendUniform(int location, const Vector3Base<double> & value);
void sendUniform(int location, const Color & value);
void sendUniform(int location, const Matrix4x4Base<double> & value);

/// A value of one of the types that `sendUniform` takes; in the shader it is the matching type of the
/// language, of single precision.
template <class T> class UniformVariable : public BaseUniformVariable {
    NBX_TEMPLATE_CLASS(UniformVariable, BaseUniformVariable)
public:
    explicit UniformVariable(const std::string & name, const T & value = T())
        : BaseUniformVariable(name), value_(value) {}

    const T & getValue() const { return value_; }
    void setValue(const T & value) {
        if (value_ == value) return;
        value_ = value;
        this->modified();
    }
    void send(int location) const override { sendUniform(location, value_); }

private:
    T value_;
};

} // namespace NBX::GL2
