#include "terraintexgen.h"

#include <nbx/gl/texture/texgengl.h>

namespace ZMT::CORE {

const NBX::SO<NBX::TexGenGL> & terrainTexGen() {
    static const NBX::SO<NBX::TexGenGL> texGen(
        new NBX::TexGenGL(NBX::TexGenGL::M_ObjectLinear,
                          NBX::Matrix4x4Base<double>({1, 0, 0, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 0, 0, 1})));
    return texGen;
}

} // namespace ZMT::CORE
