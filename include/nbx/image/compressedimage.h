#pragma once

#include <memory>
#include <string>

#include <nbx/image/image.h>

namespace NBX {

class DataResource;

/// Image in a form that graphics cards take as it is. Its lines can be read, from pixels decoded at the first
/// call, but not written. Block formats hold 4 by 4 pixels a block, blocks row by row beginning at line 0;
/// edges that are no multiples of 4 have their last pixels repeated. 16-bit formats hold machine words line
/// by line.
///
/// Stored attributes: "size" and "rawData".
class CompressedImage : public Image {
    NBX_STORED_CLASS(CompressedImage, Image)
public:
    enum Compression : int {
        DXT1 = 0,     ///< S3TC blocks of 8 bytes, no alpha
        DXT1A = 1,    ///< S3TC blocks of 8 bytes, alpha of 1 bit: set from one half on
        DXT3 = 2,     ///< S3TC blocks of 16 bytes, alpha of 4 bits
        DXT5 = 3,     ///< S3TC blocks of 16 bytes, interpolated alpha
        BGRA5551 = 5, ///< blue in the highest 5 bits, then green, red, alpha of 1 bit: set from one half on
        BGRA4444 = 6, ///< blue in the highest 4 bits, then green, red, alpha
        JPEG = 7,     ///< decoded pixels of a JPEG file, 8 bits a layer, lines without padding
    };

    /// Length of the header in `rawData()`: "CPRS", u16 compression, u16 layer sequence (which only `JPEG`
    /// needs; 0 otherwise), u32 width, u32 height, little-endian.
    static constexpr unsigned headerSize = 16;
    /// Largest side.
    static constexpr int maxSize = 65536;

    /// Compresses `image` and gives the result the object name `name`. Without pixels to compress, with a
    /// side above `maxSize` or with an unknown compression: reported, and the image is empty with a
    /// `dataSize()` of 0.
    CompressedImage(Compression compression, const Image * image, const std::wstring & name = L"");
    /// Takes over what `rawData()` of another image gave. Data that do not describe an image are reported as
    /// a failure; the image is then empty.
    explicit CompressedImage(DataResource * rawData);
    ~CompressedImage() override;

    /// Whether data begin as `rawData()` does.
    static bool isRawData(const DataResource & data);
    /// What `rawData()` of a picture is, whose compressed pixels are `bytes` bytes; not for `JPEG`.
    static SO<DataResource> newRawData(Compression compression, int width, int height, const void * pixels,
                                       std::size_t bytes);

    Compression compression() const { return compression_; }
    /// The header and behind it `dataSize()` bytes of pixels; null when the image is empty.
    const SO<DataResource> & rawData() const { return rawData_; }
    /// Bytes of the compressed pixels, without the header.
    unsigned dataSize() const { return dataSize_; }
    static bool isBlockFormat(Compression compression) { return compression >= DXT1 && compression <= DXT5; }
    /// Bytes of the compressed pixels of a picture; 0 for an unknown compression.
    static std::size_t dataSize(Compression compression, int width, int height,
                                LayerSequence sequence = LS_RGBA);

    int width() const override { return width_; }
    int height() const override { return height_; }
    bool isWritable() const override { return false; }
    using Image::lineComponents;
    const void * lineComponents(int y) const override;

    /// Turns bottom to top without loss where height is below 4 or a multiple of 4, or the format has no
    /// blocks; otherwise the picture is decoded and compressed anew.
    void flipY();
    void flip(bool alongX, bool alongY) override;
    /// The decoded pixels in an image of their own.
    SO<Image> uncompressed(bool ownCopy) override;
    /// Levels of the same compression, each made from the uncompressed level before.
    std::vector<SO<Image>> createMipmapPyramid() override;

    void serialize(SerializationManager & m) override;

protected:
    CompressedImage();

private:
    struct Decoded;

    void compress(Compression compression, const Image & image);
    void setRawData(DataResource * rawData);
    void clear();
    const Image & decoded() const;
    const unsigned char * pixelData() const;

    Compression compression_ = DXT1;
    int width_ = 0, height_ = 0;
    unsigned dataSize_ = 0;
    SO<DataResource> rawData_;
    std::unique_ptr<Decoded> decoded_;
};

} // namespace NBX
