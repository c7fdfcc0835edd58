#include <zmt/core/vector/vectoroverlay.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(VectorOverlay, NBX::SharedObj)

VectorOverlay::VectorOverlay(Source source, VectorStyleSheet sheet)
    : source_(std::move(source)), name_(source_->name()), sheet_(std::move(sheet)),
      fields_(sheet_.fieldsOf(*source_)) {}

VectorOverlay::~VectorOverlay() = default;

void VectorOverlay::setStyleSheet(VectorStyleSheet sheet) {
    fields_ = sheet.fieldsOf(*source_);
    sheet_ = std::move(sheet);
    labels_ = nullptr;
    modified();
}

void VectorOverlay::setOpacity(double opacity) {
    NBX_CHECK(!std::isnan(opacity), L"the opacity is no number");
    if (std::isnan(opacity)) return;
    opacity = std::clamp(opacity, 0.0, 1.0);
    if (opacity == opacity_) return;
    opacity_ = opacity;
    modified();
}

void VectorOverlay::setShown(bool isShown) {
    if (isShown == isShown_) return;
    isShown_ = isShown;
    modified();
}

} // namespace ZMT::CORE
