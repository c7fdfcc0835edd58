#pragma once

#include <vector>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/offscreen/framebufferobjectgl.h>
#include <nbx/gl/offscreen/rendertexturegl.h>
#include <nbx/gl/texture/texture2dgl.h>
#include <nbx/object/so.h>

#include "trapezoidprogramsgl.h"

namespace ZMT::CORE {

/// Halves a square of floats until one pixel is left, on the graphics card. Render thread.
class HeightReductionGL {
public:
    /// What a pixel of a target, and a vertex made of it, holds.
    struct VertexData {
        float x, y, z, w;
    };

    /// Of squares of `size` pixels, a power of two above 1.
    HeightReductionGL(NBX::EngineGL * engine, unsigned size);

    /// By a program whose fragments are made of four pixels each. The first fragments are told so by
    /// "isFirstPass". The state of OpenGL that drawing needs is the caller's: no test, no blending.
    VertexData reduce(NBX::EngineGL * engine, TrapezoidProgramGL & program, const NBX::Texture2DGL & source);

private:
    struct Level {
        NBX::SO<NBX::RenderTextureGL> pixels;
        NBX::SO<NBX::FrameBufferObjectGL> target;
    };

    std::vector<Level> levels_; ///< each of half the size of the one before
};

} // namespace ZMT::CORE
