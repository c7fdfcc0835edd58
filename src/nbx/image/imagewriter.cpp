#include <nbx/image/imagewriter.h>

#include <algorithm>
#include <cctype>

#include <nbx/data/atomicfilewriter.h>
#include <nbx/data/objectsaver.h>
#include <nbx/image/jpegwriter.h>
#include <nbx/image/pngwriter.h>
#include <nbx/object/exception.h>

namespace NBX {

NBX_CLASS_IMPL(ImageWriter, ObjectWriter)

namespace {

constexpr int jpegQuality = 90;

} // namespace

bool ImageWriter::isJPEG(const std::string & path) {
    std::string suffix = File::extensionName(path);
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return suffix == "jpg" || suffix == "jpeg";
}

SO<MemoryDataResource> ImageWriter::encode(const Image * image, const std::string & path) {
    if (isJPEG(path)) return SO<JPEGWriter>(new JPEGWriter(jpegQuality))->write(image);
    return SO<PNGWriter>(new PNGWriter())->write(image);
}

bool ImageWriter::canWrite(const SharedObj * object) const {
    return dynamic_cast<const Image *>(object);
}

std::string ImageWriter::objectFileSuffix() const {
    return "png;jpg;jpeg";
}

std::string ImageWriter::objectFormatName() const {
    return "Image";
}

void ImageWriter::write(const SharedObj * object, const std::string & path) {
    const auto * image = dynamic_cast<const Image *>(object);
    const SO<MemoryDataResource> bytes = image ? encode(image, path) : nullptr;
    if (!bytes) throw IOException(L"image cannot be encoded", path);
    AtomicFileWriter file(path);
    file.write(bytes->pointer(), bytes->size());
    file.commit();
}

static const bool isImageWriterInstalled = (ObjectSaver::install(new ImageWriter()), true);

} // namespace NBX
