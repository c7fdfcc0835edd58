// A placement tells where pixels lie in the target system: both rectangles are compared on lattices of
// points, in both directions, since an image may be smaller than the steps of the one or leave the domain of
// the other. A warp finds the overlap and the resolution, reads the window of the file that this needs,
// reduced, and hands it to GDAL.

#include <zmt/raster/gdal/imagefile.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "gdalimagereader.h"

#include <nbx/object/exception.h>
#include <nbx/object/progress.h>

namespace ZMT::RASTER {

namespace {

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
    GdalWindow window(const GeoExtent & extent) const;
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

GdalWindow Placement::window(const GeoExtent & extent) const {
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
    const GdalWindow all = {0, 0, static_cast<int>(width()), static_cast<int>(height())};
    const GdalImageReader reader(impl_->source);
    result.rgba = reader.readRgba(-1, all, result.width, result.height);
    reader.orient(result.rgba.data(), result.width, result.height, 4);
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
    const GdalWindow window = placement.window(overlap.box);
    const double shrink = std::min(factor, reduction(window.width, window.height, 4 * maxSide));
    const unsigned width = reduced(window.width, shrink, 4 * maxSide);
    const unsigned height = reduced(window.height, shrink, 4 * maxSide);
    std::vector<std::uint8_t> pixels = GdalImageReader(impl_->source).readRgba(-1, window, width, height);

    const double * t = impl_->source.geoTransform();
    const double from[6] = {
        t[0] + window.x * t[1],       t[1] * window.width / width, 0.0, t[3] + window.y * t[5], 0.0,
        t[5] * window.height / height};
    const double to[6] = {overlap.box.minX,     sizeX / result.width, 0.0, overlap.box.minY, 0.0,
                          sizeY / result.height};
    const GdalDataset input = newMemoryDataset(width, height, from, system.empty() ? "" : reference().wkt);
    addRgbaBands(*input, pixels.data());
    const GdalDataset output = newMemoryDataset(result.width, result.height, to, system);
    addRgbaBands(*output, result.rgba.data());
    if (!warpBilinear(*input, *output, true, path(), progress)) return std::nullopt;
    return result;
}

} // namespace ZMT::RASTER
