#include <nbx/text/textshape.h>

#include <cmath>

#include <gtest/gtest.h>

#include <nbx/text/fontface.h>

#include "support/recordedreports.h"
#include "support/roundtrip.h"

namespace {

using namespace NBX;
using Vector = Vector3Base<double>;

SO<TextShape> newText(const std::wstring & text = L"Everest") {
    return SO<TextShape>(new TextShape(text, Vector(100, 200, 300)));
}

TEST(TextShape, IsStored) {
    const SO<TextShape> text = newText(L"Everest\n8848 m \u05E9");
    text->setFont(L"DejaVu Sans Bold");
    text->setAnchor(TextLayout::A_UpperRight);
    text->setSize(25.5, TextShape::SU_Metres);
    text->setColor(Color(0.25, 0.5, 0.75, 0.5));
    text->setHalo(2.5, Color(0.5, 0.25, 0.125, 0.75));
    for (const bool omitsDefaults : {false, true}) {
        const SO<TextShape> copy = roundTrip(text, omitsDefaults);
        ASSERT_TRUE(copy);
        EXPECT_EQ(text->getText(), copy->getText());
        EXPECT_EQ(text->getFont(), copy->getFont());
        EXPECT_EQ(Vector(100, 200, 300), copy->getPosition());
        EXPECT_EQ(TextLayout::A_UpperRight, copy->getAnchor());
        EXPECT_EQ(25.5, copy->getSize());
        EXPECT_EQ(TextShape::SU_Metres, copy->getSizeUnit());
        EXPECT_EQ(text->getColor(), copy->getColor());
        EXPECT_EQ(2.5, copy->getHaloWidth());
        EXPECT_EQ(text->getHaloColor(), copy->getHaloColor());
        EXPECT_EQ(text->boundingBox(), copy->boundingBox());
        const SO<TextShape> plain = roundTrip(SO<TextShape>(new TextShape), omitsDefaults);
        EXPECT_EQ(L"", plain->getText());
        EXPECT_EQ(12.0, plain->getSize());
        EXPECT_EQ(Color::black, plain->getColor());
        EXPECT_EQ(Color::white, plain->getHaloColor());
        EXPECT_EQ(0.0, plain->getHaloWidth());
    }
}

TEST(TextShape, BoxesHoldTheInkOnTheGround) {
    const SO<TextShape> text = newText();
    text->setSize(50.0, TextShape::SU_Metres);
    const Bounds ink = text->layout().inkBox(), box = text->boundingBox();
    EXPECT_NEAR(100.0 + ink.getLLF().x * 50.0, box.getLLF().x, 1e-9);
    EXPECT_NEAR(300.0 + ink.getURB().y * 50.0, box.getURB().z, 1e-9);
    EXPECT_EQ(200.0, box.getLLF().y);
    EXPECT_EQ(200.0, box.getURB().y);
    text->setHalo(4.0, Color::white);
    EXPECT_NEAR(box.getLLF().x - 4.0, text->boundingBox().getLLF().x, 1e-9);
    EXPECT_NEAR(box.getLLF().z - 4.0, text->boundingBox().getLLF().z, 1e-9);
    EXPECT_NEAR(box.getURB().x + 4.0, text->boundingBox().getURB().x, 1e-9);
    text->setHalo(1000.0, Color::white);
    EXPECT_NEAR(box.getURB().z + 10.0, text->boundingBox().getURB().z, 1e-9) << "no wider halo is drawn";
}

TEST(TextShape, TheBoxOfAnUprightTextIsItsPlace) {
    EXPECT_EQ(Bounds(Vector(100, 200, 300)), newText()->boundingBox());
    for (const wchar_t * nothing : {L"", L" ", L"\n"})
        EXPECT_FALSE(newText(nothing)->boundingBox().isDefined());
}

TEST(TextShape, ChangesAreSeen) {
    const SO<TextShape> text = newText();
    const auto isSeen = [&](const auto & change) {
        const std::uint64_t before = text->lastTransactionNo();
        change();
        return text->lastTransactionNo() > before;
    };
    const std::size_t glyphs = text->layout().glyphs().size();
    EXPECT_TRUE(isSeen([&] { text->setText(L"K2"); }));
    EXPECT_NE(glyphs, text->layout().glyphs().size());
    const double left = text->layout().box().getLLF().x;
    EXPECT_TRUE(isSeen([&] { text->setAnchor(TextLayout::A_Right); }));
    EXPECT_GT(left, text->layout().box().getLLF().x);
    const double width = text->layout().box().diagonal().x;
    EXPECT_TRUE(isSeen([&] { text->setFont(L"DejaVu Sans Bold"); }));
    EXPECT_LT(width, text->layout().box().diagonal().x);
    EXPECT_TRUE(isSeen([&] { text->setSize(3, TextShape::SU_Pixels); }));
    EXPECT_TRUE(isSeen([&] { text->setPosition(Vector()); }));
    EXPECT_TRUE(isSeen([&] { text->setColor(Color::red); }));
    EXPECT_TRUE(isSeen([&] { text->setHalo(1, Color::red); }));
}

TEST(TextShape, ReportsValuesWithoutMeaning) {
    RecordedReports reports;
    const SO<TextShape> text = newText();
    for (const double size : {0.0, -1.0, std::nan(""), HUGE_VAL}) {
        text->setSize(size, TextShape::SU_Metres);
        EXPECT_EQ(12.0, text->getSize());
        EXPECT_EQ(TextShape::SU_Pixels, text->getSizeUnit());
    }
    for (const double width : {-1.0, std::nan(""), HUGE_VAL})
        text->setHalo(width, Color::red);
    EXPECT_EQ(0.0, text->getHaloWidth());
    EXPECT_EQ(Color::white, text->getHaloColor());
    text->setAnchor(TextLayout::Anchor(9));
    EXPECT_EQ(TextLayout::A_LowerLeft, text->getAnchor());
    EXPECT_EQ(8U, reports.size());
    reports.clear();
}

TEST(TextShape, WithoutItsFontThereIsNothingToSee) {
    RecordedReports reports;
    const SO<TextShape> text = newText();
    text->setFont(L"A Font That Nobody Has");
    EXPECT_FALSE(text->font());
    EXPECT_FALSE(text->boundingBox().isDefined());
    EXPECT_EQ(1U, reports.size());
    reports.clear();
}

} // namespace
