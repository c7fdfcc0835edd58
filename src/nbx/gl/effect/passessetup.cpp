// Pairs of ways for each operation: in the chain of texture stages while it fits there, else by blending a
// pass on to the frame buffer. Stages work on colours from 0 to 1, so a sum is built by interpolations whose
// interim results stay in that range, and what exceeds 1 is split into passes that add up in the frame
// buffer.

#include <nbx/gl/effect/passessetup.h>

#include <algorithm>

#include <GL/glew.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/gl/texture/textureunitsettinggl.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

namespace {

using Argument = TexEnvCombineGL::Argument;

constexpr Argument textureColor{GL_TEXTURE, GL_SRC_COLOR};
constexpr Argument textureAlpha{GL_TEXTURE, GL_SRC_ALPHA};
constexpr Argument constantColor{GL_CONSTANT, GL_SRC_COLOR};
constexpr Argument constantAlpha{GL_CONSTANT, GL_SRC_ALPHA};
constexpr Argument litColor{GL_PRIMARY_COLOR, GL_SRC_COLOR};
constexpr Argument previousColor{GL_PREVIOUS, GL_SRC_COLOR};
constexpr Argument previousAlpha{GL_PREVIOUS, GL_SRC_ALPHA};
constexpr Argument litAlpha{GL_PRIMARY_COLOR, GL_SRC_ALPHA};

/// Weights that differ by less are taken for equal.
constexpr double epsilon = 1e-6;

/// Stands in for a texture in stages that use none, because a unit without a texture does nothing.
const MappedTextureGL & filler() {
    static const MappedTextureGL texture{new ImageTexture2DGL(nullptr), nullptr};
    return texture;
}

template <class... Arguments> SO<TexEnvCombineGL> newStage(unsigned mode, const Arguments &... arguments) {
    SO<TexEnvCombineGL> stage = new TexEnvCombineGL();
    stage->setColor(mode, arguments...);
    return stage;
}

SO<TexEnvCombineGL> newStageWithConstant(double grey, double alpha, unsigned mode,
                                         const auto &... arguments) {
    SO<TexEnvCombineGL> stage = newStage(mode, arguments...);
    stage->setEnvironmentColor(Color(grey, grey, grey, alpha));
    return stage;
}

/// The texture's own factor for interpolation, or its copy, so that alpha holds it.
MappedTextureGL withFactorInAlpha(const MappedTextureGL & factor, EngineGL * engine) {
    if (factor.texture->hasAlpha()) return factor;
    const SO<TextureGL> mask = factor.texture->luminanceMask(engine);
    return mask ? MappedTextureGL{mask, factor.texGen} : factor;
}

double sumOfWeights(const std::vector<PassesSetup::Term> & terms) {
    double sum = 0.0;
    for (const PassesSetup::Term & term : terms)
        sum += term.weight;
    return sum;
}

} // namespace

PassesSetup::PassesSetup(EngineGL * engine) : engine_(engine), units_(engine->maxTextureUnits()) {
    GLboolean writes[4] = {};
    glGetBooleanv(GL_COLOR_WRITEMASK, writes);
    std::copy(std::begin(writes), std::end(writes), userWrites_);
    beginPass();
}

PassesSetup::~PassesSetup() = default;

void PassesSetup::reset() {
    passes_.clear();
    beginPass();
    surface_ = S_Lit;
}

void PassesSetup::beginPass() {
    passes_.emplace_back();
    passes_.back().attributes = new AttributeComposite();
    homogeneous_ = false;
}

/// Multiplies the chain by the lit colour.
void PassesSetup::appendLitColor() {
    const Pass & pass = passes_.back();
    if (homogeneous_) {
        pass.firstStage->setColor(GL_MODULATE, textureColor, litColor);
        homogeneous_ = false;
    } else {
        appendStage({pass.firstTexture, pass.firstTexGen},
                    newStage(GL_MODULATE, previousColor, litColor).get());
    }
}

void PassesSetup::completePass() {
    if (surface_ == S_Chain) appendLitColor();
    surface_ = S_FrameBuffer;
}

void PassesSetup::createNextPass() {
    createNextPass(GL_DST_COLOR, GL_ZERO);
    surface_ = S_Factor;
}

void PassesSetup::createNextPass(unsigned sourceFactor, unsigned targetFactor, const Color & constant) {
    completePass();
    beginPass();
    setColorBuffer({true, sourceFactor, targetFactor, constant}, true, false);
}

void PassesSetup::setColorBuffer(const ColorBufferGL::Blending & blending, bool color, bool alpha) {
    SO<ColorBufferGL> state = new ColorBufferGL(0);
    state->setBlending(blending);
    const auto & w = userWrites_;
    state->setLock(color && w[0], color && w[1], color && w[2], alpha && w[3]);
    // The first pass has sorted out the fragments, and alpha means other things later on.
    if (passes_.size() > 1) state->setAlphaTest({});
    passes_.back().attributes->append(state.get());
}

void PassesSetup::appendStage(const MappedTextureGL & texture, TexEnvCombineGL * stage) {
    Pass & pass = passes_.back();
    NBX_CHECK(texture.texture && stage, L"no texture stage");
    NBX_CHECK(pass.units < units_, L"no texture unit left");
    if (!texture.texture || !stage || pass.units >= units_) return;
    const SO<TexEnvCombineGL> held = stage;
    const auto shows = [&](unsigned i, const Argument & a) {
        return stage->colorArgument(i).source == a.source && stage->colorArgument(i).operand == a.operand;
    };
    if (pass.units == 0) {
        pass.firstTexture = texture.texture;
        pass.firstTexGen = texture.texGen;
        pass.firstStage = held;
        homogeneous_ = stage->colorMode() == GL_REPLACE && shows(0, textureColor);
    } else {
        homogeneous_ = homogeneous_ && stage->colorMode() == GL_MODULATE && shows(0, previousColor);
    }
    pass.attributes->append(
        new TextureUnitSettingGL(pass.units, texture.texture.get(), stage, texture.texGen.get()));
    ++pass.units;
    if (surface_ == S_Lit) surface_ = S_Chain;
}

bool PassesSetup::surfaceContainsColorInCurrentPass() const {
    return surface_ != S_Lit && !(surface_ == S_Factor && passes_.back().units == 0);
}

unsigned PassesSetup::texturesUsedInCurrentPass() const {
    return passes_.back().units;
}

unsigned PassesSetup::freeUnitsInCurrentPass() const {
    const unsigned free = units_ - passes_.back().units;
    return surface_ == S_Factor ? free : free - std::min(free, 1U);
}

AttributeComposite * PassesSetup::getCurrentPass() const {
    return passes_.back().attributes.get();
}

/// Whether so many stages fit into the current pass and leave room for the lit colour, which needs none in a
/// homogeneous chain.
bool PassesSetup::fits(unsigned stages, bool homogeneous) const {
    const unsigned reserve = homogeneous || surface_ == S_Factor ? 0 : 1;
    return passes_.back().units + stages + reserve <= units_;
}

void PassesSetup::add(const std::vector<Term> & terms, double previousWeight) {
    std::vector<Term> used;
    std::copy_if(terms.begin(), terms.end(), std::back_inserter(used),
                 [](const Term & term) { return term.weight > 0.0; });
    const double weight = previousWeight > 0.0 ? previousWeight : 0.0;
    if (weight == 0.0) reset();
    if (used.empty() && weight == 1.0) return;
    if (!addInChain(used, weight)) addByBlending(used, weight);
}

/// As many terms as fit become stages; the others are blended. False when not even one fits, or when the sum
/// may exceed 1, so that it has to be cut with the lit colour in it.
bool PassesSetup::addInChain(const std::vector<Term> & terms, double previousWeight) {
    if (!isInChain() || previousWeight + sumOfWeights(terms) > 1.0 + epsilon) return false;
    const auto count = static_cast<unsigned>(terms.size());
    for (unsigned n = count; n > 0 || count == 0; --n) {
        const std::vector<Term> part(terms.begin(), terms.begin() + n);
        const double used = sumOfWeights(part);
        const bool scales = surface_ == S_Chain && previousWeight < 1.0 - used - epsilon;
        const bool plain = surface_ == S_Lit && n == 1 && used > 1.0 - epsilon;
        const bool homogeneous = plain || (n == 0 && homogeneous_);
        const unsigned stages = surface_ == S_Chain ? n + (scales ? 1 : 0) : std::max(n, 1U);
        if (fits(stages, homogeneous)) {
            appendSum(part, previousWeight);
            if (n < count) addByBlending({terms.begin() + n, terms.end()}, 1.0);
            return true;
        }
        if (n == 0) break;
    }
    return false;
}

/// Stages for previousWeight * chain + sum of weight * texture, which is at most 1. Each stage goes from what
/// the stages before have to its texture by a constant factor, so that no interim result exceeds 1.
void PassesSetup::appendSum(const std::vector<Term> & terms, double previousWeight) {
    std::vector<double> factors(terms.size());
    double rest = 1.0;
    for (std::size_t i = terms.size(); i-- > 0;) {
        factors[i] = rest > epsilon ? std::min(terms[i].weight / rest, 1.0) : 0.0;
        rest -= terms[i].weight;
    }
    const double base = rest > epsilon ? std::min(previousWeight / rest, 1.0) : 0.0;

    std::size_t next = 0;
    if (surface_ == S_Chain) {
        const bool matters = terms.empty() || rest > epsilon;
        if (matters && base < 1.0 - epsilon)
            appendStage(filler(),
                        newStageWithConstant(base, 1.0, GL_MODULATE, previousColor, constantColor).get());
    } else if (terms.empty()) {
        appendStage(filler(), newStageWithConstant(base, 1.0, GL_REPLACE, constantColor).get());
    } else {
        const double f = factors[next];
        SO<TexEnvCombineGL> stage;
        if (f > 1.0 - epsilon)
            stage = newStage(GL_REPLACE, textureColor);
        else if (base == 0.0)
            stage = newStageWithConstant(f, 1.0, GL_MODULATE, textureColor, constantColor);
        else
            stage = newStageWithConstant(base, f, GL_INTERPOLATE, textureColor, constantColor, constantAlpha);
        appendStage(terms[next++].texture, stage.get());
    }
    for (; next < terms.size(); ++next)
        appendStage(terms[next].texture, newStageWithConstant(0.0, factors[next], GL_INTERPOLATE,
                                                              textureColor, previousColor, constantAlpha)
                                             .get());
}

void PassesSetup::addByBlending(const std::vector<Term> & terms, double previousWeight) {
    amplifyFrameBuffer(previousWeight);
    if (terms.empty()) {
        if (previousWeight < 1.0 - epsilon)
            createNextPass(GL_ZERO, GL_CONSTANT_ALPHA, Color(0.0, 0.0, 0.0, previousWeight));
        return;
    }
    const std::size_t groupSize = units_ > 2 ? units_ - 1 : 1;
    for (std::size_t begin = 0; begin < terms.size(); begin += groupSize) {
        const std::size_t end = std::min(begin + groupSize, terms.size());
        addGroup({terms.begin() + static_cast<std::ptrdiff_t>(begin),
                  terms.begin() + static_cast<std::ptrdiff_t>(end)},
                 begin == 0 ? previousWeight : 1.0);
    }
}

/// The mean of the textures by their weights is blended in, times the sum of the weights: if that exceeds 1,
/// in several passes.
void PassesSetup::addGroup(const std::vector<Term> & group, double previousWeight) {
    const double total = sumOfWeights(group);
    std::vector<Term> mean(group);
    for (Term & term : mean)
        term.weight /= total;
    double rest = total;
    do {
        const double part = std::min(rest, 1.0);
        if (surface_ == S_Lit && previousWeight == 0.0) {
            if (part < 1.0)
                setColorBuffer({true, GL_CONSTANT_COLOR, GL_ZERO, Color(part, part, part, 1.0)}, true, true);
        } else {
            createNextPass(GL_CONSTANT_COLOR, GL_CONSTANT_ALPHA, Color(part, part, part, previousWeight));
        }
        appendSum(mean, 0.0);
        appendLitColor();
        surface_ = S_FrameBuffer;
        previousWeight = 1.0;
        rest -= part;
    } while (rest > epsilon);
}

/// Doubles the picture, or less, until `factor` is at most 1.
void PassesSetup::amplifyFrameBuffer(double & factor) {
    while (factor > 1.0 + epsilon) {
        const double more = std::min(factor - 1.0, 1.0);
        createNextPass(GL_DST_COLOR, GL_ONE);
        appendStage(filler(), newStageWithConstant(more, 1.0, GL_REPLACE, constantColor).get());
        factor /= 1.0 + more;
    }
}

void PassesSetup::decal(const MappedTextureGL & texture, double opacity) {
    const bool isTranslucent = opacity < 1.0;
    if (isInChain() && fits(isTranslucent ? 2 : 1, false)) {
        decalInChain(texture, opacity);
        return;
    }
    createNextPass(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    const SO<TexEnvCombineGL> stage = newStage(GL_MODULATE, textureColor, litColor);
    stage->setAlpha(GL_REPLACE, textureAlpha);
    if (isTranslucent) {
        stage->setEnvironmentColor(Color(0.0, 0.0, 0.0, opacity));
        stage->setAlpha(GL_MODULATE, textureAlpha, constantAlpha);
    }
    appendStage(texture, stage.get());
}

/// Where alpha is not that of the texture alone, one unit makes it and passes the picture on; the next one,
/// with the same texture, uses it and gives the shapes their alpha back.
void PassesSetup::decalInChain(const MappedTextureGL & texture, double opacity) {
    const Argument picture = surface_ == S_Lit ? constantColor : previousColor;
    if (opacity >= 1.0) {
        appendStage(
            texture,
            newStageWithConstant(1.0, 1.0, GL_INTERPOLATE, textureColor, picture, textureAlpha).get());
        return;
    }
    const auto alpha = newStageWithConstant(1.0, opacity, GL_REPLACE, picture);
    alpha->setAlpha(GL_MODULATE, textureAlpha, constantAlpha);
    appendStage(texture, alpha.get());
    const auto mix = newStage(GL_INTERPOLATE, textureColor, previousColor, previousAlpha);
    mix->setAlpha(GL_REPLACE, litAlpha);
    appendStage(texture, mix.get());
}

void PassesSetup::modulate(const MappedTextureGL & texture) {
    const bool hasStages = passes_.back().units > 0;
    if (surface_ != S_FrameBuffer && hasStages && fits(1, homogeneous_)) {
        appendStage(texture, newStage(GL_MODULATE, previousColor, textureColor).get());
        return;
    }
    if (surface_ == S_FrameBuffer || hasStages) createNextPass();
    appendStage(texture, newStage(GL_REPLACE, textureColor).get());
}

void PassesSetup::interpolate(const MappedTextureGL & factor, const MappedTextureGL & texture) {
    if (isInChain() && fits(2, false) && engine_->isVersion(1, 4))
        interpolateInChain(factor, texture);
    else if (units_ >= 2)
        interpolateByBlending(factor, texture);
    else
        interpolateThroughAlpha(factor, texture);
}

/// One unit holds the factor and passes the picture on; the next one uses both textures.
void PassesSetup::interpolateInChain(const MappedTextureGL & factor, const MappedTextureGL & texture) {
    const bool isGrey = factor.texture->channels() == TextureGL::C_Luminance;
    const MappedTextureGL mask = isGrey ? factor : withFactorInAlpha(factor, engine_);
    const Argument maskArgument{GL_TEXTURE0 + passes_.back().units,
                                unsigned(isGrey ? GL_SRC_COLOR : GL_SRC_ALPHA)};
    const Argument picture = surface_ == S_Lit ? constantColor : previousColor;
    appendStage(mask, newStage(GL_REPLACE, previousColor).get());
    appendStage(texture,
                newStageWithConstant(1.0, 1.0, GL_INTERPOLATE, textureColor, picture, maskArgument).get());
}

void PassesSetup::interpolateByBlending(const MappedTextureGL & factor, const MappedTextureGL & texture) {
    createNextPass(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    appendStage(texture, newStage(GL_MODULATE, textureColor, litColor).get());
    const SO<TexEnvCombineGL> stage = newStage(GL_REPLACE, previousColor);
    stage->setAlpha(GL_REPLACE, textureAlpha);
    appendStage(withFactorInAlpha(factor, engine_), stage.get());
}

/// With one unit the factor goes into the alpha of the frame buffer first, which is restored afterwards.
void PassesSetup::interpolateThroughAlpha(const MappedTextureGL & factor, const MappedTextureGL & texture) {
    GLint alphaBits = 0;
    glGetIntegerv(GL_ALPHA_BITS, &alphaBits);
    if (alphaBits == 0) {
        NBX_FAILURE(L"interpolation of textures with one texture unit needs an alpha buffer");
        return;
    }
    completePass();
    beginPass();
    setColorBuffer({}, false, true);
    SO<TexEnvCombineGL> stage = newStage(GL_REPLACE, previousColor);
    stage->setAlpha(GL_REPLACE, textureAlpha);
    appendStage(withFactorInAlpha(factor, engine_), stage.get());

    createNextPass(GL_DST_ALPHA, GL_ONE_MINUS_DST_ALPHA);
    appendStage(texture, newStage(GL_MODULATE, textureColor, litColor).get());

    completePass();
    beginPass();
    setColorBuffer({}, false, true);
}

/// Switches off what was pushed outside for units that a pass does not use.
void PassesSetup::finish() {
    completePass();
    const auto isInUse = [this](unsigned unit) {
        return engine_->getAttribute(TextureUnitSettingGL::category(unit)) ||
               (unit == 0 && engine_->getAttribute(TextureGL::ClassNameNBX()));
    };
    for (const Pass & pass : passes_)
        for (unsigned unit = pass.units; unit < engine_->textureCoordinateSets(); ++unit)
            if (isInUse(unit)) pass.attributes->append(new TextureUnitSettingGL(unit, nullptr));
}

} // namespace NBX
