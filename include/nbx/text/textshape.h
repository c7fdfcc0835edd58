#pragma once

#include <string>

#include <nbx/math/color.h>
#include <nbx/math/vector3base.h>
#include <nbx/object/so.h>
#include <nbx/scene/shape/shape.h>
#include <nbx/text/textlayout.h>

namespace NBX {

class FontFace;

/// A text at a place of the scene: upright on the screen, of a size in pixels wherever it is seen from, or
/// lying on the ground, of a size in metres. It may have a halo, a wider text of another colour behind it
/// that keeps it apart from what it stands on.
///
/// What lies before its place, as a whole for an upright text, hides it; it hides nothing itself, and is
/// drawn behind what it shall be seen against. Halos of neighbouring letters overlap, so opaque ones look
/// best.
class TextShape : public Shape {
    NBX_STORED_CLASS(TextShape, Shape)
public:
    /// The numbers stand in files.
    enum SizeUnit {
        SU_Pixels = 0, ///< upright
        SU_Metres = 1, ///< in the plane of x, along which it runs, and z, in which its letters stand upright
    };

    TextShape();
    /// `size` is the height of an em, about that of a line.
    explicit TextShape(const std::wstring & text, const Vector3Base<double> & position = {},
                       double size = 12.0, SizeUnit unit = SU_Pixels);

    const std::wstring & getText() const { return text_; }
    void setText(const std::wstring & text);
    /// What `FontFace::named` takes.
    const std::wstring & getFont() const { return font_; }
    void setFont(const std::wstring & name);

    /// Where the anchor of the text stands, in the frame in which the shape is placed.
    const Vector3Base<double> & getPosition() const { return position_; }
    void setPosition(const Vector3Base<double> & position);
    TextLayout::Anchor getAnchor() const { return anchor_; }
    void setAnchor(TextLayout::Anchor anchor);
    double getSize() const { return size_; }
    SizeUnit getSizeUnit() const { return unit_; }
    /// A size that is not finite and above 0 is reported, and ignored.
    void setSize(double size, SizeUnit unit);

    /// At first black, without a halo.
    const Color & getColor() const { return color_; }
    void setColor(const Color & color);
    /// How far the halo reaches beyond the letters, in the unit of the size; 0 for none.
    double getHaloWidth() const { return haloWidth_; }
    const Color & getHaloColor() const { return haloColor_; }
    /// A width above `largestHalo` times the size is drawn as that. One that is not finite, or below 0, is
    /// reported and ignored.
    void setHalo(double width, const Color & color);
    static constexpr double largestHalo = 0.2;

    /// Null where there is no such font, which was reported.
    SO<FontFace> font() const;
    /// Kept until text, font or anchor change. Of the thread of the scene, like all of a shape.
    const TextLayout & layout() const;

    /// Of a text on the ground the inked place with its halo; of an upright one its position, since the rest
    /// depends on the view. Undefined where there is nothing to draw.
    Bounds boundingBox() const override;
    /// Attributes "text", "font", "position", "anchor" (default 0), "size" (12), "sizeUnit" (0), "color",
    /// "color_alpha", "haloWidth" (0), "haloColor" (white) and "haloColor_alpha".
    void serialize(SerializationManager & m) override;

private:
    void layoutChanged();

    std::wstring text_, font_;
    Vector3Base<double> position_;
    TextLayout::Anchor anchor_ = TextLayout::A_LowerLeft;
    SizeUnit unit_ = SU_Pixels;
    double size_ = 12.0, haloWidth_ = 0.0;
    Color color_ = Color::black, haloColor_ = Color::white;
    mutable TextLayout layout_;
    mutable bool isLaidOut_ = false;
};

} // namespace NBX
