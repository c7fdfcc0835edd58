#pragma once

#include <string>

#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/object/so.h>
#include <nbx/scene/attribute/monoattribute.h>

namespace ZMT::CORE {

/// Stands for a source texture while a tree of textured triangles is built: one that is known by its file is
/// read when it is drawn, and let go afterwards. In a scene it displaces textures, and is displaced by them;
/// nothing paints it. Needs no context, and may be used from any thread.
class TextureWrapper : public NBX::MonoAttribute {
    NBX_STORED_CLASS(TextureWrapper, NBX::MonoAttribute)
public:
    /// A texture in memory. Null is reported under "texture" with "no texture"; the size is then 0.
    explicit TextureWrapper(NBX::SO<NBX::ImageTexture2DGL> texture);
    /// A texture whose image lies in a file, which is read once for its size. One that cannot be read is
    /// reported under "image" with "image file not found", and has the size 0.
    TextureWrapper(const std::wstring & fileName, NBX::TextureGL::WrapMode wrapS,
                   NBX::TextureGL::WrapMode wrapT);
    /// The same where the size is known, so that the file need not be read for it.
    TextureWrapper(const std::wstring & fileName, NBX::TextureGL::WrapMode wrapS,
                   NBX::TextureGL::WrapMode wrapT, int width, int height);

    /// The category of textures.
    NBX::ID category() const override;

    /// True for a texture that is known by its file.
    virtual bool isExtern() const;
    /// Empty for a texture in memory.
    virtual std::wstring getFileName() const;
    /// The texture; one with a file is made anew by each call, from the file. Null where the file cannot be
    /// read any more, which is reported under "image".
    virtual NBX::SO<NBX::ImageTexture2DGL> getTexture() const;
    /// Two wrappers are equal that stand for the same file, or for the same texture in memory.
    virtual bool operator==(const TextureWrapper & other) const;

    NBX::TextureGL::WrapMode getWrapS() const { return wrapS_; }
    NBX::TextureGL::WrapMode getWrapT() const { return wrapT_; }
    /// Of the image, in texels; 0 where there is none.
    int getWidth() const { return width_; }
    int getHeight() const { return height_; }

    /// Attributes "permanentTexture", "temporaryTexture" (always null: a texture made from a file belongs to
    /// who asked for it), "wrapS", "wrapT", "width", "height", "imageFile". Throws `IOError` for wrap modes
    /// and sizes that do not exist.
    void serialize(NBX::SerializationManager & m) override;

protected:
    TextureWrapper();

private:
    NBX::SO<NBX::Image> readImage() const;

    NBX::SO<NBX::ImageTexture2DGL> permanentTexture_;
    NBX::TextureGL::WrapMode wrapS_ = NBX::TextureGL::WM_Repeat, wrapT_ = NBX::TextureGL::WM_Repeat;
    int width_ = 0, height_ = 0;
    std::wstring imageFile_;
};

} // namespace ZMT::CORE
