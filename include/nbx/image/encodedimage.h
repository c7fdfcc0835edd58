#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <nbx/image/imageheader.h>

namespace NBX {

class DataResource;

/// A picture that lies in a file, or in memory as the bytes of one, and is decoded when somebody looks at its
/// pixels, which may be let go again. Size and layers are known from the start, by the file's first bytes.
/// The formats are those of `ImageReader`.
///
/// What cannot be had is reported once, at level 2, and stands as one light grey texel from then on, so that
/// who asked for the size before that still finds the lines that it expects. Pixels are read only.
///
/// Stored are the path, or the bytes, not the pixels.
class EncodedImage : public Image {
    NBX_STORED_CLASS(EncodedImage, Image)
public:
    /// Pictures of more pixels, or of a longer side, are refused before memory is asked for.
    static constexpr std::int64_t maxPixels = std::int64_t{1} << 28;
    static constexpr int maxSide = 1 << 15;

    /// The picture in a file, whose first bytes are read now, and which is opened again for each decoding.
    /// Where it has become another picture meanwhile, that is scaled to the size of the first.
    explicit EncodedImage(const std::string & path);
    /// A picture in memory; `name` is what reports call it. The bytes are kept, not copied.
    EncodedImage(SO<DataResource> data, const std::string & name);
    ~EncodedImage() override;

    /// The same picture without its alpha, undecoded; its name is the same. Null where it has none.
    SO<EncodedImage> withoutAlpha() const;

    /// The path as given; empty for a picture in memory, and for one without its alpha: who opens the file
    /// finds another picture.
    const std::string & fileName() const { return isWithoutAlpha_ ? noFileName_ : fileName_; }
    /// The bytes of a picture in memory; null for one in a file.
    const SO<DataResource> & data() const { return data_; }
    /// What people know the picture by: the path or the name.
    const std::string & name() const { return name_; }
    /// Why bytes are no picture as far as the first of them tell, as a part of a sentence; empty where they
    /// may be one. Reports nothing.
    static std::wstring refusalOf(DataResource & data);
    /// Why there is no picture, as a part of a sentence; empty while none is known.
    std::wstring failure() const;

    /// Size of the picture, 1 by 1 where there is none.
    int width() const override;
    int height() const override;
    bool isWritable() const override { return false; }
    using Image::lineComponents;
    /// Decodes the picture unless it was. Valid until `releasePixels`.
    const void * lineComponents(int y) const override;

    /// The picture, decoded now unless it was, of the size and the layers of this image; null where there is
    /// none. Who holds it keeps its pixels beyond `releasePixels`.
    SO<Image> decoded() const;
    bool isDecoded() const;
    /// Lets the pixels go, to be decoded again when somebody looks at them. Nobody may be using lines of this
    /// image meanwhile.
    void releasePixels();

    /// Attributes "fileName", "name", "data" and "isWithoutAlpha".
    void serialize(SerializationManager & m) override;

private:
    EncodedImage();

    void readHeader();
    SO<DataResource> source() const;
    SO<Image> decode() const;
    SO<Image> decodedLocked(std::wstring & report) const;
    void reportOnce(const std::wstring & report) const;

    inline static const std::string noFileName_;

    std::string fileName_, name_;
    bool isWithoutAlpha_ = false;
    SO<DataResource> data_;
    ImageHeader header_; ///< what was promised, whatever becomes of it

    mutable std::mutex mutex_; ///< for what follows
    mutable SO<Image> pixels_;
    mutable std::wstring failure_;
    mutable std::vector<unsigned char> standInLine_; ///< as wide as was promised
};

} // namespace NBX
