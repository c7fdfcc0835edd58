// A feature becomes polygons, each is made valid, cut at the windows of the source system, transformed, made
// valid and cut at the extent; at the end all areas are joined. Cutting comes before the transformation, so
// that nothing is transformed across the place where the target system is cut open. Edges are segmented, as
// straight ones become curves.

#include "areacollector.h"

#include <cmath>

#include "gdalsupport.h"
#include "sourcewindows.h"

#include <nbx/object/exception.h>

namespace ZMT::RASTER {

namespace {

using Geometry = std::unique_ptr<OGRGeometry>;

/// What a geometry operation gave, which says why it gave nothing.
Geometry checked(OGRGeometry * result, const std::string & path, const GdalErrorTrap & trap) {
    if (!result)
        throw NBX::InputException(L"has an area that cannot be cut; repair its outline", path, 0,
                                  trap.text());
    return Geometry(result);
}

Geometry made(const OGRGeometry & area, const std::string & path) {
    const GdalErrorTrap trap;
    return checked(area.MakeValid(), path, trap);
}

OGREnvelope envelopeOf(const GeoExtent & extent) {
    OGREnvelope envelope;
    envelope.MinX = extent.minX;
    envelope.MinY = extent.minY;
    envelope.MaxX = extent.maxX;
    envelope.MaxY = extent.maxY;
    return envelope;
}

OGRPolygon rectangle(const GeoExtent & extent) {
    OGRLinearRing ring;
    ring.addPoint(extent.minX, extent.minY);
    ring.addPoint(extent.maxX, extent.minY);
    ring.addPoint(extent.maxX, extent.maxY);
    ring.addPoint(extent.minX, extent.maxY);
    ring.closeRings();
    OGRPolygon polygon;
    polygon.addRing(&ring);
    return polygon;
}

/// The part of a valid area in `extent`; null where there is none.
Geometry clipped(const OGRGeometry & area, const GeoExtent & extent, const std::string & path) {
    OGREnvelope box;
    area.getEnvelope(&box);
    const OGREnvelope window = envelopeOf(extent);
    if (area.IsEmpty() || !window.Intersects(box)) return nullptr;
    if (window.Contains(box)) return Geometry(area.clone());
    const OGRPolygon cutter = rectangle(extent);
    const GdalErrorTrap trap;
    return checked(area.Intersection(&cutter), path, trap);
}

/// Calls `work` with each polygon of `geometry`.
template <class Work> void forEachPolygon(const OGRGeometry & geometry, const Work & work) {
    if (const auto * polygon = dynamic_cast<const OGRPolygon *>(&geometry)) {
        if (!polygon->IsEmpty()) work(*polygon);
    } else if (const auto * collection = dynamic_cast<const OGRGeometryCollection *>(&geometry)) {
        for (const OGRGeometry * part : *collection)
            forEachPolygon(*part, work);
    }
}

/// Closed, of finite points; null for what has no area.
std::unique_ptr<OGRLinearRing> ringOf(const OGRSimpleCurve & curve,
                                      OGRCoordinateTransformation * transformation) {
    const int count = curve.getNumPoints();
    std::vector<double> x(count), y(count);
    for (int i = 0; i < count; ++i) {
        x[i] = curve.getX(i);
        y[i] = curve.getY(i);
    }
    std::vector<int> isKnown(count, TRUE);
    if (transformation) {
        const GdalErrorTrap trap; // points outside of a projection are no fault of the file
        transformation->Transform(count, x.data(), y.data(), nullptr, isKnown.data());
    }
    auto ring = std::make_unique<OGRLinearRing>();
    for (int i = 0; i < count; ++i)
        if (isKnown[i] && std::isfinite(x[i]) && std::isfinite(y[i])) ring->addPoint(x[i], y[i]);
    ring->closeRings();
    return ring->getNumPoints() > 3 ? std::move(ring) : nullptr;
}

/// Empty where the outline has no area.
template <class Polygon>
OGRPolygon polygonOf(const Polygon & polygon, OGRCoordinateTransformation * transformation) {
    OGRPolygon result;
    for (const auto * curve : polygon) {
        const auto * ring = dynamic_cast<const OGRSimpleCurve *>(curve);
        if (auto points = ring ? ringOf(*ring, transformation) : nullptr)
            result.addRingDirectly(points.release());
        else if (result.IsEmpty())
            break;
    }
    return result;
}

VectorLine lineOf(const OGRLinearRing & ring) {
    VectorLine line;
    line.isClosed = true;
    for (int i = 0; i < ring.getNumPoints(); ++i)
        line.points.emplace_back(ring.getX(i), 0.0, ring.getY(i));
    return line;
}

} // namespace

AreaCollector::AreaCollector(const std::string & path, const GeoExtent & extent, std::uint64_t maxPoints)
    : path_(path), extent_(extent), maxPoints_(maxPoints) {}

void AreaCollector::setTransformation(OGRCoordinateTransformation * transformation) {
    transformation_ = transformation;
    if (transformation_) windows_ = sourceWindows(*transformation_, extent_);
}

void AreaCollector::add(const OGRGeometry & geometry) {
    feature_.empty();
    collect(geometry, 0);
    if (feature_.IsEmpty()) return;
    bool isInside = false;
    for (const OGRPolygon * polygon : feature_) {
        const Geometry area = made(*polygon, path_);
        isInside |= transformation_ ? addTransformed(*area) : addCut(*area);
    }
    ++(isInside ? result_.inside : result_.outside);
}

void AreaCollector::collect(const OGRGeometry & geometry, unsigned depth) {
    checkCollectionDepth(depth, path_);
    if (geometry.hasCurveGeometry(TRUE)) {
        const Geometry lines(geometry.getLinearGeometry());
        if (lines && !lines->hasCurveGeometry(TRUE)) collect(*lines, depth + 1);
    } else if (const auto * curve = dynamic_cast<const OGRLineString *>(&geometry)) {
        if (!curve->get_IsClosed()) return;
        if (auto ring = ringOf(*curve, nullptr)) {
            OGRPolygon polygon;
            polygon.addRingDirectly(ring.release());
            feature_.addGeometry(&polygon);
        }
    } else if (const auto * polygon = dynamic_cast<const OGRPolygon *>(&geometry)) {
        const OGRPolygon area = polygonOf(*polygon, nullptr);
        if (!area.IsEmpty()) feature_.addGeometry(&area);
    } else if (const auto * collection = dynamic_cast<const OGRGeometryCollection *>(&geometry)) {
        for (const OGRGeometry * part : *collection)
            collect(*part, depth + 1);
    } else if (const auto * surface = dynamic_cast<const OGRPolyhedralSurface *>(&geometry)) {
        for (const OGRPolygon * part : *surface)
            collect(*part, depth + 1);
    }
}

/// True if a part of the area lies within the extent.
bool AreaCollector::addTransformed(const OGRGeometry & area) {
    bool isInside = false;
    for (const GeoExtent & window : windows_) {
        const Geometry part = isBounded(window) ? clipped(area, window, path_) : Geometry(area.clone());
        if (!part) continue;
        if (isBounded(window))
            part->segmentize(std::hypot(window.maxX - window.minX, window.maxY - window.minY) /
                             edgesAcrossWindow);
        forEachPolygon(*part, [&](const OGRPolygon & polygon) {
            const OGRPolygon transformed = polygonOf(polygon, transformation_);
            if (!transformed.IsEmpty()) isInside |= addCut(*made(transformed, path_));
        });
    }
    return isInside;
}

/// The same for a valid area of the wanted system.
bool AreaCollector::addCut(const OGRGeometry & area) {
    const Geometry part = isBounded(extent_) ? clipped(area, extent_, path_) : Geometry(area.clone());
    bool isInside = false;
    if (part)
        forEachPolygon(*part, [&](const OGRPolygon & polygon) {
            areas_.addGeometry(&polygon);
            isInside = true;
        });
    return isInside;
}

VectorAreas AreaCollector::take() {
    if (areas_.IsEmpty()) return std::move(result_);
    const GdalErrorTrap trap;
    const Geometry joined = checked(areas_.UnionCascaded(), path_, trap);
    std::uint64_t points = 0;
    forEachPolygon(*joined, [&](const OGRPolygon & polygon) {
        for (const OGRLinearRing * ring : polygon) {
            points += static_cast<std::uint64_t>(ring->getNumPoints());
            if (points > maxPoints_)
                throw NBX::InputException(L"has more than " + std::to_wstring(maxPoints_) +
                                              L" points here; choose a smaller area or a simpler file",
                                          path_);
            result_.outlines.push_back(lineOf(*ring));
        }
    });
    return std::move(result_);
}

} // namespace ZMT::RASTER
