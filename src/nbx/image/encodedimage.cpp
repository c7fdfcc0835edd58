// The first bytes give size and layers, and everybody may rely on these until the first line is asked for.
// That decodes all of the picture, in the same form whatever the file has become. Where that fails, a caller
// that knows the former size must find its lines: one line of that width stands for all of them.

#include <nbx/image/encodedimage.h>

#include <nbx/data/dataresource.h>
#include <nbx/image/imagereader.h>
#include <nbx/image/memoryimage.h>
#include <nbx/math/color.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>

#include "nbx/data/lazyfileresource.h"

namespace NBX {

NBX_STORED_CLASS_IMPL(EncodedImage, Image)

namespace {

constexpr Color s_standIn(0.8F);

/// Why there is no picture; thrown and caught here.
struct Unusable {
    std::wstring reason;
};

ImageHeader headerOf(DataResource & data) {
    const auto header = ImageReader::readHeader(&data);
    if (!header) throw Unusable{L"is no JPEG, PNG, BMP or TGA file; convert it to one of these"};
    const std::int64_t pixels = std::int64_t{header->width} * header->height;
    if (pixels > EncodedImage::maxPixels || header->width > EncodedImage::maxSide ||
        header->height > EncodedImage::maxSide)
        throw Unusable{L"has " + std::to_wstring(header->width) + L" by " + std::to_wstring(header->height) +
                       L" pixels, which are too many; make it smaller"};
    return *header;
}

LayerSequence layersWithoutAlpha(LayerSequence sequence) {
    switch (sequence) {
    case LS_RGBA:
        return LS_RGB;
    case LS_BGRA:
        return LS_BGR;
    case LS_LuminanceAlpha:
    case LS_Alpha:
    case LS_Intensity:
        return LS_Luminance;
    default:
        return sequence;
    }
}

/// Calls `look`, which may throw; the reason why it failed, or nothing.
template <class Look> std::wstring failureOf(Look look) {
    try {
        look();
        return {};
    } catch (const Unusable & unusable) {
        return unusable.reason;
    } catch (const Exception & failure) {
        return failure.message();
    } catch (const std::exception & failure) {
        return StringUtils::Utf8String2WString(failure.what());
    }
}

} // namespace

EncodedImage::EncodedImage() : Image(LS_Luminance, UInt8) {}

EncodedImage::EncodedImage(const std::string & path) : EncodedImage() {
    fileName_ = name_ = path;
    readHeader();
}

EncodedImage::EncodedImage(SO<DataResource> data, const std::string & name) : EncodedImage() {
    NBX_CHECK(data, L"no data");
    data_ = data;
    name_ = name;
    readHeader();
}

EncodedImage::~EncodedImage() = default;

SO<DataResource> EncodedImage::source() const {
    if (data_) return data_;
    if (fileName_.empty()) throw Unusable{L"has no data"};
    return new LazyFileResource(fileName_);
}

std::wstring EncodedImage::refusalOf(DataResource & data) {
    return NBX::failureOf([&] { headerOf(data); });
}

void EncodedImage::readHeader() {
    header_ = {1, 1, LS_Luminance, UInt8};
    failure_ = failureOf([&] { header_ = headerOf(*source()); });
    if (isWithoutAlpha_) header_.layerSequence = layersWithoutAlpha(header_.layerSequence);
    setFormat(header_.layerSequence, header_.dataType);
    reportOnce(failure_);
}

SO<EncodedImage> EncodedImage::withoutAlpha() const {
    if (layersWithoutAlpha(layerSequence()) == layerSequence()) return nullptr;
    SO<EncodedImage> result(new EncodedImage());
    result->fileName_ = fileName_;
    result->name_ = name_;
    result->data_ = data_;
    result->isWithoutAlpha_ = true;
    result->readHeader();
    return result;
}

void EncodedImage::reportOnce(const std::wstring & report) const {
    if (!report.empty())
        NBX_FAILURE(L"texture " << StringUtils::Utf8String2WString(name_) << L" is left out: " << report);
}

std::wstring EncodedImage::failure() const {
    const std::lock_guard lock(mutex_);
    return failure_;
}

int EncodedImage::width() const {
    const std::lock_guard lock(mutex_);
    return failure_.empty() ? header_.width : 1;
}

int EncodedImage::height() const {
    const std::lock_guard lock(mutex_);
    return failure_.empty() ? header_.height : 1;
}

/// Null where the bytes are no whole picture. What was promised may be another picture than what lies there
/// now.
SO<Image> EncodedImage::decode() const {
    const SO<DataResource> data = source();
    headerOf(*data);
    const SO<Image> image = ImageReader::read(data.get(), ID());
    if (!image || image->width() <= 0 || image->height() <= 0) return nullptr;
    const bool isAsPromised = image->width() == header_.width && image->height() == header_.height &&
                              image->layerSequence() == layerSequence() && image->dataType() == dataType();
    if (isAsPromised && image->alignment() == 1 && dynamic_cast<MemoryImage *>(image.get())) return image;
    SO<Image> result(new MemoryImage(header_.width, header_.height, layerSequence(), dataType()));
    return result->copy(image.get()) ? result : nullptr;
}

/// Fills `report` the first time that there is none.
SO<Image> EncodedImage::decodedLocked(std::wstring & report) const {
    if (pixels_ || !failure_.empty()) return pixels_;
    failure_ = failureOf([&] {
        pixels_ = decode();
        if (!pixels_) throw Unusable{L"is damaged; get it anew"};
    });
    report = failure_;
    return pixels_;
}

SO<Image> EncodedImage::decoded() const {
    std::wstring report;
    SO<Image> result;
    {
        const std::lock_guard lock(mutex_);
        result = decodedLocked(report);
    }
    reportOnce(report);
    return result;
}

bool EncodedImage::isDecoded() const {
    const std::lock_guard lock(mutex_);
    return bool(pixels_);
}

void EncodedImage::releasePixels() {
    const std::lock_guard lock(mutex_);
    pixels_ = nullptr;
}

const void * EncodedImage::lineComponents(int y) const {
    NBX_CHECK_RANGE(0, y, header_.height);
    if (y < 0 || y >= header_.height) return nullptr;
    if (const SO<Image> image = decoded()) return std::as_const(*image).lineComponents(y);
    const std::lock_guard lock(mutex_);
    if (standInLine_.empty()) {
        const SO<Image> line(new MemoryImage(header_.width, 1, layerSequence(), dataType()));
        for (int x = 0; x < line->width(); ++x)
            line->setColor(x, 0, s_standIn);
        const auto * bytes = static_cast<const unsigned char *>(line->lineComponents(0));
        standInLine_.assign(bytes, bytes + bytesPerLine(line->width(), layerSequence(), dataType(), 1));
    }
    return standInLine_.data();
}

void EncodedImage::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Image>(m, this);
    std::wstring fileName = StringUtils::Utf8String2WString(fileName_),
                 name = StringUtils::Utf8String2WString(name_);
    attributeWithDefault(m, "fileName", fileName, std::wstring());
    attributeWithDefault(m, "name", name, std::wstring());
    attributeWithDefault(m, "data", data_, SO<DataResource>());
    attributeWithDefault(m, "isWithoutAlpha", isWithoutAlpha_, false);
    if (!m.isReading()) return;
    fileName_ = StringUtils::WString2Utf8String(fileName);
    name_ = StringUtils::WString2Utf8String(name);
    pixels_ = nullptr;
    standInLine_.clear();
    readHeader();
}

} // namespace NBX
