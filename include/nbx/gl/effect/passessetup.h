#pragma once

#include <vector>

#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/texture/texenvcombinegl.h>
#include <nbx/gl/texture/texgengl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/attributecomposite.h>

namespace NBX {

class EngineGL;

/// A texture with its mapping.
struct MappedTextureGL {
    SO<TextureGL> texture;
    SO<TexGenGL> texGen; ///< null for the engine's current one
};

/// The passes in which shapes are drawn under texturing effects, while they are being set up from the bottom
/// effect to the top.
///
/// The picture so far lies either in the chain of texture stages of the current pass, where further stages
/// may work on it, or, behind a finished pass, in the frame buffer, on which the next pass is blended. In the
/// chain it is kept without the lit colour of the shapes as long as possible: every operation here but an
/// addition that exceeds 1 gives the same when the lit colour is multiplied in at the end.
///
/// The alpha that a pass leaves in the frame buffer is that of the shapes.
class PassesSetup {
public:
    /// Starts with one pass that shows the lit colour. `engine` is borrowed, and its context is current.
    explicit PassesSetup(EngineGL * engine);
    ~PassesSetup();
    PassesSetup(const PassesSetup &) = delete;
    PassesSetup & operator=(const PassesSetup &) = delete;

    /// The operations of the texturing effects. Each makes the new picture from the one so far; `lit` is the
    /// lit colour of the shapes.
    struct Term {
        MappedTextureGL texture;
        double weight;
    };
    /// previousWeight * picture + sum of weight * texture * lit. Weights not above 0 count as 0.
    void add(const std::vector<Term> & terms, double previousWeight);
    /// alpha * texture * lit + (1 - alpha) * picture, with the alpha of the texture times `opacity`, from 0
    /// to 1.
    void decal(const MappedTextureGL & texture, double opacity = 1.0);
    /// picture * texture.
    void modulate(const MappedTextureGL & texture);
    /// factor * texture * lit + (1 - factor) * picture, with the alpha of `factor` where it has one, else its
    /// luminance. With a single texture unit and no alpha buffer that is reported, and left out.
    void interpolate(const MappedTextureGL & factor, const MappedTextureGL & texture);

    /// For effects that bring their own stages.
    unsigned numberOfPasses() const { return static_cast<unsigned>(passes_.size()); }
    /// Whether stages of the current pass hold the picture. If not, stages may be appended that make a factor
    /// for what the current pass stands for: the lit colour in the first pass, the picture in a pass made
    /// with `createNextPass`.
    bool surfaceContainsColorInCurrentPass() const;
    unsigned texturesUsedInCurrentPass() const;
    /// Stages that can still be appended to the current pass, with one left for the lit colour.
    unsigned freeUnitsInCurrentPass() const;
    /// Finishes the current pass, and begins one whose colour multiplies the picture in the frame buffer.
    void createNextPass();
    /// The same with other blending. Alpha in the frame buffer stays as it is.
    void createNextPass(unsigned sourceFactor, unsigned targetFactor,
                        const Color & constant = Color(0.0F, 0.0F, 0.0F, 0.0F));
    /// Appends a stage on the next texture unit. Its arguments may use GL_PREVIOUS but in the first stage of
    /// a pass, where that is the lit colour. Without a texture unit left it is reported, and left out.
    void appendStage(const MappedTextureGL & texture, TexEnvCombineGL * stage);
    /// Attributes that hold while the current pass is drawn.
    AttributeComposite * getCurrentPass() const;

    /// Completes the last pass. Nothing may be added afterwards.
    void finish();
    AttributeComposite * pass(unsigned i) const { return passes_[i].attributes.get(); }

private:
    enum Surface {
        S_Lit,         ///< nothing in the chain: the picture is the lit colour
        S_Chain,       ///< the chain times the lit colour is the picture
        S_Factor,      ///< the chain is a factor for the picture in the frame buffer
        S_FrameBuffer, ///< the pass is complete
    };
    struct Pass {
        SO<AttributeComposite> attributes;
        unsigned units = 0;
        SO<TextureGL> firstTexture;
        SO<TexGenGL> firstTexGen;
        SO<TexEnvCombineGL> firstStage;
    };

    void reset();
    void beginPass();
    void completePass();
    void appendLitColor();
    bool fits(unsigned stages, bool homogeneous) const;
    bool isInChain() const { return surface_ == S_Lit || surface_ == S_Chain; }
    void setColorBuffer(const ColorBufferGL::Blending & blending, bool color, bool alpha);

    bool addInChain(const std::vector<Term> & terms, double previousWeight);
    void addByBlending(const std::vector<Term> & terms, double previousWeight);
    void addGroup(const std::vector<Term> & group, double previousWeight);
    void amplifyFrameBuffer(double & factor);
    void appendSum(const std::vector<Term> & terms, double previousWeight);
    void interpolateInChain(const MappedTextureGL & factor, const MappedTextureGL & texture);
    void interpolateByBlending(const MappedTextureGL & factor, const MappedTextureGL & texture);
    void decalInChain(const MappedTextureGL & texture, double opacity);
    void interpolateThroughAlpha(const MappedTextureGL & factor, const MappedTextureGL & texture);

    EngineGL * engine_;
    unsigned units_;
    bool userWrites_[4];
    std::vector<Pass> passes_;
    Surface surface_ = S_Lit;
    /// Whether all stages behind the first, which shows a texture, multiply: the first can then take the lit
    /// colour in.
    bool homogeneous_ = false;
};

} // namespace NBX
