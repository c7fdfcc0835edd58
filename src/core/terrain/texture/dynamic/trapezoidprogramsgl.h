#pragma once

#include <array>
#include <map>
#include <string>

#include <nbx/gl/program/programobject.h>
#include <nbx/gl/program/samplervariable.h>
#include <nbx/gl/program/uniformvariable.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/object/so.h>

namespace ZMT::CORE {

/// A program with its variables by name. Render thread.
class TrapezoidProgramGL {
public:
    TrapezoidProgramGL(const std::string & vertexStage, const std::string & fragmentStage);

    /// The value is sent when the program is next used.
    template <class T> void set(const std::string & name, const T & value);
    /// Once for each name.
    void setSampler(const std::string & name, int unit = 0);
    bool use() const { return program_->use(); }
    const NBX::SO<NBX::GL2::ProgramObject> & program() const { return program_; }

private:
    NBX::SO<NBX::GL2::ProgramObject> program_;
    std::map<std::string, NBX::SO<NBX::GL2::BaseUniformVariable>> variables_;
};

template <class T> void TrapezoidProgramGL::set(const std::string & name, const T & value) {
    NBX::SO<NBX::GL2::BaseUniformVariable> & variable = variables_[name];
    if (auto * known = dynamic_cast<NBX::GL2::UniformVariable<T> *>(variable.get())) {
        known->setValue(value);
        return;
    }
    variable = new NBX::GL2::UniformVariable<T>(name, value);
    program_->attach(variable);
}

/// The programs of drawing in trapezoids, made when they are first asked for and kept for the life of the
/// process. What is drawn into a trapezoid has (x, z) in the first two coordinates of its vertices, and the
/// height in the third one.
///
/// Here "trapMat" takes (x, z) to the cube from -1 to 1, while "invTrapMat" begins at the unit square, in
/// which grids and textures have their coordinates.
class TrapezoidProgramsGL {
public:
    using Matrix = NBX::Matrix4x4Base<double>;

    static TrapezoidProgramGL & height();
    static TrapezoidProgramGL & vectors();
    static TrapezoidProgramGL & textured();
    static TrapezoidProgramGL & lighting();
    /// Where the square is seen: its coordinates and the height. Holes are 0, and -500 and what lies below.
    static TrapezoidProgramGL & mesh();
    /// Bands of the height. Holes are 0 and -9999.
    static TrapezoidProgramGL & meshPattern();
    static TrapezoidProgramGL & meshTextured();
    static TrapezoidProgramGL & heightStatistics();
    static TrapezoidProgramGL & usedRange();

    /// The matrix of the first three, as long as it lives: passes may lie within each other.
    class TrapMatScope {
    public:
        explicit TrapMatScope(const Matrix & matrix);
        /// The one before is in force again, also in the program that is in use.
        ~TrapMatScope();
        TrapMatScope(const TrapMatScope &) = delete;
        TrapMatScope & operator=(const TrapMatScope &) = delete;

    private:
        const Matrix before_;
    };
    /// Puts the textured one into use with another matrix, within a scope.
    static bool useTextured(const Matrix & trapMat);

private:
    static std::array<TrapezoidProgramGL *, 3> ofTrapezoids();
    static Matrix & trapMat();
    static void setTrapMat(const Matrix & matrix);
};

} // namespace ZMT::CORE
