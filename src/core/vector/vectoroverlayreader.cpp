#include "vectoroverlayreader.h"

#include <memory>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/stringutils.h>

namespace ZMT::CORE {

namespace {

bool meet(const RASTER::GeoExtent & a, const RASTER::GeoExtent & b) {
    return a.minX <= b.maxX && b.minX <= a.maxX && a.minY <= b.maxY && b.minY <= a.maxY;
}

} // namespace

void VectorOverlayReader::note(const char * failure) const {
    if (!overlay_.failure_.empty()) return;
    overlay_.failure_ = failure;
    NBX_FAILURE(NBX::StringUtils::Utf8String2WString(failure));
}

bool VectorOverlayReader::read(const RASTER::GeoExtent & box, double tolerance, const Visit & visit) const {
    const auto extent = overlay_.source()->extent();
    if (!extent || !meet(*extent, box)) return true;
    try {
        overlay_.source()->read({box, tolerance, overlay_.fields()}, visit);
    } catch (const NBX::Exception & e) {
        note(e.what());
        return false;
    }
    return true;
}

bool VectorOverlayReader::hasFeatures(const RASTER::GeoExtent & box) const {
    bool hasFeatures = false;
    const bool isRead = read(box, 0.0, [&](const RASTER::VectorFeature & feature) {
        hasFeatures =
            feature.hasGeometry() && overlay_.styleSheet().ruleOf(feature.values) != VectorStyleSheet::noRule;
        return !hasFeatures;
    });
    return hasFeatures || !isRead;
}

const DrapedLabels & VectorOverlayReader::labels() const {
    if (overlay_.labels_) return *overlay_.labels_;
    const auto labels = std::make_shared<DrapedLabels>();
    overlay_.labels_ = labels;
    const auto extent = overlay_.source()->extent();
    if (!extent || !overlay_.styleSheet().hasDrapedLabels()) return *labels;
    bool isComplete = true;
    read(*extent, 0.0, [&](const RASTER::VectorFeature & feature) {
        isComplete = labels->add(overlay_.styleSheet(), feature);
        return isComplete;
    });
    labels->settle();
    if (!isComplete)
        NBX_FAILURE(NBX::StringUtils::Utf8String2WString(overlay_.name())
                    << L": more than " << DrapedLabels::mostLabels
                    << L" labels on the ground, the rest is left out");
    return *labels;
}

} // namespace ZMT::CORE
