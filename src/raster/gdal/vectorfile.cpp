#include <zmt/raster/gdal/vectorfile.h>

#include <algorithm>
#include <cmath>

#include "gdalsupport.h"

#include <ogrsf_frmts.h>

#include <nbx/math/isfinite.h>
#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

using Point = NBX::Vector3Base<double>;
using Transformation = std::unique_ptr<OGRCoordinateTransformation>;

/// Collections in collections, of which no file needs more.
constexpr unsigned maxDepth = 32;

/// Collects the lines of a file.
class LineCollector {
public:
    LineCollector(const std::string & path, const GeoExtent & extent, std::uint64_t maxPoints)
        : path_(path), extent_(extent), maxPoints_(maxPoints) {}

    void setTransformation(Transformation transformation) { transformation_ = std::move(transformation); }
    void add(const OGRGeometry & geometry, unsigned depth = 0);
    std::vector<VectorLine> take() { return std::move(lines_); }

private:
    void addCurve(const OGRSimpleCurve & curve);
    std::vector<Point> pointsOf(const OGRSimpleCurve & curve);
    void cut(const std::vector<Point> & points, bool isClosed, bool hasHeights);
    void append(VectorLine & line, const Point & p);
    void finish(VectorLine & line);

    const std::string & path_;
    GeoExtent extent_;
    std::uint64_t maxPoints_, points_ = 0;
    Transformation transformation_;
    std::vector<double> x_, y_, z_;
    std::vector<int> isKnown_;
    std::vector<VectorLine> lines_;
};

void LineCollector::add(const OGRGeometry & geometry, unsigned depth) {
    if (depth > maxDepth)
        throw NBX::InputException(L"collections lie too deep in one another; split them", path_);
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
    cut(pointsOf(curve), curve.get_IsClosed(), curve.Is3D());
}

/// In the wanted system; what has no place there is not finite.
std::vector<Point> LineCollector::pointsOf(const OGRSimpleCurve & curve) {
    const auto count = static_cast<std::size_t>(curve.getNumPoints());
    x_.resize(count);
    y_.resize(count);
    z_.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        x_[i] = curve.getX(static_cast<int>(i));
        y_[i] = curve.getY(static_cast<int>(i));
        z_[i] = curve.getZ(static_cast<int>(i));
    }
    isKnown_.assign(count, TRUE);
    if (transformation_) {
        const GdalErrorTrap trap; // points outside of a projection are no fault of the file
        transformation_->Transform(static_cast<int>(count), x_.data(), y_.data(), z_.data(), isKnown_.data());
    }
    std::vector<Point> points(count);
    for (std::size_t i = 0; i < count; ++i)
        points[i] = isKnown_[i] ? Point(x_[i], z_[i], y_[i]) : Point(NAN, NAN, NAN);
    return points;
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

/// Null where there is nothing to convert.
Transformation transformationTo(const std::string & wkt, const OGRSpatialReference * source,
                                const std::string & path) {
    if (wkt.empty() || !source || source->IsEmpty()) return nullptr;
    OGRSpatialReference from(*source);
    from.SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    const OGRSpatialReference to = spatialReference(wkt);
    if (from.IsSame(&to)) return nullptr;
    const GdalErrorTrap trap;
    Transformation transformation(OGRCreateCoordinateTransformation(&from, &to));
    if (!transformation)
        throw NBX::InputException(L"cannot be brought into another coordinate system; check the coordinate "
                                  L"system of the file",
                                  path, 0, trap.text());
    return transformation;
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
    GdalErrorTrap trap;
    LineCollector collector(impl_->path, extent, maxPoints);
    for (OGRLayer * layer : impl_->dataset->GetLayers()) {
        collector.setTransformation(transformationTo(wkt, layer->GetSpatialRef(), impl_->path));
        layer->ResetReading();
        for (const OGRFeatureUniquePtr & feature : *layer)
            if (const OGRGeometry * geometry = feature->GetGeometryRef()) collector.add(*geometry);
        if (trap.failed())
            throw NBX::InputException(L"is damaged; get the file anew", impl_->path, 0, trap.text());
    }
    return collector.take();
}

} // namespace ZMT::RASTER
