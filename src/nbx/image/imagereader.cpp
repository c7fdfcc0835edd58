#include <nbx/image/imagereader.h>

#include <nbx/data/objectloader.h>
#include <nbx/image/bitmapreader.h>
#include <nbx/image/compressedimage.h>
#include <nbx/image/jpegreader.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/pngreader.h>

namespace NBX {

NBX_CLASS_IMPL(ImageReader, ObjectReader)

namespace {

SO<Image> readJPEG(const DataResource * data) {
    const SO<JPEGReader> reader(new JPEGReader());
    reader->setProgressBarEnabled(false);
    return reader->read(data);
}

SO<Image> readPNG(const DataResource * data) {
    const SO<PNGReader> reader(new PNGReader());
    return reader->read(data);
}

SO<Image> readBitmap(const DataResource * data) {
    const SO<BitmapReader> reader(new BitmapReader());
    return reader->read(data);
}

SO<Image> readCompressed(DataResource * data) {
    if (!CompressedImage::isRawData(*data)) return nullptr;
    const SO<CompressedImage> image(new CompressedImage(data));
    return image->dataSize() ? SO<Image>(image) : SO<Image>();
}

} // namespace

SO<Image> ImageReader::read(DataResource * data, const ID & format) {
    if (!data) return nullptr;
    if (format == ID("jpg") || format == ID("jpeg")) return readJPEG(data);
    if (format == ID("png")) return readPNG(data);
    if (format == ID("bmp") || format == ID("tga")) return readBitmap(data);
    if (format == ID("cprs")) return readCompressed(data);
    if (JPEGReader::recognizes(data)) return readJPEG(data);
    if (PNGReader::recognizes(data)) return readPNG(data);
    // TGA files have no mark of their own.
    return CompressedImage::isRawData(*data) ? readCompressed(data) : readBitmap(data);
}

std::optional<ImageHeader> ImageReader::readHeader(DataResource * data) {
    if (!data) return std::nullopt;
    if (JPEGReader::recognizes(data)) return JPEGReader::readHeader(data);
    if (PNGReader::recognizes(data)) return PNGReader::readHeader(data);
    if (!CompressedImage::isRawData(*data)) return BitmapReader::readHeader(data);
    const SO<Image> image = readCompressed(data);
    if (!image) return std::nullopt;
    return ImageHeader{image->width(), image->height(), image->layerSequence(), image->dataType()};
}

bool ImageReader::canProduce(const ID & className) const {
    return MemoryImage::ClassInfoNBX()->isA(className) || CompressedImage::ClassInfoNBX()->isA(className);
}

std::string ImageReader::objectFileSuffix() const {
    return "jpg;jpeg;png;bmp;tga";
}

std::string ImageReader::objectFormatName() const {
    return "Image";
}

SO<SharedObj> ImageReader::read(DataResource * resource) {
    return read(resource, ID());
}

static const bool isImageReaderInstalled = (ObjectLoader::install(new ImageReader()), true);

} // namespace NBX
