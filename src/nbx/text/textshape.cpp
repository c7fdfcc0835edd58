#include <nbx/text/textshape.h>

#include <algorithm>
#include <cmath>

#include "nbx/scene/base/serializecolor.h"
#include <nbx/object/errorhandler.h>
#include <nbx/text/fontface.h>

namespace NBX {

NBX_STORED_CLASS_IMPL(TextShape, Shape)

namespace {

constexpr double s_usualSize = 12.0;

bool isSize(double size) {
    return std::isfinite(size) && size > 0.0;
}

bool isHaloWidth(double width) {
    return std::isfinite(width) && width >= 0.0;
}

} // namespace

TextShape::TextShape() : Shape(true) {}

TextShape::TextShape(const std::wstring & text, const Vector3Base<double> & position, double size,
                     SizeUnit unit)
    : Shape(true), text_(text), position_(position) {
    setSize(size, unit);
}

void TextShape::layoutChanged() {
    isLaidOut_ = false;
    layout_ = TextLayout();
    modified();
}

void TextShape::setText(const std::wstring & text) {
    text_ = text;
    layoutChanged();
}

void TextShape::setFont(const std::wstring & name) {
    font_ = name;
    layoutChanged();
}

void TextShape::setPosition(const Vector3Base<double> & position) {
    position_ = position;
    modified();
}

void TextShape::setAnchor(TextLayout::Anchor anchor) {
    NBX_CHECK_RANGE(0, int(anchor), TextLayout::anchors);
    if (anchor < 0 || anchor >= TextLayout::anchors) return;
    anchor_ = anchor;
    layoutChanged();
}

void TextShape::setSize(double size, SizeUnit unit) {
    NBX_CHECK(isSize(size), L"invalid size of text: " << size);
    if (!isSize(size)) return;
    size_ = size;
    unit_ = unit;
    modified();
}

void TextShape::setColor(const Color & color) {
    color_ = color;
    modified();
}

void TextShape::setHalo(double width, const Color & color) {
    NBX_CHECK(isHaloWidth(width), L"invalid width of a halo: " << width);
    if (!isHaloWidth(width)) return;
    haloWidth_ = width;
    haloColor_ = color;
    modified();
}

SO<FontFace> TextShape::font() const {
    return FontFace::named(font_);
}

const TextLayout & TextShape::layout() const {
    if (isLaidOut_) return layout_;
    isLaidOut_ = true;
    layout_ = TextLayout(font().get(), text_, anchor_);
    return layout_;
}

Bounds TextShape::boundingBox() const {
    const Bounds & ink = layout().inkBox();
    if (!ink.isDefined()) return Bounds();
    if (unit_ == SU_Pixels) return Bounds(position_);
    const double halo = std::min(haloWidth_, largestHalo * size_);
    const Vector3Base<double> low = ink.getLLF() * size_, high = ink.getURB() * size_;
    return Bounds(position_ + Vector3Base<double>(low.x - halo, 0.0, low.y - halo),
                  position_ + Vector3Base<double>(high.x + halo, 0.0, high.y + halo));
}

void TextShape::serialize(SerializationManager & m) {
    m.enterObject();
    serializeSuperclass<Shape>(m, this);
    int anchor = anchor_, unit = unit_;
    attributeWithDefault(m, "text", text_, std::wstring());
    attributeWithDefault(m, "font", font_, std::wstring());
    attributeWithDefault(m, "position", position_, Vector3Base<double>());
    attributeWithDefault(m, "anchor", anchor, int(TextLayout::A_LowerLeft));
    attributeWithDefault(m, "size", size_, s_usualSize);
    attributeWithDefault(m, "sizeUnit", unit, int(SU_Pixels));
    serializeColor(m, "color", color_, Color::black);
    attributeWithDefault(m, "haloWidth", haloWidth_, 0.0);
    serializeColor(m, "haloColor", haloColor_, Color::white);
    if (!m.isReading()) return;
    anchor_ = static_cast<TextLayout::Anchor>(0 <= anchor && anchor < TextLayout::anchors ? anchor : 0);
    unit_ = unit == SU_Metres ? SU_Metres : SU_Pixels;
    if (!isSize(size_)) size_ = s_usualSize;
    if (!isHaloWidth(haloWidth_)) haloWidth_ = 0.0;
    layoutChanged();
}

} // namespace NBX
