#pragma once

#include <cstdint>

#include <nbx/gl/context/namegl.h>
#include <nbx/math/color.h>
#include <nbx/math/matrix4x4base.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace NBX {

class EngineGL;

/// A texture, and how it is sampled. Pushed on an engine it covers what follows on texture unit 0; other
/// units take it through `TextureUnitSettingGL`. Its matrix maps texture coordinates, generated or given, to
/// the unit square.
///
/// It may be made and dropped on any thread. The OpenGL texture is made by the first `bind`, and shared by
/// all contexts of the process.
///
/// Stored attributes: "wrapS", "wrapT", "wrapR" (default 0), "minFilter" (2), "magFilter" (1), "anisotropy"
/// (1.0), "matrix" (identity), "borderColor" and "borderAlpha" (0).
class TextureGL : public MonoAttribute {
    NBX_CLASS(TextureGL, MonoAttribute)
public:
    /// The numbers stand in files. Magnification takes `FM_Nearest` and `FM_Linear`; other values are as
    /// `FM_Linear` there. A mipmapping filter on a texture that cannot have mipmaps is as `FM_Linear`.
    enum FilterMode {
        FM_Nearest = 0,
        FM_Linear = 1,
        FM_LinearMipmapLinear = 2,
        FM_NearestMipmapNearest = 3,
        FM_LinearMipmapNearest = 4,
        FM_NearestMipmapLinear = 5,
    };
    /// The numbers stand in files.
    enum WrapMode {
        WM_Repeat = 0,
        WM_Clamp = 1, ///< half border, half edge where filtered
        WM_ClampToEdge = 2,
        WM_ClampToBorder = 3,
        WM_MirroredRepeat = 4,
    };
    /// What the texels hold.
    enum Channels {
        C_Luminance,      ///< one value; alpha is 1
        C_LuminanceAlpha, ///< luminance, alpha or intensity: grey with an alpha of its own
        C_RGB,            ///< alpha is 1
        C_RGBA,
        C_Depth,
    };

    ~TextureGL() override;

    /// The name of this class for all subclasses.
    ID category() const override;

    void setMinFilter(FilterMode mode);
    FilterMode getMinFilter() const { return minFilter_; }
    void setMagFilter(FilterMode mode);
    FilterMode getMagFilter() const { return magFilter_; }
    static bool usesMipmaps(FilterMode mode) { return mode >= FM_LinearMipmapLinear; }

    /// All directions at once.
    void setWrap(WrapMode mode);
    void setWrapS(WrapMode mode);
    void setWrapT(WrapMode mode);
    void setWrapR(WrapMode mode);
    WrapMode getWrapS() const { return wrapS_; }
    WrapMode getWrapT() const { return wrapT_; }
    WrapMode getWrapR() const { return wrapR_; }

    /// From 1.0, none, upwards; what the driver cannot do is cut to its maximum. Mesa's software renderer
    /// does without where there are no mipmaps.
    void setAnisotropy(double anisotropy);
    double getAnisotropy() const { return anisotropy_; }
    /// What is seen beyond the edges with the wrap modes that have a border.
    void setBorderColor(const Color & color);
    const Color & getBorderColor() const { return borderColor_; }

    void setMatrix(const Matrix4x4Base<double> & matrix);
    const Matrix4x4Base<double> & getMatrix() const { return matrix_; }

    /// GL_TEXTURE_2D or another target.
    virtual unsigned target() const = 0;
    virtual Channels channels() const = 0;
    bool hasAlpha() const { return channels() == C_LuminanceAlpha || channels() == C_RGBA; }

    /// Binds the texture to its target on the active unit, after bringing the OpenGL texture up to date. The
    /// engine's context is current.
    void bind(EngineGL * engine) const;
    /// The OpenGL texture; 0 before the first `bind`.
    unsigned name() const { return name_.get(); }
    /// Gives the OpenGL texture up; the next `bind` makes a new one from what is left.
    void dropName();

    /// A texture with the same mapping whose red, green, blue and alpha are this one's luminance
    /// (0.299 R + 0.587 G + 0.114 B). Made on first use and when the content changed, by reading the texels
    /// back. Null for depth textures, and for targets other than GL_TEXTURE_2D. The context is current.
    SO<TextureGL> luminanceMask(EngineGL * engine) const;

    void serialize(SerializationManager & m) override;

protected:
    TextureGL(bool enabled);

    /// Whether the texels have to be sent, to a new OpenGL texture or because they changed.
    virtual bool needsUpload() const = 0;
    /// Sends the texels to the texture that is bound to `target()`, with mipmaps when `withMipmaps`. `isNew`
    /// tells that it has no texels yet. Returns whether there are mipmaps now.
    virtual bool upload(EngineGL * engine, bool isNew, bool withMipmaps) const = 0;
    /// Makes mipmaps from the largest level that the OpenGL texture has; false when that is not possible.
    virtual bool generateMipmaps(EngineGL * engine) const;
    /// Side lengths of the largest level.
    virtual unsigned textureWidth() const = 0;
    virtual unsigned textureHeight() const = 0;

private:
    /// What was last set on the OpenGL texture.
    struct Parameters {
        unsigned minFilter = 0, magFilter = 0;
        unsigned wrapS = 0, wrapT = 0, wrapR = 0;
        double anisotropy = 0.0;
        Color borderColor;
        bool operator==(const Parameters &) const = default;
    };

    Parameters wantedParameters() const;
    void emitParameters(EngineGL * engine) const;

    FilterMode minFilter_ = FM_LinearMipmapLinear, magFilter_ = FM_Linear;
    WrapMode wrapS_ = WM_Repeat, wrapT_ = WM_Repeat, wrapR_ = WM_Repeat;
    double anisotropy_ = 1.0;
    Color borderColor_{0.0F, 0.0F, 0.0F, 0.0F};
    Matrix4x4Base<double> matrix_;

    mutable NameGL name_;
    mutable Parameters emitted_;
    mutable bool hasMipmaps_ = false;
    mutable std::uint64_t uploads_ = 0; ///< number of the upload that made the content
    mutable SO<TextureGL> mask_;
    mutable std::uint64_t maskedUpload_ = 0;
};

} // namespace NBX
