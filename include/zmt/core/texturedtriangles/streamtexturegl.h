#pragma once

#include <cstddef>
#include <vector>

#include <nbx/data/dataresource.h>
#include <nbx/gl/context/namegl.h>
#include <nbx/gl/texture/texturegl.h>
#include <nbx/image/image.h>
#include <nbx/math/matrix4x4base.h>
#include <zmt/core/texturedtriangles/texturedtriangletree.h>
#include <zmt/core/texturedtriangles/tttmemorycontroller.h>

namespace ZMT::CORE {

/// A texture as a block of bytes, all levels one behind the other, which goes to the card when it is first
/// applied. It may be made on any thread; the rest belongs to the render thread.
///
/// The block has no header. Levels are halves, rounded down, down to one texel. Those of
/// `TextureFormatLuminance8` have 1 byte a texel, those of `TextureFormatRGBA5551` with both sides above 1
/// 2 bytes, those of `TextureFormatDXT1` with both sides above 3 blocks of 8 bytes for 4 by 4 texels; all
/// others have blue, green, red and alpha. What comes from `TextureFormatJPEG` is decoded to
/// `TextureFormatDXT1` before.
///
/// Stored attributes in this order: "width", "height", "data", "matrix", "format" (default 0).
class TTTMemoryController::StreamTexture : public NBX::SharedObj {
    NBX_STORED_CLASS(StreamTexture, NBX::SharedObj)
public:
    using TextureFormat = TexturedTriangleTree::TextureFormat;

    /// One level of a block.
    struct Level {
        int width, height;
        enum Coding { Luminance, BGRA, BGRA5551, DXT1 } coding;
        std::size_t bytes;
    };

    /// Codes an image. Null, and one without pixels, is reported; the texture then has no data.
    StreamTexture(NBX::SO<NBX::Image> image, TextureFormat format);
    /// A block as it came from a file. Sides that cannot be are reported, and count as 0.
    StreamTexture(int width, int height, NBX::SO<NBX::DataResource> data, TextureFormat format);
    ~StreamTexture() override;

    int width() const { return width_; }
    int height() const { return height_; }
    TextureFormat format() const { return format_; }
    /// The block; null when it was let go.
    NBX::SO<NBX::DataResource> data() const { return data_; }
    void setMatrix(const NBX::Matrix4x4Base<double> & matrix);
    const NBX::Matrix4x4Base<double> & getMatrix() const { return matrix_; }
    /// Whether the block is let go once the card has it, as at first.
    void enableUnrefAfterBinding(bool enable) { unrefAfterBinding_ = enable; }

    /// With true: pushes the texture matrix, and enables and binds the texture on the active unit, after
    /// sending it to the card the first time. False when there is nothing to bind: the block ends too early,
    /// which is reported once, or there is none. With false: undoes it, whatever came of it. Needs a current
    /// context.
    bool apply(bool apply);
    /// How it is continued from now on; at first it repeats. What is no kind of repeating is its edge. To be
    /// called while it is bound.
    void setWrap(NBX::TextureGL::WrapMode s, NBX::TextureGL::WrapMode t);

    /// Whether the card has it.
    bool isUploaded() const { return bool(name_); }
    /// OpenGL's name; 0 before.
    unsigned textureId() const { return name_.get(); }
    /// Whether the block holds all levels that go to the card.
    bool isComplete() const;
    /// Bytes of the block, as long as it is here, and of the texels on the card, also before they are there.
    std::uint64_t memoryBytes() const;

    /// The levels of a block that go to the card: all, but those of `TextureFormatDXT1` end with the first
    /// that has a side below 8. None for sides below 1, or above `s_largestSide`.
    static std::vector<Level> levels(int width, int height, TextureFormat format);
    /// Bytes of a block with all levels.
    static std::uint64_t blockBytes(int width, int height, TextureFormat format);
    /// Bytes of those that go to the card in the block, and there.
    static std::uint64_t levelBytes(int width, int height, TextureFormat format);
    static std::uint64_t textureBytes(int width, int height, TextureFormat format);

    void serialize(NBX::SerializationManager & m) override;

protected:
    /// Without data.
    StreamTexture();

private:
    void upload();

    int width_ = 0, height_ = 0;
    NBX::SO<NBX::DataResource> data_;
    NBX::NameGL name_;
    NBX::Matrix4x4Base<double> matrix_;
    bool unrefAfterBinding_ = true;
    TextureFormat format_ = TexturedTriangleTree::TextureFormatRGBA8;
    std::uint64_t textureBytes_ = 0; ///< of the sizes above
    bool isReported_ = false;        ///< that the block ends too early
    NBX::TextureGL::WrapMode wrapS_ = NBX::TextureGL::WM_Repeat, wrapT_ = NBX::TextureGL::WM_Repeat;
};

} // namespace ZMT::CORE
