// Layer by layer and geometry by geometry: a line is cut at the windows of the source system, gets more
// points on long edges, is transformed, and is cut at the extent. Places that have no position in the target
// system are NaN, which parts a line there. Areas go to `AreaCollector` instead.

#include <zmt/raster/gdal/vectorfile.h>

#include <algorithm>
#include <cmath>

#include "areacollector.h"
#include "gdalsupport.h"
#include "sourcewindows.h"

#include <ogrsf_frmts.h>

#include <nbx/math/isfinite.h>
#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

using Point = NBX::Vector3Base<double>;
using Transformation = std::unique_ptr<OGRCoordinateTransformation>;

const Point nowhere(NAN, NAN, NAN);

std::vector<Point> pointsOf(const OGRSimpleCurve & curve) {
    std::vector<Point> points;
    points.reserve(static_cast<std::size_t>(curve.getNumPoints()));
    for (int i = 0; i < curve.getNumPoints(); ++i)
        points.emplace_back(curve.getX(i), curve.getZ(i), curve.getY(i));
    return points;
}

/// The line where it is in `window`, with more points on long edges, as what is straight in one system is not
/// in another; `nowhere` between what is inside.
std::vector<Point> pointsIn(const GeoExtent & window, const std::vector<Point> & points) {
    const double step = std::hypot(window.maxX - window.minX, window.maxY - window.minY) / edgesAcrossWindow;
    std::vector<Point> result;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Point & b = points[i];
        if (i > 0) {
            const Point & a = points[i - 1];
            const auto [from, to] = VectorLine::clip(window, a, b).value_or(std::pair(0.0, 0.0));
            const double edges = std::ceil(std::hypot(b.x - a.x, b.z - a.z) * (to - from) / step);
            for (double k = 0.0; k <= edges; ++k)
                if (const double t = from + (to - from) * (k / edges); t > 0.0 && t < 1.0)
                    result.push_back(a + (b - a) * t);
        }
        result.push_back(VectorLine::clip(window, b, b) ? b : nowhere);
    }
    return result;
}

/// Collects the lines of a file.
class LineCollector {
public:
    LineCollector(const std::string & path, const GeoExtent & extent, std::uint64_t maxPoints)
        : path_(path), extent_(extent), maxPoints_(maxPoints) {}

    void setTransformation(Transformation transformation);
    void add(const OGRGeometry & geometry, unsigned depth = 0);
    std::vector<VectorLine> take() { return std::move(lines_); }

private:
    void addCurve(const OGRSimpleCurve & curve);
    void transform(std::vector<Point> & points);
    void cut(const std::vector<Point> & points, bool isClosed, bool hasHeights);
    void append(VectorLine & line, const Point & p);
    void finish(VectorLine & line);

    const std::string & path_;
    GeoExtent extent_;
    std::uint64_t maxPoints_, points_ = 0;
    Transformation transformation_;
    std::vector<GeoExtent> windows_; ///< in the system of the file
    std::vector<double> x_, y_, z_;
    std::vector<int> isKnown_;
    std::vector<VectorLine> lines_;
};

void LineCollector::add(const OGRGeometry & geometry, unsigned depth) {
    checkCollectionDepth(depth, path_);
    if (geometry.hasCurveGeometry(TRUE)) {
        const std::unique_ptr<OGRGeometry> lines(geometry.getLinearGeometry());
        if (lines && !lines->hasCurveGeometry(TRUE)) add(*lines, depth + 1);
    } else if (const auto * curve = dynamic_cast<const OGRSimpleCurve *>(&geometry)) {
        addCurve(*curve);
    } else if (const auto * polygon = dynamic_cast<const OGRCurvePolygon *>(&geometry)) {
        for (const OGRCurve * ring : *polygon)
            add(*ring, depth + 1);
    } else if (const auto * collection = dynamic_cast<const OGRGeometryCollection *>(&geometry)) {
        for (const OGRGeometry * part : *collection)
            add(*part, depth + 1);
    } else if (const auto * surface = dynamic_cast<const OGRPolyhedralSurface *>(&geometry)) {
        for (const OGRPolygon * part : *surface)
            add(*part, depth + 1);
    }
}

void LineCollector::addCurve(const OGRSimpleCurve & curve) {
    if (curve.getNumPoints() < 2) return;
    if (static_cast<std::uint64_t>(curve.getNumPoints()) > maxPoints_)
        throw NBX::InputException(L"has a line of more points than can be held; simplify it", path_);
    const std::vector<Point> points = pointsOf(curve);
    if (!transformation_) return cut(points, curve.get_IsClosed(), curve.Is3D());
    for (const GeoExtent & window : windows_) {
        std::vector<Point> part = isBounded(window) ? pointsIn(window, points) : points;
        transform(part);
        cut(part, curve.get_IsClosed(), curve.Is3D());
    }
}

/// Into the wanted system; what has no place there is not finite.
void LineCollector::transform(std::vector<Point> & points) {
    x_.clear();
    y_.clear();
    z_.clear();
    for (const Point & p : points) {
        x_.push_back(p.x);
        y_.push_back(p.z);
        z_.push_back(p.y);
    }
    isKnown_.assign(points.size(), TRUE);
    const GdalErrorTrap trap; // points outside of a projection are no fault of the file
    transformation_->Transform(static_cast<int>(points.size()), x_.data(), y_.data(), z_.data(),
                               isKnown_.data());
    for (std::size_t i = 0; i < points.size(); ++i)
        points[i] = isKnown_[i] && isFinite(points[i]) ? Point(x_[i], z_[i], y_[i]) : nowhere;
}

void LineCollector::cut(const std::vector<Point> & points, bool isClosed, bool hasHeights) {
    VectorLine line;
    bool isWhole = true;
    for (std::size_t i = 1; i < points.size(); ++i) {
        const Point &a = points[i - 1], &b = points[i];
        const auto part = isFinite(a) && isFinite(b) ? VectorLine::clip(extent_, a, b) : std::nullopt;
        isWhole = isWhole && part == std::pair(0.0, 1.0);
        if (!part || part->first > 0.0) finish(line);
        if (!part) continue;
        const auto [from, to] = *part;
        line.hasHeights = hasHeights;
        if (line.points.empty()) append(line, from > 0.0 ? a + (b - a) * from : a);
        append(line, to < 1.0 ? a + (b - a) * to : b);
        if (to < 1.0) finish(line);
    }
    line.isClosed = isClosed && isWhole;
    finish(line);
}

void LineCollector::append(VectorLine & line, const Point & p) {
    if (!line.points.empty() && line.points.back() == p) return;
    if (++points_ > maxPoints_)
        throw NBX::InputException(L"has more than " + std::to_wstring(maxPoints_) +
                                      L" points here; choose a smaller area or a simpler file",
                                  path_);
    line.points.push_back(p);
}

void LineCollector::finish(VectorLine & line) {
    if (line.points.size() > 1) lines_.push_back(std::move(line));
    line = {};
}

void LineCollector::setTransformation(Transformation transformation) {
    transformation_ = std::move(transformation);
    if (transformation_) windows_ = sourceWindows(*transformation_, extent_);
}

/// Calls `setLayer` with the transformation of each layer, and `work` with each geometry in it.
template <class SetLayer, class Work>
void forEachGeometry(GDALDataset & dataset, const std::string & path, const std::string & wkt,
                     const SetLayer & setLayer, const Work & work) {
    GdalErrorTrap trap;
    for (OGRLayer * layer : dataset.GetLayers()) {
        setLayer(newTransformation(layer->GetSpatialRef(), wkt, path));
        layer->ResetReading();
        for (const OGRFeatureUniquePtr & feature : *layer)
            if (const OGRGeometry * geometry = feature->GetGeometryRef()) work(*geometry);
        if (trap.failed()) throw NBX::InputException(L"is damaged; get the file anew", path, 0, trap.text());
    }
}

} // namespace

struct VectorFile::Impl {
    std::string path;
    GdalDataset dataset;
    GeoReference reference;
};

VectorFile::VectorFile(const std::string & path) : impl_(std::make_unique<Impl>()) {
    impl_->path = path;
    GdalErrorTrap trap;
    impl_->dataset =
        openDataset(path, GDAL_OF_VECTOR,
                    L"is no file of lines or areas that can be read, or is damaged; use a format such "
                    L"as GeoPackage or GeoJSON, or get the file anew",
                    trap);
    if (impl_->dataset->GetLayerCount() == 0)
        throw NBX::InputException(L"the file has no layers; choose a file with lines or areas", path);
    const OGRSpatialReference * system = impl_->dataset->GetLayer(0)->GetSpatialRef();
    impl_->reference = describe(system);
    impl_->reference.isGeoreferenced = system && !system->IsEmpty();
}

VectorFile::~VectorFile() = default;

const std::string & VectorFile::path() const {
    return impl_->path;
}

std::string VectorFile::format() const {
    return impl_->dataset->GetDriverName();
}

unsigned VectorFile::layers() const {
    return static_cast<unsigned>(impl_->dataset->GetLayerCount());
}

const GeoReference & VectorFile::reference() const {
    return impl_->reference;
}

std::vector<VectorLine> VectorFile::read(const std::string & wkt, const GeoExtent & extent,
                                         std::uint64_t maxPoints) const {
    LineCollector collector(impl_->path, extent, maxPoints);
    forEachGeometry(
        *impl_->dataset, impl_->path, wkt,
        [&](Transformation transformation) { collector.setTransformation(std::move(transformation)); },
        [&](const OGRGeometry & geometry) { collector.add(geometry); });
    return collector.take();
}

VectorAreas VectorFile::readAreas(const std::string & wkt, const GeoExtent & extent,
                                  std::uint64_t maxPoints) const {
    Transformation transformation;
    AreaCollector collector(impl_->path, extent, maxPoints);
    forEachGeometry(
        *impl_->dataset, impl_->path, wkt,
        [&](Transformation next) {
            transformation = std::move(next);
            collector.setTransformation(transformation.get());
        },
        [&](const OGRGeometry & geometry) { collector.add(geometry); });
    return collector.take();
}

} // namespace ZMT::RASTER
