#include <zmt/raster/gdal/imagefile.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <vector>

#include "gdalsource.h"

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace ZMT::RASTER {

namespace {

/// A rectangle of pixels of the file.
struct PixelWindow {
    int x, y, width, height;
};

/// The bands that make up a colour; null where there is none. Gray has one band in all three places.
struct ColourBands {
    std::array<GDALRasterBand *, 3> colour;
    GDALRasterBand * alpha = nullptr;
    bool isPalette() const { return colour[0]->GetColorTable() != nullptr; }
    bool isGray() const { return colour[0] == colour[1]; }
};

ColourBands findBands(GDALDataset & dataset) {
    ColourBands result;
    std::vector<GDALRasterBand *> others;
    std::array<GDALRasterBand *, 3> named = {};
    for (int i = 1; i <= dataset.GetRasterCount(); ++i) {
        GDALRasterBand * band = dataset.GetRasterBand(i);
        const GDALColorInterp meaning = band->GetColorInterpretation();
        if (meaning == GCI_AlphaBand) {
            result.alpha = band;
            continue;
        }
        if (meaning >= GCI_RedBand && meaning <= GCI_BlueBand) named[meaning - GCI_RedBand] = band;
        others.push_back(band);
    }
    if (others.empty()) others.push_back(dataset.GetRasterBand(1));
    if (named[0] && named[1] && named[2])
        result.colour = named;
    else if (others.size() >= 3)
        result.colour = {others[0], others[1], others[2]};
    else
        result.colour = {others[0], others[0], others[0]};
    return result;
}

/// Reads windows of bands, reduced to a wanted size.
class WindowReader {
public:
    WindowReader(const GdalSource & source, const PixelWindow & window, unsigned width, unsigned height)
        : source_(source), window_(window), width_(width), height_(height) {}

    std::size_t pixels() const { return static_cast<std::size_t>(width_) * height_; }
    template <class T> std::vector<T> read(GDALRasterBand & band, GDALDataType type, bool mayMix) const {
        std::vector<T> result(pixels());
        GDALRasterIOExtraArg extra;
        INIT_RASTERIO_EXTRA_ARG(extra);
        extra.eResampleAlg = mayMix ? GRIORA_Average : GRIORA_NearestNeighbour;
        GdalErrorTrap trap;
        const CPLErr error =
            band.RasterIO(GF_Read, window_.x, window_.y, window_.width, window_.height, result.data(),
                          static_cast<int>(width_), static_cast<int>(height_), type, 0, 0, &extra);
        if (error != CE_None || trap.failed())
            throw NBX::InputException(L"the image is damaged or cut off; get it anew", source_.path(), 0,
                                      trap.text());
        return result;
    }

private:
    const GdalSource & source_;
    PixelWindow window_;
    unsigned width_, height_;
};

/// The value that is full intensity; 0 where it has to be found in the pixels.
double declaredWhite(GDALRasterBand & band, GDALDataset & dataset) {
    const char * bits = band.GetMetadataItem("NBITS", "IMAGE_STRUCTURE");
    const int count = bits ? std::atoi(bits) : 0;
    if (count > 0 && count <= 16) return (1 << count) - 1;
    if (band.GetRasterDataType() == GDT_Byte) return 255.0;
    // This format defines its 16 bits as full intensity; others hold whatever the sensor gave.
    const bool isPng = dataset.GetDriver() && EQUAL(dataset.GetDriverName(), "PNG");
    return isPng && band.GetRasterDataType() == GDT_UInt16 ? 65535.0 : 0.0;
}

bool isNoData(GDALRasterBand & band, float value) {
    int has = FALSE;
    const double noData = band.GetNoDataValue(&has);
    return std::isnan(value) || (has && static_cast<float>(noData) == value);
}

double foundWhite(const WindowReader & reader, const ColourBands & bands) {
    double white = 0.0;
    for (std::size_t i = 0; i < (bands.isGray() ? 1 : 3); ++i)
        for (float value : reader.read<float>(*bands.colour[i], GDT_Float32, true))
            if (std::isfinite(value) && !isNoData(*bands.colour[i], value))
                white = std::max<double>(white, value);
    return white > 0.0 ? white : 1.0;
}

std::uint8_t toByte(double share) {
    return static_cast<std::uint8_t>(std::lround(255.0 * std::clamp(share, 0.0, 1.0)));
}

/// Pixels whose every colour band holds its no-data value become transparent.
void readColours(const WindowReader & reader, const ColourBands & bands, GDALDataset & dataset,
                 std::vector<std::uint8_t> & rgba) {
    double white = declaredWhite(*bands.colour[0], dataset);
    if (white == 0.0) white = foundWhite(reader, bands);
    std::vector<bool> hasData(reader.pixels(), false);
    for (std::size_t channel = 0; channel < 3; ++channel) {
        if (channel > 0 && bands.isGray()) break;
        GDALRasterBand & band = *bands.colour[channel];
        const std::vector<float> values = reader.read<float>(band, GDT_Float32, true);
        for (std::size_t i = 0; i < values.size(); ++i) {
            rgba[4 * i + channel] = std::isfinite(values[i]) ? toByte(values[i] / white) : 0;
            if (bands.isGray()) rgba[4 * i + 1] = rgba[4 * i + 2] = rgba[4 * i];
            if (!isNoData(band, values[i])) hasData[i] = true;
        }
    }
    for (std::size_t i = 0; i < hasData.size(); ++i)
        rgba[4 * i + 3] = hasData[i] ? 255 : 0;
}

void readPalette(const WindowReader & reader, GDALRasterBand & band, std::vector<std::uint8_t> & rgba) {
    const GDALColorTable & table = *band.GetColorTable();
    const auto indices = reader.read<std::uint16_t>(band, GDT_UInt16, false);
    for (std::size_t i = 0; i < indices.size(); ++i) {
        const GDALColorEntry * entry = table.GetColorEntry(indices[i]);
        const GDALColorEntry none = {0, 0, 0, 0};
        const GDALColorEntry & colour = entry && !isNoData(band, indices[i]) ? *entry : none;
        rgba[4 * i] = toByte(colour.c1 / 255.0);
        rgba[4 * i + 1] = toByte(colour.c2 / 255.0);
        rgba[4 * i + 2] = toByte(colour.c3 / 255.0);
        rgba[4 * i + 3] = toByte(colour.c4 / 255.0);
    }
}

/// Multiplies alpha with the alpha band, or with the mask of the file.
void readAlpha(const WindowReader & reader, const ColourBands & bands, GDALDataset & dataset,
               std::vector<std::uint8_t> & rgba) {
    const int flags = bands.colour[0]->GetMaskFlags();
    const bool hasMask = !(flags & (GMF_ALL_VALID | GMF_NODATA | GMF_ALPHA));
    if (!bands.alpha && !hasMask) return;
    GDALRasterBand & band = bands.alpha ? *bands.alpha : *bands.colour[0]->GetMaskBand();
    double opaque = bands.alpha ? declaredWhite(band, dataset) : 255.0;
    if (opaque == 0.0) opaque = band.GetRasterDataType() == GDT_UInt16 ? 65535.0 : 255.0;
    const std::vector<float> alpha = reader.read<float>(band, GDT_Float32, true);
    for (std::size_t i = 0; i < alpha.size(); ++i)
        rgba[4 * i + 3] = toByte(rgba[4 * i + 3] / 255.0 * alpha[i] / opaque);
}

/// Four bytes a pixel, in the order of the file.
std::vector<std::uint8_t> readRgba(const GdalSource & source, const PixelWindow & window, unsigned width,
                                   unsigned height) {
    const WindowReader reader(source, window, width, height);
    GdalErrorTrap trap;
    const ColourBands bands = findBands(source.dataset());
    std::vector<std::uint8_t> rgba(4 * reader.pixels());
    if (bands.isPalette())
        readPalette(reader, *bands.colour[0], rgba);
    else
        readColours(reader, bands, source.dataset(), rgba);
    readAlpha(reader, bands, source.dataset(), rgba);
    return rgba;
}

/// Brings the lines into the order from south to north, and the columns from west to east.
void orient(std::vector<std::uint8_t> & rgba, unsigned width, unsigned height, const GdalSource & source) {
    const auto pixel = [&](unsigned x, unsigned y) {
        return rgba.begin() + 4 * (static_cast<std::ptrdiff_t>(y) * width + x);
    };
    if (!source.isSouthUp())
        for (unsigned y = 0; y < height / 2; ++y)
            std::swap_ranges(pixel(0, y), pixel(0, y) + 4 * static_cast<std::ptrdiff_t>(width),
                             pixel(0, height - 1 - y));
    if (source.isMirrored())
        for (unsigned y = 0; y < height; ++y)
            for (unsigned x = 0; x < width / 2; ++x)
                std::swap_ranges(pixel(x, y), pixel(x, y) + 4, pixel(width - 1 - x, y));
}

/// The factor of at most 1 that makes both sides fit.
double reduction(double width, double height, unsigned maxSide) {
    return std::min({1.0, maxSide / std::max(width, 1.0), maxSide / std::max(height, 1.0)});
}

unsigned reduced(double side, double factor, unsigned maxSide) {
    return static_cast<unsigned>(std::clamp(std::round(side * factor), 1.0, static_cast<double>(maxSide)));
}

/// A set of points that grows to its bounding box.
struct PointBox {
    GeoExtent box = {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity(),
                     -std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
    bool isEmpty() const { return box.minX > box.maxX; }
    void add(double x, double y) {
        box.minX = std::min(box.minX, x);
        box.minY = std::min(box.minY, y);
        box.maxX = std::max(box.maxX, x);
        box.maxY = std::max(box.maxY, y);
    }
    void grow(double x, double y) {
        if (isEmpty()) return;
        add(box.minX - x, box.minY - y);
        add(box.maxX + x, box.maxY + y);
    }
};

GeoExtent intersection(const GeoExtent & a, const GeoExtent & b) {
    return {std::max(a.minX, b.minX), std::max(a.minY, b.minY), std::min(a.maxX, b.maxX),
            std::min(a.maxY, b.maxY)};
}

bool contains(const GeoExtent & extent, double x, double y) {
    return x >= extent.minX && x <= extent.maxX && y >= extent.minY && y <= extent.maxY;
}

/// Where the pixels of an image lie in a target system. Extents are compared by points on a lattice,
/// because the transformation bends them.
class Placement {
public:
    Placement(const GdalSource & source, const std::string & wkt)
        : transformer_(newTransformer(source.dataset(), nullptr, wkt)),
          pixels_{0.0, 0.0, static_cast<double>(source.width()), static_cast<double>(source.height())} {}

    /// The part of `extent` in which the image lies; empty if there is none.
    PointBox overlap(const GeoExtent & extent) const;
    /// Pixels of the file that `extent` needs.
    PixelWindow window(const GeoExtent & extent) const;
    /// Pixels of the file along one unit of the target, about the middle of `extent`; 0 if unknown.
    double resolution(const GeoExtent & extent) const;

private:
    static constexpr int lattice = 64;

    bool transform(bool toPixels, double & x, double & y) const {
        double z = 0.0;
        int success = FALSE;
        GDALGenImgProjTransform(transformer_.get(), toPixels, 1, &x, &y, &z, &success);
        return success && std::isfinite(x) && std::isfinite(y);
    }
    void walk(bool toPixels, const GeoExtent & from,
              const std::function<void(double, double, double, double)> & visit) const;
    GeoExtent bounds() const;

    GdalTransformer transformer_;
    GeoExtent pixels_;
};

/// Visits the lattice points of `from` with their transformed positions.
void Placement::walk(bool toPixels, const GeoExtent & from,
                     const std::function<void(double, double, double, double)> & visit) const {
    GdalErrorTrap trap;
    if (!transformer_) return;
    for (int j = 0; j <= lattice; ++j) {
        for (int i = 0; i <= lattice; ++i) {
            const double fromX = std::lerp(from.minX, from.maxX, static_cast<double>(i) / lattice);
            const double fromY = std::lerp(from.minY, from.maxY, static_cast<double>(j) / lattice);
            double x = fromX, y = fromY;
            if (transform(toPixels, x, y)) visit(fromX, fromY, x, y);
        }
    }
}

/// The whole image in the target system; everything where the image leaves the domain of that system.
GeoExtent Placement::bounds() const {
    PointBox found;
    int points = 0;
    walk(false, pixels_, [&](double pixelX, double pixelY, double x, double y) {
        double backX = x, backY = y;
        if (!transform(true, backX, backY) || std::hypot(backX - pixelX, backY - pixelY) > 1.0) return;
        found.add(x, y);
        ++points;
    });
    if (points == (lattice + 1) * (lattice + 1)) return found.box;
    constexpr double infinity = std::numeric_limits<double>::infinity();
    return {-infinity, -infinity, infinity, infinity};
}

PointBox Placement::overlap(const GeoExtent & extent) const {
    PointBox fromTarget, fromImage;
    walk(true, extent, [&](double x, double y, double pixelX, double pixelY) {
        if (contains(pixels_, pixelX, pixelY)) fromTarget.add(x, y);
    });
    fromTarget.grow((extent.maxX - extent.minX) / lattice, (extent.maxY - extent.minY) / lattice);
    walk(false, pixels_, [&](double, double, double x, double y) {
        if (contains(extent, x, y)) fromImage.add(x, y);
    });
    if (!fromImage.isEmpty()) {
        fromImage.grow((fromImage.box.maxX - fromImage.box.minX) / lattice,
                       (fromImage.box.maxY - fromImage.box.minY) / lattice);
        fromTarget.add(fromImage.box.minX, fromImage.box.minY);
        fromTarget.add(fromImage.box.maxX, fromImage.box.maxY);
    }
    if (!fromTarget.isEmpty()) fromTarget.box = intersection(intersection(fromTarget.box, extent), bounds());
    return fromTarget;
}

PixelWindow Placement::window(const GeoExtent & extent) const {
    PointBox found;
    walk(true, extent, [&](double, double, double x, double y) { found.add(x, y); });
    found.grow(4.0 + (found.box.maxX - found.box.minX) / lattice,
               4.0 + (found.box.maxY - found.box.minY) / lattice);
    const GeoExtent box = intersection(found.box, pixels_);
    const int x = static_cast<int>(std::floor(box.minX)), y = static_cast<int>(std::floor(box.minY));
    return {x, y, std::max(1, static_cast<int>(std::ceil(box.maxX)) - x),
            std::max(1, static_cast<int>(std::ceil(box.maxY)) - y)};
}

double Placement::resolution(const GeoExtent & extent) const {
    GdalErrorTrap trap;
    const double stepX = (extent.maxX - extent.minX) / lattice;
    const double stepY = (extent.maxY - extent.minY) / lattice;
    const double centreX = 0.5 * (extent.minX + extent.maxX), centreY = 0.5 * (extent.minY + extent.maxY);
    double x[3] = {centreX, centreX + stepX, centreX}, y[3] = {centreY, centreY, centreY + stepY};
    for (int i = 0; i < 3; ++i)
        if (!transformer_ || !transform(true, x[i], y[i])) return 0.0;
    const double area = (x[1] - x[0]) * (y[2] - y[0]) - (x[2] - x[0]) * (y[1] - y[0]);
    return std::sqrt(std::abs(area) / (stepX * stepY));
}

/// The system in which an image of the system `own` is wanted: unknown ones count as the same.
std::string targetSystem(const std::string & own, const std::string & wanted) {
    return own.empty() ? std::string() : wanted;
}

void addRgbaBands(GDALDataset & dataset, std::vector<std::uint8_t> & rgba, unsigned width) {
    for (std::size_t channel = 0; channel < 4; ++channel)
        addMemoryBand(dataset, GDT_Byte, rgba.data() + channel, 4, 4 * static_cast<std::size_t>(width));
    dataset.GetRasterBand(4)->SetColorInterpretation(GCI_AlphaBand);
}

} // namespace

struct ImageFile::Impl {
    explicit Impl(const std::string & path) : source(path, GdalSource::Outside::Transparent) {}

    GdalSource source;
    GeoExtent extent;
};

ImageFile::ImageFile(const std::string & path) : impl_(std::make_unique<Impl>(path)) {
    const RasterGrid grid = impl_->source.grid();
    impl_->extent = {grid.minX - 0.5 * grid.cellSizeX, grid.minY - 0.5 * grid.cellSizeY,
                     grid.minX + (grid.cellsX - 0.5) * grid.cellSizeX,
                     grid.minY + (grid.cellsY - 0.5) * grid.cellSizeY};
}

ImageFile::~ImageFile() = default;

const std::string & ImageFile::path() const {
    return impl_->source.path();
}

unsigned ImageFile::width() const {
    return impl_->source.width();
}

unsigned ImageFile::height() const {
    return impl_->source.height();
}

const GeoExtent & ImageFile::extent() const {
    return impl_->extent;
}

const GeoReference & ImageFile::reference() const {
    return impl_->source.reference();
}

std::optional<GeoImageData> ImageFile::read(unsigned maxSide, NBX::Progress * progress) const {
    const double factor = reduction(width(), height(), maxSide);
    GeoImageData result;
    result.extent = extent();
    result.width = reduced(width(), factor, maxSide);
    result.height = reduced(height(), factor, maxSide);
    const PixelWindow all = {0, 0, static_cast<int>(width()), static_cast<int>(height())};
    result.rgba = readRgba(impl_->source, all, result.width, result.height);
    orient(result.rgba, result.width, result.height, impl_->source);
    if (progress && !progress->update(progress->totalValue())) return std::nullopt;
    return result;
}

bool ImageFile::overlaps(const std::string & wkt, const GeoExtent & extent) const {
    if (!reference().isGeoreferenced) return false;
    GdalErrorTrap trap;
    return !Placement(impl_->source, targetSystem(reference().wkt, wkt)).overlap(extent).isEmpty();
}

std::optional<GeoImageData> ImageFile::warp(const std::string & wkt, const GeoExtent & extent,
                                            unsigned maxSide, NBX::Progress * progress) const {
    if (!reference().isGeoreferenced)
        throw NBX::InputException(L"the image has no georeference; add one, for example a world file",
                                  path());
    GdalErrorTrap trap;
    const std::string system = targetSystem(reference().wkt, wkt);
    const Placement placement(impl_->source, system);
    const PointBox overlap = placement.overlap(extent);
    if (overlap.isEmpty())
        throw NBX::InputException(L"the image lies elsewhere; choose one that covers the area", path());

    GeoImageData result;
    result.extent = overlap.box;
    const double sizeX = overlap.box.maxX - overlap.box.minX, sizeY = overlap.box.maxY - overlap.box.minY;
    const double natural = placement.resolution(overlap.box);
    const double resolution = natural > 0.0 ? natural : maxSide / std::max(sizeX, sizeY);
    const double factor = reduction(sizeX * resolution, sizeY * resolution, maxSide);
    result.width = reduced(sizeX * resolution, factor, maxSide);
    result.height = reduced(sizeY * resolution, factor, maxSide);
    result.rgba.resize(4 * static_cast<std::size_t>(result.width) * result.height);

    // The file's pixels, already in about the wanted resolution.
    const PixelWindow window = placement.window(overlap.box);
    const double shrink = std::min(factor, reduction(window.width, window.height, 4 * maxSide));
    const unsigned width = reduced(window.width, shrink, 4 * maxSide);
    const unsigned height = reduced(window.height, shrink, 4 * maxSide);
    std::vector<std::uint8_t> pixels = readRgba(impl_->source, window, width, height);

    const double * t = impl_->source.geoTransform();
    const double from[6] = {
        t[0] + window.x * t[1],       t[1] * window.width / width, 0.0, t[3] + window.y * t[5], 0.0,
        t[5] * window.height / height};
    const double to[6] = {overlap.box.minX,     sizeX / result.width, 0.0, overlap.box.minY, 0.0,
                          sizeY / result.height};
    const GdalDataset input = newMemoryDataset(width, height, from, system.empty() ? "" : reference().wkt);
    addRgbaBands(*input, pixels, width);
    const GdalDataset output = newMemoryDataset(result.width, result.height, to, system);
    addRgbaBands(*output, result.rgba, result.width);
    if (!warpBilinear(*input, *output, true, path(), progress)) return std::nullopt;
    return result;
}

} // namespace ZMT::RASTER
