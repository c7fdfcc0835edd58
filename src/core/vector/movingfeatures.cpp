#include <zmt/core/vector/movingfeatures.h>

#include <cmath>

#include <nbx/math/bounds.h>
#include <nbx/object/errorhandler.h>

#include "featurescenegl.h"
#include "featureshapes.h"

namespace ZMT::CORE {

namespace {

using Point = NBX::Vector3Base<double>;

constexpr unsigned s_size = 2048;        ///< pixels of the view, for what depends on them
constexpr double s_motionMargin = 100.0; ///< around the features, in pixels

NBX::Bounds boxOf(const std::vector<Point> & points) {
    NBX::Bounds box;
    for (const Point & p : points)
        box += Point(p.x, 0.0, p.z);
    return box;
}

NBX::Bounds boxOf(const std::vector<RASTER::VectorFeature> & features) {
    NBX::Bounds box;
    const auto add = [&](const RASTER::VectorFeature::Line & points) { box += boxOf(points); };
    for (const RASTER::VectorFeature & feature : features) {
        add(feature.points);
        for (const auto & line : feature.lines)
            add(line);
        for (const auto & area : feature.areas)
            for (const auto & ring : area)
                add(ring);
    }
    return box;
}

} // namespace

void MovingFeatures::set(const std::vector<Group> & groups, double metresPerPixel) {
    const bool isSize = std::isfinite(metresPerPixel) && metresPerPixel > 0.0;
    NBX_CHECK(isSize, L"pixels of " << metresPerPixel << L" metres");
    node_->clear();
    if (!isSize) return;
    FeatureSceneGL scene;
    scene.clearMarks();
    for (const Group & group : groups) {
        const NBX::Bounds box = boxOf(group.features);
        if (!box.isDefined()) continue;
        const Point center = box.center(), half = box.diagonal() * 0.5;
        const double margin = s_motionMargin * metresPerPixel;
        FeatureShapes shapes(
            group.sheet, 1.0,
            {{center.x, center.z}, half.x + margin, half.z + margin, metresPerPixel, s_size});
        for (const RASTER::VectorFeature & feature : group.features)
            shapes.add(feature);
        const Point inTerrain = frame_.fromGeo(center);
        scene.append(shapes, {inTerrain.x, 0.0, inTerrain.z});
    }
    node_->append(scene.scene().get());
}

void MovingFeatures::set(const std::vector<Point> & corners, const NBX::Color & color) {
    node_->clear();
    const NBX::Bounds box = boxOf(corners);
    if (!box.isDefined()) return;
    const Point center = box.center(), inTerrain = frame_.fromGeo(center);
    FeatureShapes::Group group;
    group.color = color;
    group.vertices.reserve(corners.size() * 3);
    for (const Point & p : corners)
        group.vertices.insert(group.vertices.end(), {float(p.x - center.x), 0.0F, float(p.z - center.z)});
    FeatureSceneGL scene;
    scene.clearMarks();
    scene.append(group, {inTerrain.x, 0.0, inTerrain.z});
    node_->append(scene.scene().get());
}

} // namespace ZMT::CORE
