#include "heightreductiongl.h"

#include <array>

#include <GL/glew.h>

namespace ZMT::CORE {

namespace {

static_assert(sizeof(HeightReductionGL::VertexData) == 4 * sizeof(float), "pixels are read into it");

void setSize(TrapezoidProgramGL & program, const char * name, unsigned size) {
    program.set(name, std::array{static_cast<float>(size), static_cast<float>(size)});
}

} // namespace

HeightReductionGL::HeightReductionGL(NBX::EngineGL * engine, unsigned size) {
    for (unsigned side = size / 2; side > 0; side /= 2) {
        Level level;
        level.pixels = new NBX::RenderTextureGL(engine, side, side, GL_FLOAT, GL_RGBA);
        level.target = new NBX::FrameBufferObjectGL(engine, side, side);
        level.pixels->attachTo(level.target.get());
        levels_.push_back(level);
    }
}

HeightReductionGL::VertexData HeightReductionGL::reduce(NBX::EngineGL * engine, TrapezoidProgramGL & program,
                                                        const NBX::Texture2DGL & source) {
    VertexData result{};
    const NBX::Texture2DGL * from = &source;
    for (const Level & level : levels_) {
        program.set("isFirstPass", from == &source ? 1.0F : 0.0F);
        setSize(program, "sourceTextureSize", from->getWidth());
        setSize(program, "sourceViewport", from->getWidth());
        setSize(program, "targetViewport", level.target->width());
        if (!program.use()) return result;
        from->bind(engine);
        const NBX::FrameBufferObjectGL::Scope scope(engine, *level.target);
        glRecti(-1, -1, 1, 1);
        if (level.target->width() == 1) {
            glReadBuffer(GL_COLOR_ATTACHMENT0_EXT);
            glReadPixels(0, 0, 1, 1, GL_RGBA, GL_FLOAT, &result);
        }
        from = level.pixels->texture().get();
    }
    return result;
}

} // namespace ZMT::CORE
