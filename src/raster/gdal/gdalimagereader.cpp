// The bands are sorted out first: colours, alpha, palette, or numbers. A call reads a window of a level, from
// the level where the file stores it for that band, else from the full pixels. Colours of more than 8 bits
// are stretched to what most samples hold, unless the file declares what is white, so that dark 16-bit images
// are seen, and so are numbers of any range.

#include "gdalimagereader.h"

#include "gdalrasterband.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

/// A level with no more pixels is looked at as a whole.
constexpr std::int64_t s_mostSamples = 4'000'000;
/// Otherwise as many windows along each side, of so many pixels.
constexpr int s_windows = 16, s_windowSide = 64;
/// Share of the samples that become black, and of those that become white.
constexpr double s_tail = 0.02;

/// As the band stores it; numbers that are not finite are no data either.
class NoData {
public:
    explicit NoData(GDALRasterBand & band) : value_(band) {}
    bool is(double value) const { return !std::isfinite(value) || value_.is(value); }

private:
    GdalNoData value_;
};

std::uint8_t byteOf(double share) {
    return static_cast<std::uint8_t>(std::lround(255.0 * std::clamp(share, 0.0, 1.0)));
}

bool hasNoData(GDALRasterBand & band) {
    int has = FALSE;
    band.GetNoDataValue(&has);
    return has;
}

bool isFloating(GDALRasterBand & band) {
    return GDALDataTypeIsFloating(band.GetRasterDataType());
}

/// The colour that a band has by its kind or its name.
GDALColorInterp meaningOf(GDALRasterBand & band) {
    const GDALColorInterp meaning = band.GetColorInterpretation();
    if (meaning != GCI_Undefined && meaning != GCI_GrayIndex) return meaning;
    const char * name = band.GetDescription();
    return EQUAL(name, "red")     ? GCI_RedBand
           : EQUAL(name, "green") ? GCI_GreenBand
           : EQUAL(name, "blue")  ? GCI_BlueBand
                                  : meaning;
}

/// All of a level, or windows all over it where it is large.
std::vector<GdalWindow> sampleWindows(int columns, int rows) {
    if (std::int64_t(columns) * rows <= s_mostSamples) return {{0, 0, columns, rows}};
    const int width = std::min(columns, s_windowSide), height = std::min(rows, s_windowSide);
    const auto first = [](int all, int side, int i) {
        return static_cast<int>(std::int64_t(all - side) * i / (s_windows - 1));
    };
    std::vector<GdalWindow> windows;
    for (int j = 0; j < s_windows; ++j)
        for (int i = 0; i < s_windows; ++i)
            windows.push_back({first(columns, width, i), first(rows, height, j), width, height});
    return windows;
}

/// The greatest number that is still a colour.
double greatest(GDALDataType type) {
    switch (type) {
    case GDT_Byte:
        return 255.0;
    case GDT_UInt16:
        return 65535.0;
    case GDT_Int16:
        return 32767.0;
    case GDT_UInt32:
        return 4294967295.0;
    case GDT_Int32:
        return 2147483647.0;
    default:
        return 1.0;
    }
}

} // namespace

/// One call: a window of a level, and the size of the result.
class GdalImageReader::Reading {
public:
    Reading(const GdalImageReader & reader, int level, const GdalWindow & window, unsigned width,
            unsigned height)
        : reader_(reader), level_(level), window_(window), width_(width), height_(height) {}

    std::size_t pixels() const { return static_cast<std::size_t>(width_) * height_; }

    template <class T> std::vector<T> read(GDALRasterBand & band, GDALDataType type, bool mayMix) const {
        std::vector<T> result(pixels());
        read(band, type, mayMix, result.data(), sizeof(T));
        return result;
    }

    /// `pixelSpace` is the number of bytes from pixel to pixel of the result.
    void read(GDALRasterBand & band, GDALDataType type, bool mayMix, void * result,
              std::size_t pixelSpace) const {
        GDALRasterIOExtraArg extra;
        INIT_RASTERIO_EXTRA_ARG(extra);
        extra.eResampleAlg = mayMix ? GRIORA_Average : GRIORA_NearestNeighbour;
        GdalErrorTrap trap;
        GDALRasterBand * stored = storedBand(band);
        const GdalWindow w = stored ? window_ : inFile(extra);
        const CPLErr error =
            (stored ? *stored : band)
                .RasterIO(GF_Read, w.x, w.y, w.width, w.height, result, static_cast<int>(width_),
                          static_cast<int>(height_), type, static_cast<GSpacing>(pixelSpace),
                          static_cast<GSpacing>(pixelSpace) * width_, &extra);
        if (error != CE_None || trap.failed())
            throw NBX::InputException(s_unreadable, reader_.source_.path(), 0, trap.text());
    }

private:
    /// The level's pixels of a band; null where the file has none for this band.
    GDALRasterBand * storedBand(GDALRasterBand & band) const {
        if (level_ < 0) return &band;
        GDALRasterBand * overview = level_ < band.GetOverviewCount() ? band.GetOverview(level_) : nullptr;
        const bool fits = overview && overview->GetXSize() == static_cast<int>(reader_.width(level_)) &&
                          overview->GetYSize() == static_cast<int>(reader_.height(level_));
        return fits ? overview : nullptr;
    }

    /// The window in the file's own pixels.
    GdalWindow inFile(GDALRasterIOExtraArg & extra) const {
        const double scaleX = static_cast<double>(reader_.width(-1)) / reader_.width(level_);
        const double scaleY = static_cast<double>(reader_.height(-1)) / reader_.height(level_);
        extra.bFloatingPointWindowValidity = TRUE;
        extra.dfXOff = window_.x * scaleX;
        extra.dfYOff = window_.y * scaleY;
        extra.dfXSize = window_.width * scaleX;
        extra.dfYSize = window_.height * scaleY;
        const auto range = [](double first, double size, unsigned all) {
            const int low = std::clamp(static_cast<int>(first), 0, static_cast<int>(all) - 1);
            const int high =
                std::clamp(static_cast<int>(std::ceil(first + size)), low + 1, static_cast<int>(all));
            return std::pair(low, high - low);
        };
        const auto [x, width] = range(extra.dfXOff, extra.dfXSize, reader_.width(-1));
        const auto [y, height] = range(extra.dfYOff, extra.dfYSize, reader_.height(-1));
        return {x, y, width, height};
    }

    const GdalImageReader & reader_;
    int level_;
    GdalWindow window_;
    unsigned width_, height_;
};

GdalImageReader::GdalImageReader(const GdalSource & source, const ImageColors & colors)
    : source_(source), colors_(colors) {
    GdalErrorTrap trap;
    findBands();
    chooseBands();
    const bool isStretched =
        colors_.stretch == ImageColors::Stretch::Auto || colors_.stretch == ImageColors::Stretch::Range;
    if (isPalette() && isStretched)
        throw NBX::InputException(L"has a palette, whose colours are not stretched", source_.path());
}

void GdalImageReader::findBands() {
    GDALDataset & dataset = source_.dataset();
    std::vector<GDALRasterBand *> others;
    std::array<GDALRasterBand *, 3> named = {};
    for (int i = 1; i <= dataset.GetRasterCount(); ++i) {
        GDALRasterBand * band = dataset.GetRasterBand(i);
        const GDALColorInterp meaning = meaningOf(*band);
        if (meaning == GCI_AlphaBand) {
            alpha_ = band;
            continue;
        }
        if (meaning >= GCI_RedBand && meaning <= GCI_BlueBand)
            named[static_cast<std::size_t>(meaning - GCI_RedBand)] = band;
        others.push_back(band);
    }
    if (others.empty()) others.push_back(dataset.GetRasterBand(1));
    colours_ = static_cast<unsigned>(others.size());
    if (named[0] && named[1] && named[2])
        colour_ = named;
    else if (others.size() >= 3)
        colour_ = {others[0], others[1], others[2]};
    else
        colour_ = {others[0], others[0], others[0]};
}

void GdalImageReader::chooseBands() {
    const auto bands = static_cast<unsigned>(source_.dataset().GetRasterCount());
    for (std::size_t i = 0; i < 3 && !colors_.bands.empty(); ++i) {
        const unsigned chosen = colors_.bands[i % colors_.bands.size()];
        // Resampling may have added an alpha band of its own, which is none of the file.
        if (chosen < 1 || chosen > std::min(bands, source_.bandsOfFile()))
            throw NBX::InputException(L"has no band " + std::to_wstring(chosen) + L", only " +
                                          std::to_wstring(source_.bandsOfFile()),
                                      source_.path());
        colour_[i] = source_.dataset().GetRasterBand(static_cast<int>(chosen));
    }
    if (std::find(colour_.begin(), colour_.end(), alpha_) != colour_.end()) alpha_ = nullptr;
}

bool GdalImageReader::hasMask() const {
    return !(colour_[0]->GetMaskFlags() & (GMF_ALL_VALID | GMF_NODATA | GMF_ALPHA));
}

GDALRasterBand * GdalImageReader::alphaBand() const {
    return alpha_ ? alpha_ : hasMask() ? colour_[0]->GetMaskBand() : nullptr;
}

bool GdalImageReader::hasAlpha() const {
    GdalErrorTrap trap;
    if (alpha_ || hasMask()) return true;
    if (const GDALColorTable * table = isPalette() ? colour_[0]->GetColorTable() : nullptr)
        for (int i = 0; i < table->GetColorEntryCount(); ++i)
            if (table->GetColorEntry(i)->c4 != 255) return true;
    return std::any_of(colour_.begin(), colour_.end(),
                       [](GDALRasterBand * b) { return isFloating(*b) || hasNoData(*b); });
}

bool GdalImageReader::isValues() const {
    const GDALDataType type = colour_[0]->GetRasterDataType();
    return colours_ == 1 && !isPalette() &&
           (type == GDT_Int16 || type == GDT_Int32 || type == GDT_Float32 || type == GDT_Float64);
}

int GdalImageReader::overviews() const {
    GdalErrorTrap trap;
    return colour_[0]->GetOverviewCount();
}

unsigned GdalImageReader::width(int level) const {
    GDALRasterBand * band = level < 0 ? colour_[0] : colour_[0]->GetOverview(level);
    return band ? static_cast<unsigned>(band->GetXSize()) : 0;
}

unsigned GdalImageReader::height(int level) const {
    GDALRasterBand * band = level < 0 ? colour_[0] : colour_[0]->GetOverview(level);
    return band ? static_cast<unsigned>(band->GetYSize()) : 0;
}

unsigned GdalImageReader::blockWidth(int level) const {
    int x = 1, y = 1;
    if (GDALRasterBand * band = level < 0 ? colour_[0] : colour_[0]->GetOverview(level))
        band->GetBlockSize(&x, &y);
    return static_cast<unsigned>(std::max(1, x));
}

unsigned GdalImageReader::blockHeight(int level) const {
    int x = 1, y = 1;
    if (GDALRasterBand * band = level < 0 ? colour_[0] : colour_[0]->GetOverview(level))
        band->GetBlockSize(&x, &y);
    return static_cast<unsigned>(std::max(1, y));
}

/// The value that is full intensity; 0 where the file does not say it.
double GdalImageReader::declaredWhite(GDALRasterBand & band) const {
    if (isFloating(band)) return 0.0;
    const char * bits = band.GetMetadataItem("NBITS", "IMAGE_STRUCTURE");
    const int count = bits ? std::atoi(bits) : 0;
    if (count > 0 && count <= 16) return (1 << count) - 1;
    if (band.GetRasterDataType() == GDT_Byte) return 255.0;
    // This format defines its 16 bits as full intensity; others hold whatever the sensor gave.
    const bool isPng = source_.dataset().GetDriver() && EQUAL(source_.dataset().GetDriverName(), "PNG");
    return isPng && band.GetRasterDataType() == GDT_UInt16 ? 65535.0 : 0.0;
}

/// The coarsest level that is large enough to tell, or the coarsest of all.
int GdalImageReader::sampledLevel() const {
    const auto pixels = [&](int level) { return std::int64_t(width(level)) * height(level); };
    int result = -1;
    for (int i = 0; i < overviews() && pixels(result) > s_mostSamples; ++i)
        if (pixels(i) > 0 && pixels(i) < pixels(result)) result = i;
    return result;
}

/// Values of a band, without those that are no data or transparent.
std::vector<float> GdalImageReader::samples(GDALRasterBand & band) const {
    const int level = sampledLevel();
    GDALRasterBand * alpha = alphaBand();
    const NoData noData(band);
    std::vector<float> result;
    for (const GdalWindow & window :
         sampleWindows(static_cast<int>(width(level)), static_cast<int>(height(level)))) {
        const Reading reading(*this, level, window, static_cast<unsigned>(window.width),
                              static_cast<unsigned>(window.height));
        const auto values = reading.read<float>(band, GDT_Float32, true);
        const auto opacity = alpha ? reading.read<float>(*alpha, GDT_Float32, true) : values;
        for (std::size_t k = 0; k < values.size(); ++k)
            if (!noData.is(values[k]) && (!alpha || opacity[k] > 0.0F)) result.push_back(values[k]);
    }
    return result;
}

GdalImageReader::Range GdalImageReader::sampledRange(GDALRasterBand & band) const {
    std::vector<float> values = samples(band);
    if (values.empty()) return {0.0, 1.0};
    const auto at = [&](double share) -> double {
        const auto rank =
            static_cast<std::ptrdiff_t>(std::lround(share * static_cast<double>(values.size() - 1)));
        std::nth_element(values.begin(), values.begin() + rank, values.end());
        return values[static_cast<std::size_t>(rank)];
    };
    Range range = {at(s_tail), at(1.0 - s_tail)};
    if (!(range.low < range.high)) range = {at(0.0), at(1.0)};
    // One value alone is as bright as it is far from 0.
    if (!(range.low < range.high)) range = {std::min(0.0, range.low), std::max(0.0, range.high)};
    if (!(range.low < range.high)) range.high = range.low + 1.0;
    return range;
}

GdalImageReader::Range GdalImageReader::rangeOf(GDALRasterBand & band) const {
    using Stretch = ImageColors::Stretch;
    const double white = declaredWhite(band);
    if (colors_.stretch == Stretch::Range) return {colors_.low, colors_.high};
    if (colors_.stretch == Stretch::Auto || (colors_.stretch == Stretch::ByType && white == 0.0))
        return sampledRange(band);
    return {0.0, white > 0.0 ? white : greatest(band.GetRasterDataType())};
}

const GdalImageReader::Ranges & GdalImageReader::ranges() const {
    if (ranges_) return *ranges_;
    Ranges found;
    for (std::size_t i = 0; i < channels() && !isPalette(); ++i)
        found[i] = rangeOf(*colour_[i]);
    ranges_ = found;
    return *ranges_;
}

std::uint8_t GdalImageReader::toByte(double value, const Range & range) const {
    const double share = std::clamp((value - range.low) / (range.high - range.low), 0.0, 1.0);
    return byteOf(colors_.gamma == 1.0 ? share : std::pow(share, 1.0 / colors_.gamma));
}

/// Pixels whose every colour band holds its no-data value become transparent.
void GdalImageReader::readColours(const Reading & reading, std::vector<std::uint8_t> & rgba) const {
    std::vector<bool> hasData(reading.pixels(), false);
    for (std::size_t channel = 0; channel < channels(); ++channel) {
        GDALRasterBand & band = *colour_[channel];
        const NoData noData(band);
        const Range & range = ranges()[channel];
        const std::vector<float> values = reading.read<float>(band, GDT_Float32, true);
        for (std::size_t i = 0; i < values.size(); ++i) {
            rgba[4 * i + channel] = std::isfinite(values[i]) ? toByte(values[i], range) : 0;
            if (channels() == 1) rgba[4 * i + 1] = rgba[4 * i + 2] = rgba[4 * i];
            if (!noData.is(values[i])) hasData[i] = true;
        }
    }
    for (std::size_t i = 0; i < hasData.size(); ++i)
        rgba[4 * i + 3] = hasData[i] ? 255 : 0;
}

/// The same for bands of bytes, by tables.
void GdalImageReader::readBytes(const Reading & reading, std::vector<std::uint8_t> & rgba) const {
    const bool isGray = channels() == 1;
    for (std::size_t channel = 0; channel < channels(); ++channel)
        reading.read(*colour_[channel], GDT_Byte, true, rgba.data() + channel, 4);
    std::array<int, 3> noData = {-1, -1, -1};
    std::array<std::array<std::uint8_t, 256>, 3> shown;
    for (std::size_t channel = 0; channel < channels(); ++channel) {
        const NoData none(*colour_[channel]);
        for (int value = 0; value < 256; ++value) {
            if (none.is(value)) noData[channel] = value;
            shown[channel][static_cast<std::size_t>(value)] = toByte(value, ranges()[channel]);
        }
    }
    if (isGray) {
        noData[1] = noData[2] = noData[0];
        shown[1] = shown[2] = shown[0];
    }
    const bool hasHoles = noData[0] >= 0 && noData[1] >= 0 && noData[2] >= 0;
    std::uint8_t * pixel = rgba.data();
    for (std::size_t i = reading.pixels(); i > 0; --i, pixel += 4) {
        if (isGray) pixel[1] = pixel[2] = pixel[0];
        const bool isHole =
            hasHoles && pixel[0] == noData[0] && pixel[1] == noData[1] && pixel[2] == noData[2];
        for (std::size_t channel = 0; channel < 3; ++channel)
            pixel[channel] = shown[channel][pixel[channel]];
        pixel[3] = isHole ? 0 : 255;
    }
}

void GdalImageReader::readPalette(const Reading & reading, std::vector<std::uint8_t> & rgba) const {
    const GDALColorTable & table = *colour_[0]->GetColorTable();
    const auto indices = reading.read<std::uint16_t>(*colour_[0], GDT_UInt16, false);
    const NoData noData(*colour_[0]);
    for (std::size_t i = 0; i < indices.size(); ++i) {
        const GDALColorEntry * entry = table.GetColorEntry(indices[i]);
        const GDALColorEntry none = {0, 0, 0, 0};
        const GDALColorEntry & colour = entry && !noData.is(indices[i]) ? *entry : none;
        rgba[4 * i] = toByte(colour.c1, Range());
        rgba[4 * i + 1] = toByte(colour.c2, Range());
        rgba[4 * i + 2] = toByte(colour.c3, Range());
        rgba[4 * i + 3] = byteOf(colour.c4 / 255.0);
    }
}

/// Multiplies alpha with the alpha band, or with the mask of the file.
void GdalImageReader::readAlpha(const Reading & reading, std::vector<std::uint8_t> & rgba) const {
    GDALRasterBand * band = alphaBand();
    if (!band) return;
    double opaque = alpha_ ? declaredWhite(*band) : 255.0;
    if (opaque == 0.0) opaque = band->GetRasterDataType() == GDT_UInt16 ? 65535.0 : 255.0;
    const std::vector<float> alpha = reading.read<float>(*band, GDT_Float32, true);
    for (std::size_t i = 0; i < alpha.size(); ++i)
        rgba[4 * i + 3] = byteOf(rgba[4 * i + 3] / 255.0 * alpha[i] / opaque);
}

std::vector<std::uint8_t> GdalImageReader::readRgba(int level, const GdalWindow & window, unsigned width,
                                                    unsigned height) const {
    const Reading reading(*this, level, window, width, height);
    GdalErrorTrap trap;
    std::vector<std::uint8_t> rgba(4 * reading.pixels());
    const bool isBytes = std::all_of(colour_.begin(), colour_.end(), [&](GDALRasterBand * band) {
        return band->GetRasterDataType() == GDT_Byte && declaredWhite(*band) == 255.0;
    });
    if (isPalette())
        readPalette(reading, rgba);
    else if (isBytes)
        readBytes(reading, rgba);
    else
        readColours(reading, rgba);
    readAlpha(reading, rgba);
    return rgba;
}

std::vector<float> GdalImageReader::readValues(int level, const GdalWindow & window) const {
    GdalErrorTrap trap;
    const Reading reading(*this, level, window, static_cast<unsigned>(window.width),
                          static_cast<unsigned>(window.height));
    GDALRasterBand & band = *colour_[0];
    std::vector<float> values = reading.read<float>(band, GDT_Float32, true);
    const double scale = band.GetScale(), offset = band.GetOffset();
    const NoData noData(band);
    for (float & value : values)
        value = noData.is(value) ? std::numeric_limits<float>::quiet_NaN()
                                 : static_cast<float>(value * scale + offset);
    GDALRasterBand * alpha = alphaBand();
    if (!alpha) return values;
    const auto valid = reading.read<float>(*alpha, GDT_Float32, true);
    for (std::size_t i = 0; i < values.size(); ++i)
        if (valid[i] == 0.0F) values[i] = std::numeric_limits<float>::quiet_NaN();
    return values;
}

void GdalImageReader::orient(void * pixels, unsigned width, unsigned height,
                             std::size_t bytesPerPixel) const {
    const auto pixel = [&](std::size_t x, std::size_t y) {
        return static_cast<unsigned char *>(pixels) + (y * width + x) * bytesPerPixel;
    };
    const std::size_t lineBytes = width * bytesPerPixel;
    std::vector<unsigned char> line(lineBytes);
    for (unsigned y = 0; y < height / 2 && !source_.isSouthUp(); ++y) {
        std::memcpy(line.data(), pixel(0, y), lineBytes);
        std::memcpy(pixel(0, y), pixel(0, height - 1 - y), lineBytes);
        std::memcpy(pixel(0, height - 1 - y), line.data(), lineBytes);
    }
    if (source_.isMirrored())
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width / 2; ++x)
                std::swap_ranges(pixel(x, y), pixel(x, y) + bytesPerPixel, pixel(width - 1 - x, y));
}

} // namespace ZMT::RASTER
