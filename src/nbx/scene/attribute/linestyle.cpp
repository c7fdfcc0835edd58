#include <nbx/scene/attribute/linestyle.h>

#include <algorithm>
#include <cmath>

#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(LineStyle, MonoAttribute)

namespace {

constexpr unsigned s_largestFactor = 256;

bool isWidth(double width) {
    return std::isfinite(width) && width > 0.0;
}

double checkedWidth(double width) {
    NBX_CHECK(isWidth(width), L"invalid width of lines: " << width);
    return isWidth(width) ? width : 1.0;
}

unsigned checkedStipple(unsigned stipple) {
    NBX_CHECK(stipple <= LineStyle::wholeLine, L"invalid stipple of lines: " << stipple);
    return stipple & LineStyle::wholeLine;
}

unsigned checkedFactor(unsigned factor) {
    NBX_CHECK_RANGE(1U, factor, s_largestFactor + 1);
    return std::clamp(factor, 1U, s_largestFactor);
}

} // namespace

LineStyle::LineStyle(double width, unsigned stipple, unsigned stippleFactor)
    : MonoAttribute(true), width_(checkedWidth(width)), stipple_(checkedStipple(stipple)),
      stippleFactor_(checkedFactor(stippleFactor)) {}

void LineStyle::setWidth(double width) {
    width_ = checkedWidth(width);
    modified();
}

void LineStyle::setStipple(unsigned stipple, unsigned stippleFactor) {
    stipple_ = checkedStipple(stipple);
    stippleFactor_ = checkedFactor(stippleFactor);
    modified();
}

void LineStyle::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<MonoAttribute>(m, this);
    attributeWithDefault(m, "width", width_, 1.0);
    attributeWithDefault(m, "stipple", stipple_, wholeLine);
    attributeWithDefault(m, "stippleFactor", stippleFactor_, 1U);
    if (!m.isReading()) return;
    if (!isWidth(width_)) width_ = 1.0;
    stipple_ &= wholeLine;
    stippleFactor_ = std::clamp(stippleFactor_, 1U, s_largestFactor);
}

} // namespace NBX
