// Two textures are blended by the fixed functions: unit 0 interpolates between its own texture, the coarse
// one, and that of unit 1, the fine one; unit 1 multiplies that with the colours of the vertices. What
// follows is multiplied. So alpha is blended as colours are, and the scene's tests and blending see the
// result.

#include "atlasstagesgl.h"

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

namespace ZMT::CORE {

namespace {

using StreamTexture = TTTMemoryController::StreamTexture;

void modulate() {
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_MODULATE);
}

/// On unit 0, with `weight` for the texture of unit 1.
void interpolate(double weight) {
    const float constant[4] = {0.0F, 0.0F, 0.0F, float(weight)};
    glTexEnvfv(GL_TEXTURE_ENV, GL_TEXTURE_ENV_COLOR, constant);
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_COMBINE);
    const struct {
        GLenum combine, sources[3], operands[3], scale;
    } channels[] = {
        {GL_COMBINE_RGB,
         {GL_SOURCE0_RGB, GL_SOURCE1_RGB, GL_SOURCE2_RGB},
         {GL_OPERAND0_RGB, GL_OPERAND1_RGB, GL_OPERAND2_RGB},
         GL_RGB_SCALE},
        {GL_COMBINE_ALPHA,
         {GL_SOURCE0_ALPHA, GL_SOURCE1_ALPHA, GL_SOURCE2_ALPHA},
         {GL_OPERAND0_ALPHA, GL_OPERAND1_ALPHA, GL_OPERAND2_ALPHA},
         GL_ALPHA_SCALE},
    };
    for (const auto & c : channels) {
        const GLint operand = c.combine == GL_COMBINE_RGB ? GL_SRC_COLOR : GL_SRC_ALPHA;
        glTexEnvi(GL_TEXTURE_ENV, c.combine, GL_INTERPOLATE);
        glTexEnvi(GL_TEXTURE_ENV, c.sources[0], GL_TEXTURE1);
        glTexEnvi(GL_TEXTURE_ENV, c.sources[1], GL_TEXTURE0);
        glTexEnvi(GL_TEXTURE_ENV, c.sources[2], GL_CONSTANT);
        glTexEnvi(GL_TEXTURE_ENV, c.operands[0], operand);
        glTexEnvi(GL_TEXTURE_ENV, c.operands[1], operand);
        glTexEnvi(GL_TEXTURE_ENV, c.operands[2], GL_SRC_ALPHA);
        glTexEnvf(GL_TEXTURE_ENV, c.scale, 1.0F);
    }
}

/// On unit 1: what unit 0 made, in the colours of the vertices.
void modulateWithColors() {
    glTexEnvi(GL_TEXTURE_ENV, GL_TEXTURE_ENV_MODE, GL_COMBINE);
    for (const GLenum combine : {GL_COMBINE_RGB, GL_COMBINE_ALPHA})
        glTexEnvi(GL_TEXTURE_ENV, combine, GL_MODULATE);
    for (const GLenum source : {GL_SOURCE0_RGB, GL_SOURCE0_ALPHA})
        glTexEnvi(GL_TEXTURE_ENV, source, GL_PREVIOUS);
    for (const GLenum source : {GL_SOURCE1_RGB, GL_SOURCE1_ALPHA})
        glTexEnvi(GL_TEXTURE_ENV, source, GL_PRIMARY_COLOR);
    for (const GLenum operand : {GL_OPERAND0_RGB, GL_OPERAND1_RGB})
        glTexEnvi(GL_TEXTURE_ENV, operand, GL_SRC_COLOR);
    for (const GLenum operand : {GL_OPERAND0_ALPHA, GL_OPERAND1_ALPHA})
        glTexEnvi(GL_TEXTURE_ENV, operand, GL_SRC_ALPHA);
    for (const GLenum scale : {GL_RGB_SCALE, GL_ALPHA_SCALE})
        glTexEnvf(GL_TEXTURE_ENV, scale, 1.0F);
}

NBX::Matrix4x4Base<double> scaling(double scale) {
    return NBX::Matrix4x4Base<double>::scaling({scale, scale, 1.0});
}

/// The counterpart of a stream texture's `apply`.
void applyImage(NBX::EngineGL * engine, const NBX::ImageTexture2DGL & image, double scale) {
    glMatrixMode(GL_TEXTURE);
    glPushMatrix();
    glLoadMatrixd(scaling(scale).columns().data());
    glMatrixMode(GL_MODELVIEW);
    glEnable(GL_TEXTURE_2D);
    image.bind(engine);
}

void removeImage() {
    glDisable(GL_TEXTURE_2D);
    glMatrixMode(GL_TEXTURE);
    glPopMatrix();
    glMatrixMode(GL_MODELVIEW);
}

} // namespace

bool AtlasStagesGL::isUsable(const NBX::SharedObj * texture) {
    if (const auto * stream = dynamic_cast<const StreamTexture *>(texture))
        return stream->isUploaded() || stream->isComplete();
    return dynamic_cast<const NBX::ImageTexture2DGL *>(texture) != nullptr;
}

AtlasStagesGL::AtlasStagesGL(NBX::EngineGL * engine, const BlendedAtlasGL & first,
                             const BlendedAtlasGL & second)
    : engine_(engine) {
    plan(first, second, engine->maxTextureUnits());
    for (unsigned unit = 0; unit < sets_.size(); ++unit) {
        glActiveTexture(GL_TEXTURE0 + unit);
        for (const GLenum coordinate :
             {GL_TEXTURE_GEN_S, GL_TEXTURE_GEN_T, GL_TEXTURE_GEN_R, GL_TEXTURE_GEN_Q})
            glDisable(coordinate);
        if (unit == 0 && weight_ < 1.0)
            interpolate(weight_);
        else if (unit == 1 && weight_ < 1.0)
            modulateWithColors();
        else
            modulate();
        apply(applied_[unit]);
    }
    glActiveTexture(GL_TEXTURE0);
}

AtlasStagesGL::~AtlasStagesGL() {
    for (unsigned unit = unsigned(applied_.size()); unit-- > 0;) {
        glActiveTexture(GL_TEXTURE0 + unit);
        if (auto * stream = dynamic_cast<StreamTexture *>(applied_[unit].texture.get()))
            stream->apply(false);
        else
            removeImage();
    }
    glActiveTexture(GL_TEXTURE0);
}

void AtlasStagesGL::plan(const BlendedAtlasGL & first, const BlendedAtlasGL & second, unsigned units) {
    const BlendedAtlasGL * blended = nullptr;
    if (first.fine && first.weight < 1.0)
        blended = &first;
    else if (second.fine && second.weight < 1.0)
        blended = &second;
    if (units < 2) blended = nullptr;
    if (blended) {
        applied_ = {blended->coarse, blended->fine};
        weight_ = blended->weight;
    }
    for (const BlendedAtlasGL * plain : {&first, &second})
        if (plain != blended && plain->fine && applied_.size() < units) applied_.push_back(plain->fine);
    for (const AtlasGL & atlas : applied_)
        sets_.push_back(atlas.coordinates);
}

void AtlasStagesGL::apply(const AtlasGL & atlas) {
    if (auto * stream = dynamic_cast<StreamTexture *>(atlas.texture.get())) {
        const NBX::Matrix4x4Base<double> matrix = scaling(atlas.scale);
        if (!(stream->getMatrix() == matrix)) stream->setMatrix(matrix);
        if (stream->apply(true)) stream->setWrap(atlas.wrapS, atlas.wrapT);
    } else {
        applyImage(engine_, static_cast<const NBX::ImageTexture2DGL &>(*atlas.texture), atlas.scale);
    }
}

} // namespace ZMT::CORE
