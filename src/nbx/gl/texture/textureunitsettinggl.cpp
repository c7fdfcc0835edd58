#include <nbx/gl/texture/textureunitsettinggl.h>

#include <string>
#include <vector>

#include <GL/glew.h>

#include "nbx/gl/context/attributepaintergl.h"
#include <nbx/object/errorhandler.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(TextureUnitSettingGL, MonoAttribute)

namespace {

constexpr unsigned maxUnits = 32;

std::vector<ID> makeCategories() {
    std::vector<ID> categories;
    for (unsigned unit = 0; unit < maxUnits; ++unit)
        categories.emplace_back(std::string(TextureUnitSettingGL::ClassNameNBX().text()) +
                                std::to_string(unit));
    return categories;
}

template <class T> const T * current(EngineGL * engine, const ID & category, const MonoAttribute * leaving) {
    const MonoAttribute * attribute = engine->getAttribute(category);
    return attribute != leaving ? dynamic_cast<const T *>(attribute) : nullptr;
}

const TextureUnitSettingGL * currentSetting(EngineGL * engine, unsigned unit, const MonoAttribute * leaving) {
    return current<TextureUnitSettingGL>(engine, TextureUnitSettingGL::category(unit), leaving);
}

void enableTexture(EngineGL * engine, const TextureGL * texture) {
    for (const GLenum target : {GL_TEXTURE_2D, GL_TEXTURE_3D, GL_TEXTURE_CUBE_MAP})
        if (!texture || texture->target() != target) glDisable(target);
    glMatrixMode(GL_TEXTURE);
    if (texture) {
        texture->bind(engine);
        glEnable(texture->target());
        glLoadMatrixd(texture->getMatrix().columns().data());
    } else {
        glBindTexture(GL_TEXTURE_2D, 0);
        glLoadIdentity();
    }
    glMatrixMode(GL_MODELVIEW);
}

void enableTexGen(const TexGenGL * texGen) {
    if (texGen)
        texGen->enable();
    else
        TexGenGL::disable();
}

} // namespace

TextureUnitSettingGL::TextureUnitSettingGL() : MonoAttribute(true) {}

TextureUnitSettingGL::TextureUnitSettingGL(unsigned unit, TextureGL * texture, TexEnvGL * texEnv,
                                           TexGenGL * texGen)
    : MonoAttribute(true), unit_(unit), texture_(texture), texEnv_(texEnv), texGen_(texGen) {
    NBX_CHECK(unit < maxUnits, L"unit out of range: " << unit);
    if (unit >= maxUnits) unit_ = 0;
}

TextureUnitSettingGL::~TextureUnitSettingGL() = default;

ID TextureUnitSettingGL::category(unsigned unit) {
    static const std::vector<ID> categories = makeCategories();
    return categories[unit < maxUnits ? unit : 0];
}

void TextureUnitSettingGL::updateUnit(EngineGL * engine, unsigned unit, const MonoAttribute * leaving) {
    if (unit >= engine->textureCoordinateSets()) return;
    const TextureUnitSettingGL * setting = currentSetting(engine, unit, leaving);
    const TextureGL * texture = setting ? setting->texture() : nullptr;
    const TexEnvGL * texEnv = setting ? setting->texEnv() : nullptr;
    if (!setting && unit == 0) {
        texture = current<TextureGL>(engine, TextureGL::ClassNameNBX(), leaving);
        texEnv = current<TexEnvGL>(engine, TexEnvGL::ClassNameNBX(), leaving);
    }
    glActiveTexture(GL_TEXTURE0 + unit);
    enableTexture(engine, texture);
    if (texEnv)
        texEnv->enable();
    else
        TexEnvGL::disable();
    const bool hasTexGen = setting && setting->texGen();
    enableTexGen(hasTexGen ? setting->texGen()
                           : current<TexGenGL>(engine, TexGenGL::ClassNameNBX(), leaving));
    glActiveTexture(GL_TEXTURE0);
}

void TextureUnitSettingGL::updateTexGens(EngineGL * engine, const MonoAttribute * leaving) {
    const TexGenGL * common = current<TexGenGL>(engine, TexGenGL::ClassNameNBX(), leaving);
    for (unsigned unit = engine->textureCoordinateSets(); unit-- > 0;) {
        glActiveTexture(GL_TEXTURE0 + unit);
        const TextureUnitSettingGL * setting = currentSetting(engine, unit, leaving);
        if (!setting || !setting->texGen()) enableTexGen(common);
    }
}

void TextureUnitSettingGL::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    attributeWithDefault(m, "unit", unit_, 0U);
    if (unit_ >= maxUnits) unit_ = 0;
    attributeWithDefault(m, "texture", texture_, SO<TextureGL>());
    attributeWithDefault(m, "texEnv", texEnv_, SO<TexEnvGL>());
    attributeWithDefault(m, "texGen", texGen_, SO<TexGenGL>());
}

namespace {

void apply(EngineGL & engine, const TextureUnitSettingGL & setting, bool entering) {
    TextureUnitSettingGL::updateUnit(&engine, setting.unit(), entering ? nullptr : &setting);
}

void applyTexture(EngineGL & engine, const TextureGL & texture, bool entering) {
    TextureUnitSettingGL::updateUnit(&engine, 0, entering ? nullptr : &texture);
}

} // namespace

NBX_REGISTER_ATTRIBUTE_GL(TextureUnitSettingGL, apply)
NBX_REGISTER_ATTRIBUTE_GL(TextureGL, applyTexture)

} // namespace NBX
