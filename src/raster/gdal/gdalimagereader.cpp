// The bands are sorted out first: colours, alpha, palette, or numbers. A call reads a window of a level, from
// the level where the file stores it for that band, else from the full pixels. Colours of more than 8 bits
// are scaled by what the file declares as white, or by the greatest value found, so that dark 16-bit images
// are seen.

#include "gdalimagereader.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

/// Side of the reduced image in which the greatest value of a file is searched for.
constexpr int whiteSamples = 1024;

bool isNoData(GDALRasterBand & band, double value) {
    int has = FALSE;
    const double noData = band.GetNoDataValue(&has);
    return std::isnan(value) || (has && static_cast<float>(noData) == static_cast<float>(value));
}

std::uint8_t toByte(double share) {
    return static_cast<std::uint8_t>(std::lround(255.0 * std::clamp(share, 0.0, 1.0)));
}

bool hasNoData(GDALRasterBand & band) {
    int has = FALSE;
    band.GetNoDataValue(&has);
    return has;
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
            throw NBX::InputException(L"the image is damaged or cut off; get it anew", reader_.source_.path(),
                                      0, trap.text());
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

GdalImageReader::GdalImageReader(const GdalSource & source) : source_(source) {
    GdalErrorTrap trap;
    findBands();
}

void GdalImageReader::findBands() {
    GDALDataset & dataset = source_.dataset();
    std::vector<GDALRasterBand *> others;
    std::array<GDALRasterBand *, 3> named = {};
    for (int i = 1; i <= dataset.GetRasterCount(); ++i) {
        GDALRasterBand * band = dataset.GetRasterBand(i);
        const GDALColorInterp meaning = band->GetColorInterpretation();
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

bool GdalImageReader::hasMask() const {
    return !(colour_[0]->GetMaskFlags() & (GMF_ALL_VALID | GMF_NODATA | GMF_ALPHA));
}

bool GdalImageReader::hasAlpha() const {
    GdalErrorTrap trap;
    if (alpha_ || hasMask()) return true;
    if (const GDALColorTable * table = colour_[0]->GetColorTable())
        for (int i = 0; i < table->GetColorEntryCount(); ++i)
            if (table->GetColorEntry(i)->c4 != 255) return true;
    const bool isFloat = GDALDataTypeIsFloating(colour_[0]->GetRasterDataType());
    return isFloat ||
           std::any_of(colour_.begin(), colour_.end(), [](GDALRasterBand * b) { return hasNoData(*b); });
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

/// The value that is full intensity; 0 where it has to be found in the pixels.
double GdalImageReader::declaredWhite(GDALRasterBand & band) const {
    const char * bits = band.GetMetadataItem("NBITS", "IMAGE_STRUCTURE");
    const int count = bits ? std::atoi(bits) : 0;
    if (count > 0 && count <= 16) return (1 << count) - 1;
    if (band.GetRasterDataType() == GDT_Byte) return 255.0;
    // This format defines its 16 bits as full intensity; others hold whatever the sensor gave.
    const bool isPng = source_.dataset().GetDriver() && EQUAL(source_.dataset().GetDriverName(), "PNG");
    return isPng && band.GetRasterDataType() == GDT_UInt16 ? 65535.0 : 0.0;
}

double GdalImageReader::foundWhite(const Reading & reading) const {
    double white = 0.0;
    for (std::size_t i = 0; i < (colour_[0] == colour_[1] ? 1U : 3U); ++i)
        for (float value : reading.read<float>(*colour_[i], GDT_Float32, true))
            if (std::isfinite(value) && !isNoData(*colour_[i], value)) white = std::max<double>(white, value);
    return white > 0.0 ? white : 1.0;
}

void GdalImageReader::findWhite() {
    GdalErrorTrap trap;
    if (isPalette() || white_ > 0.0) return;
    white_ = declaredWhite(*colour_[0]);
    if (white_ > 0.0) return;
    const int columns = static_cast<int>(width(-1)), rows = static_cast<int>(height(-1));
    const auto size = [](int all) { return static_cast<unsigned>(std::min(all, whiteSamples)); };
    white_ = foundWhite(Reading(*this, -1, {0, 0, columns, rows}, size(columns), size(rows)));
}

/// Pixels whose every colour band holds its no-data value become transparent.
void GdalImageReader::readColours(const Reading & reading, std::vector<std::uint8_t> & rgba) const {
    double white = white_ > 0.0 ? white_ : declaredWhite(*colour_[0]);
    if (white == 0.0) white = foundWhite(reading);
    std::vector<bool> hasData(reading.pixels(), false);
    for (std::size_t channel = 0; channel < 3; ++channel) {
        if (channel > 0 && colour_[0] == colour_[1]) break;
        GDALRasterBand & band = *colour_[channel];
        const std::vector<float> values = reading.read<float>(band, GDT_Float32, true);
        for (std::size_t i = 0; i < values.size(); ++i) {
            rgba[4 * i + channel] = std::isfinite(values[i]) ? toByte(values[i] / white) : 0;
            if (colour_[0] == colour_[1]) rgba[4 * i + 1] = rgba[4 * i + 2] = rgba[4 * i];
            if (!isNoData(band, values[i])) hasData[i] = true;
        }
    }
    for (std::size_t i = 0; i < hasData.size(); ++i)
        rgba[4 * i + 3] = hasData[i] ? 255 : 0;
}

/// The same for bands of bytes, of which every value is one already.
void GdalImageReader::readBytes(const Reading & reading, std::vector<std::uint8_t> & rgba) const {
    const bool isGray = colour_[0] == colour_[1];
    for (std::size_t channel = 0; channel < (isGray ? 1U : 3U); ++channel)
        reading.read(*colour_[channel], GDT_Byte, true, rgba.data() + channel, 4);
    std::array<int, 3> noData = {-1, -1, -1};
    for (std::size_t channel = 0; channel < 3; ++channel)
        for (int value = 0; value < 256; ++value)
            if (isNoData(*colour_[channel], value)) noData[channel] = value;
    const bool hasHoles = noData[0] >= 0 && noData[1] >= 0 && noData[2] >= 0;
    std::uint8_t * pixel = rgba.data();
    for (std::size_t i = reading.pixels(); i > 0; --i, pixel += 4) {
        if (isGray) pixel[1] = pixel[2] = pixel[0];
        const bool isHole =
            hasHoles && pixel[0] == noData[0] && pixel[1] == noData[1] && pixel[2] == noData[2];
        pixel[3] = isHole ? 0 : 255;
    }
}

void GdalImageReader::readPalette(const Reading & reading, std::vector<std::uint8_t> & rgba) const {
    const GDALColorTable & table = *colour_[0]->GetColorTable();
    const auto indices = reading.read<std::uint16_t>(*colour_[0], GDT_UInt16, false);
    for (std::size_t i = 0; i < indices.size(); ++i) {
        const GDALColorEntry * entry = table.GetColorEntry(indices[i]);
        const GDALColorEntry none = {0, 0, 0, 0};
        const GDALColorEntry & colour = entry && !isNoData(*colour_[0], indices[i]) ? *entry : none;
        rgba[4 * i] = toByte(colour.c1 / 255.0);
        rgba[4 * i + 1] = toByte(colour.c2 / 255.0);
        rgba[4 * i + 2] = toByte(colour.c3 / 255.0);
        rgba[4 * i + 3] = toByte(colour.c4 / 255.0);
    }
}

/// Multiplies alpha with the alpha band, or with the mask of the file.
void GdalImageReader::readAlpha(const Reading & reading, std::vector<std::uint8_t> & rgba) const {
    if (!alpha_ && !hasMask()) return;
    GDALRasterBand & band = alpha_ ? *alpha_ : *colour_[0]->GetMaskBand();
    double opaque = alpha_ ? declaredWhite(band) : 255.0;
    if (opaque == 0.0) opaque = band.GetRasterDataType() == GDT_UInt16 ? 65535.0 : 255.0;
    const std::vector<float> alpha = reading.read<float>(band, GDT_Float32, true);
    for (std::size_t i = 0; i < alpha.size(); ++i)
        rgba[4 * i + 3] = toByte(rgba[4 * i + 3] / 255.0 * alpha[i] / opaque);
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
    for (float & value : values)
        value = isNoData(band, value) ? std::numeric_limits<float>::quiet_NaN()
                                      : static_cast<float>(value * scale + offset);
    if (!alpha_ && !hasMask()) return values;
    const auto valid = reading.read<float>(alpha_ ? *alpha_ : *band.GetMaskBand(), GDT_Float32, true);
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
