// Levels come from three stores: those of the file while it has any, then reductions of its last one, read
// anew for each request, then, as soon as one is small enough, a pyramid in memory. The first failure is
// reported and remembered; some formats hide one, so the size of the file is watched as well.

#include <zmt/raster/gdal/imagefilepyramid.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <optional>
#include <vector>

#include "gdalimagereader.h"
#include "gdalsupport.h"

#include <nbx/data/file.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/memorytiledgeoimagepyramid.h>
#include <zmt/raster/pixelblocks.h>
#include <zmt/raster/tiledgeoimage.h>

namespace ZMT::RASTER {

NBX_STORED_CLASS_IMPL(ImageFilePyramid, TiledGeoImagePyramid)

namespace {

/// Stored for an image that may be one of values.
constexpr const char * s_values = "values";

struct PixelFormat {
    NBX::LayerSequence sequence = NBX::LS_RGBA;
    int dataType = NBX::Image::UInt8;
};

PixelFormat formatOf(const GdalImageReader & reader, bool asValues) {
    if (asValues) return {NBX::LS_Luminance, NBX::Image::Float};
    const bool hasAlpha = reader.hasAlpha();
    if (reader.isGray()) return {hasAlpha ? NBX::LS_LuminanceAlpha : NBX::LS_Luminance, NBX::Image::UInt8};
    return {hasAlpha ? NBX::LS_RGBA : NBX::LS_RGB, NBX::Image::UInt8};
}

/// Where the pixels of a level come from.
enum class Store { File, Halving, Memory };

struct LevelInfo {
    Store store;
    int overview; ///< of the file, -1 for its own pixels; of the levels in memory, counted from 0
    unsigned width, height;
    unsigned blockWidth, blockHeight;
};

template <int Layers> void packLine(const std::uint8_t * pixel, unsigned char * target, int width) {
    for (int x = 0; x < width; ++x, pixel += 4, target += Layers) {
        target[0] = pixel[0];
        if constexpr (Layers == 2) target[1] = pixel[3];
        if constexpr (Layers >= 3) std::copy(pixel + 1, pixel + Layers, target + 1);
    }
}

/// The channels of RGBA that an image of colours has.
void packPixels(const std::vector<std::uint8_t> & rgba, NBX::Image & image) {
    using PackLine = void (*)(const std::uint8_t *, unsigned char *, int);
    constexpr PackLine packers[] = {packLine<1>, packLine<2>, packLine<3>, packLine<4>};
    const PackLine pack = packers[image.numberOfLayers() - 1];
    const int width = image.width();
    for (int y = 0; y < image.height(); ++y)
        pack(rgba.data() + 4 * static_cast<std::ptrdiff_t>(y) * width, image.lineComponentsU8(y), width);
}

/// Names that are no files of the file system, such as those of parts of files, stay as they are.
std::string absoluteName(const std::string & path) {
    return NBX::File::exists(path) ? NBX::File::absolutePath(path) : path;
}

std::uint64_t pixelsOf(const LevelInfo & level) {
    return static_cast<std::uint64_t>(level.width) * level.height;
}

} // namespace

struct ImageFilePyramid::Impl : std::enable_shared_from_this<Impl> {
    std::string path, wkt;
    std::optional<ImageColors> colors; ///< none where numbers may stay as they are
    std::optional<GdalSource> source;
    std::optional<GdalImageReader> reader;
    PixelFormat format;
    GeoReference reference;
    GeoExtent extent;
    std::vector<LevelInfo> levels;
    std::size_t storedLevels = 0;
    NBX::SO<NBX::File> file; ///< null where GDAL notices by itself that bytes are missing
    std::uint64_t fileSize = 0;
    NBX::SO<MemoryTiledGeoImagePyramid> memory; ///< null until a level in memory is first read
    std::atomic<bool> failed{false};

    void open();
    void close();
    void findLevels();
    /// Notes the size of the file, for `checkFile`.
    void watchFile();
    /// Throws when the file has become smaller, or was cut off before.
    void checkFile() const;
    NBX::SO<NBX::Image> emptyImage(unsigned width, unsigned height) const;
    /// Inside the level.
    NBX::SO<NBX::Image> read(std::size_t level, const PixelRect & rect);
    NBX::SO<NBX::Image> readFile(const LevelInfo & level, const PixelRect & rect);
    NBX::SO<NBX::Image> readHalving(const LevelInfo & level, const PixelRect & rect);
    NBX::SO<NBX::Image> readMemory(const LevelInfo & level, const PixelRect & rect);
    void fail(const NBX::Exception & reason);
};

/// One level; it keeps the file open.
class ImageFilePyramid::Level : public TiledGeoImage {
    NBX_TEMPLATE_CLASS(Level, TiledGeoImage)
public:
    /// With `inWholeBlocks` it tells the blocks of the file, for a walk over all of them.
    Level(std::shared_ptr<Impl> pyramid, std::size_t index, bool inWholeBlocks = false)
        : pyramid_(std::move(pyramid)), index_(index), info_(pyramid_->levels[index]) {
        if (inWholeBlocks) return;
        info_.blockWidth = std::min(info_.blockWidth, s_largestGranularity);
        info_.blockHeight = std::min(info_.blockHeight, s_largestGranularity);
    }

    unsigned bands() const override {
        return static_cast<unsigned>(NBX::Image::numberOfLayers(pyramid_->format.sequence));
    }
    double minX() const override { return pyramid_->extent.minX; }
    double minY() const override { return pyramid_->extent.minY; }
    double pixelSizeX() const override {
        return (pyramid_->extent.maxX - pyramid_->extent.minX) / info_.width;
    }
    double pixelSizeY() const override {
        return (pyramid_->extent.maxY - pyramid_->extent.minY) / info_.height;
    }
    std::uint64_t pixelsX() const override { return info_.width; }
    std::uint64_t pixelsY() const override { return info_.height; }
    unsigned granularityX() const override { return info_.blockWidth; }
    unsigned granularityY() const override { return info_.blockHeight; }
    bool failed() const override { return pyramid_->failed; }
    NBX::SO<NBX::Image> createEmptyImage(unsigned width, unsigned height) const override {
        return pyramid_->emptyImage(width, height);
    }
    NBX::SO<NBX::Image> getImage(int x, int y, unsigned width, unsigned height) const override;

private:
    std::shared_ptr<Impl> pyramid_;
    std::size_t index_;
    LevelInfo info_;
};

NBX::SO<NBX::Image> ImageFilePyramid::Level::getImage(int x, int y, unsigned width, unsigned height) const {
    return PixelBlocks::readInside(*this, x, y, width, height,
                                   [&](const PixelRect & rect) { return pyramid_->read(index_, rect); });
}

void ImageFilePyramid::Impl::open() {
    GdalErrorTrap trap;
    source.emplace(path, GdalSource::Outside::Transparent, wkt);
    reader.emplace(*source, colors.value_or(ImageColors()));
    const bool asValues = !colors && reader->isValues();
    // Numbers stay as they are where resampling leaves nothing; colours get an alpha for that.
    if (asValues) {
        reader.reset();
        source.emplace(path, GdalSource::Outside::NaN, wkt);
        reader.emplace(*source);
    }
    format = formatOf(*reader, asValues);
    reference = source->reference();
    const RasterGrid grid = source->grid();
    extent = {grid.minX - 0.5 * grid.cellSizeX, grid.minY - 0.5 * grid.cellSizeY,
              grid.minX + (grid.cellsX - 0.5) * grid.cellSizeX,
              grid.minY + (grid.cellsY - 0.5) * grid.cellSizeY};
    findLevels();
    watchFile();
}

void ImageFilePyramid::Impl::close() {
    levels.clear();
    file = nullptr;
    reader.reset();
    source.reset();
}

void ImageFilePyramid::Impl::watchFile() {
    if (source->format() == "GTiff" || !NBX::File::isFile(path)) return;
    file = new NBX::File(path);
    fileSize = file->size();
}

/// Several formats deliver blank pixels for the bytes that a file has no more. The JPEG library complains,
/// but only once.
void ImageFilePyramid::Impl::checkFile() const {
    if ((file && file->size() < fileSize) || (failed && source->format() == "JPEG"))
        throw NBX::InputException(L"the image is damaged or cut off; get it anew", path);
}

void ImageFilePyramid::Impl::findLevels() {
    for (int i = -1; i < reader->overviews(); ++i) {
        const LevelInfo level = {Store::File,           i,
                                 reader->width(i),      reader->height(i),
                                 reader->blockWidth(i), reader->blockHeight(i)};
        const bool isUseful = levels.empty() || (level.width > 0 && level.height > 0 &&
                                                 pixelsOf(level) < pixelsOf(levels.back()));
        if (isUseful) levels.push_back(level);
    }
    storedLevels = levels.size();
    if (pixelsOf(levels.back()) > maxPixels)
        throw NBX::InputException(L"the image is too large to be used without overviews; add some, for "
                                  L"example with gdaladdo",
                                  path);
    int inMemory = 0;
    while (levels.back().width > 1 || levels.back().height > 1) {
        LevelInfo level = levels.back();
        level.width = PixelBlocks::halved(level.width);
        level.height = PixelBlocks::halved(level.height);
        const bool fits = pixelsOf(level) <= memoryPixels;
        level.store = fits ? Store::Memory : Store::Halving;
        level.overview = fits ? inMemory++ : 0;
        if (fits) level.blockWidth = level.blockHeight = 1;
        levels.push_back(level);
    }
}

NBX::SO<NBX::Image> ImageFilePyramid::Impl::emptyImage(unsigned width, unsigned height) const {
    return PixelBlocks::newImage(width, height, format.sequence, format.dataType);
}

NBX::SO<NBX::Image> ImageFilePyramid::Impl::read(std::size_t level, const PixelRect & rect) {
    const LevelInfo & info = levels[level];
    try {
        if (info.store == Store::File) return readFile(info, rect);
        return info.store == Store::Halving ? readHalving(info, rect) : readMemory(info, rect);
    } catch (const NBX::Exception & reason) {
        fail(reason);
        return nullptr;
    }
}

NBX::SO<NBX::Image> ImageFilePyramid::Impl::readFile(const LevelInfo & level, const PixelRect & rect) {
    const NBX::SO<NBX::Image> result =
        emptyImage(static_cast<unsigned>(rect.width), static_cast<unsigned>(rect.height));
    if (!result) return nullptr;
    const int x = static_cast<int>(rect.x), y = static_cast<int>(rect.y);
    const int w = result->width(), h = result->height();
    const GdalWindow window = {source->isMirrored() ? static_cast<int>(level.width) - x - w : x,
                               source->isSouthUp() ? y : static_cast<int>(level.height) - y - h, w, h};
    const auto width = static_cast<unsigned>(w), height = static_cast<unsigned>(h);
    if (format.dataType == NBX::Image::Float) {
        std::vector<float> values = reader->readValues(level.overview, window);
        checkFile();
        for (float & value : values)
            if (!std::isfinite(value)) value = 0.0F;
        reader->orient(values.data(), width, height, sizeof(float));
        for (int line = 0; line < h; ++line)
            std::copy_n(values.data() + static_cast<std::ptrdiff_t>(line) * w, w,
                        static_cast<float *>(result->lineComponents(line)));
        return result;
    }
    std::vector<std::uint8_t> rgba = reader->readRgba(level.overview, window, width, height);
    checkFile();
    reader->orient(rgba.data(), width, height, 4);
    packPixels(rgba, *result);
    return result;
}

NBX::SO<NBX::Image> ImageFilePyramid::Impl::readHalving(const LevelInfo & level, const PixelRect & rect) {
    const std::size_t last = storedLevels - 1;
    const NBX::SO<Level> from(new Level(shared_from_this(), last, true));
    const double scaleX = static_cast<double>(levels[last].width) / level.width;
    const double scaleY = static_cast<double>(levels[last].height) / level.height;
    const auto x = static_cast<double>(rect.x), y = static_cast<double>(rect.y);
    const auto w = static_cast<double>(rect.width), h = static_cast<double>(rect.height);
    return PixelBlocks::read(*from, {x * scaleX, y * scaleY, (x + w) * scaleX, (y + h) * scaleY},
                             static_cast<unsigned>(rect.width), static_cast<unsigned>(rect.height));
}

NBX::SO<NBX::Image> ImageFilePyramid::Impl::readMemory(const LevelInfo & level, const PixelRect & rect) {
    if (!memory) {
        if (failed) return nullptr;
        const auto finest = std::find_if(levels.begin(), levels.end(),
                                         [](const LevelInfo & l) { return l.store == Store::Memory; });
        const NBX::SO<NBX::Image> image = readHalving(*finest, {0, 0, finest->width, finest->height});
        if (!image) return nullptr;
        memory = new MemoryTiledGeoImagePyramid(
            image.get(), NBX::Bounds({extent.minX, extent.minY, 0.0}, {extent.maxX, extent.maxY, 0.0}));
    }
    const NBX::SO<TiledGeoImage> from = memory->overview(static_cast<unsigned>(level.overview));
    return from ? from->getImage(static_cast<int>(rect.x), static_cast<int>(rect.y),
                                 static_cast<unsigned>(rect.width), static_cast<unsigned>(rect.height))
                : nullptr;
}

void ImageFilePyramid::Impl::fail(const NBX::Exception & reason) {
    if (!failed.exchange(true)) NBX_FAILURE(NBX::StringUtils::Utf8String2WString(reason.what()));
}

ImageFilePyramid::ImageFilePyramid() : impl_(std::make_shared<Impl>()) {}

ImageFilePyramid::ImageFilePyramid(const std::string & path, const std::string & wkt) : ImageFilePyramid() {
    impl_->path = path;
    impl_->wkt = wkt;
    impl_->open();
}

ImageFilePyramid::ImageFilePyramid(const std::string & path, const std::string & wkt,
                                   const ImageColors & colors)
    : ImageFilePyramid() {
    impl_->path = path;
    impl_->wkt = wkt;
    impl_->colors = colors;
    impl_->open();
}

ImageFilePyramid::~ImageFilePyramid() = default;

const std::string & ImageFilePyramid::path() const {
    return impl_->path;
}

std::string ImageFilePyramid::colors() const {
    return impl_->colors ? impl_->colors->text() : s_values;
}

const GeoReference & ImageFilePyramid::reference() const {
    return impl_->reference;
}

double ImageFilePyramid::minX() const {
    return impl_->extent.minX;
}

double ImageFilePyramid::minY() const {
    return impl_->extent.minY;
}

double ImageFilePyramid::maxX() const {
    return impl_->extent.maxX;
}

double ImageFilePyramid::maxY() const {
    return impl_->extent.maxY;
}

unsigned ImageFilePyramid::overviews() const {
    return static_cast<unsigned>(impl_->levels.size());
}

unsigned ImageFilePyramid::storedOverviews() const {
    return static_cast<unsigned>(impl_->storedLevels);
}

NBX::SO<TiledGeoImage> ImageFilePyramid::overview(unsigned index) const {
    NBX_CHECK(index < impl_->levels.size(), L"no such level: " << index);
    return index < impl_->levels.size() ? new Level(impl_, index) : nullptr;
}

void ImageFilePyramid::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TiledGeoImagePyramid>(m, this);
    std::wstring fileName = NBX::StringUtils::Utf8String2WString(absoluteName(impl_->path));
    std::wstring wkt = NBX::StringUtils::Utf8String2WString(impl_->wkt);
    attributeWithDefault(m, "fileName", fileName, std::wstring());
    attributeWithDefault(m, "wkt", wkt, std::wstring());
    std::wstring colors = NBX::StringUtils::Utf8String2WString(this->colors());
    attributeWithDefault(m, "colors", colors, NBX::StringUtils::Utf8String2WString(s_values));
    if (!m.isReading()) return;
    impl_ = std::make_shared<Impl>();
    if (const std::string text = NBX::StringUtils::WString2Utf8String(colors); text != s_values)
        impl_->colors = ImageColors::parse(text).value_or(ImageColors());
    impl_->path = NBX::StringUtils::WString2Utf8String(fileName);
    impl_->wkt = NBX::StringUtils::WString2Utf8String(wkt);
    if (impl_->path.empty()) return;
    const std::string here = NBX::File::currentWorkingDir() + NBX::File::fileName(impl_->path);
    if (!NBX::File::exists(impl_->path) && NBX::File::exists(here)) impl_->path = here;
    try {
        impl_->open();
    } catch (const NBX::Exception & reason) {
        impl_->close();
        NBX_FAILURE(NBX::StringUtils::Utf8String2WString(reason.what()));
    }
}

} // namespace ZMT::RASTER
