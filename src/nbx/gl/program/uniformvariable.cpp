#include <nbx/gl/program/uniformvariable.h>

#include <GL/glew.h>

namespace NBX::GL2 {

void sendUniform(int location, int value) {
    glUniform1iARB(location, value);
}

void sendUniform(int location, bool value) {
    glUniform1iARB(location, value ? 1 : 0);
}

void sendUniform(int location, float value) {
    glUniform1fARB(location, value);
}

void sendUniform(int location, double value) {
    glUniform1fARB(location, float(value));
}

void sendUniform(int location, const std::array<float, 2> & value) {
    glUniform2fvARB(location, 1, value.data());
}

void sendUniform(int location, const std::array<float, 3> & value) {
    glUniform3fvARB(location, 1, value.data());
}

void sendUniform(int location, const std::array<float, 4> & value) {
    glUniform4fvARB(location, 1, value.data());
}

void sendUniform(int location, const Vector3Base<float> & value) {
    glUniform3fARB(location, value.x, value.y, value.z);
}

void sendUniform(int location, const Vector3Base<double> & value) {
    sendUniform(location, Vector3Base<float>(value));
}

void sendUniform(int location, const Color & value) {
    glUniform4fvARB(location, 1, value.data());
}

void sendUniform(int location, const Matrix4x4Base<double> & value) {
    const std::array<double, 16> columns = value.columns();
    std::array<float, 16> floats;
    for (unsigned i = 0; i < 16; ++i)
        floats[i] = float(columns[i]);
    glUniformMatrix4fvARB(location, 1, GL_FALSE, floats.data());
}

} // namespace NBX::GL2
