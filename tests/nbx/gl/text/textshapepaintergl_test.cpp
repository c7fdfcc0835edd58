#include <nbx/text/textshape.h>

#include <filesystem>
#include <tuple>
#include <unistd.h>

#include <nbx/gl/context/enginegl.h>
#include <nbx/gl/mesh/bufferobjectgl.h>
#include <nbx/gl/state/backgroundgl.h>
#include <nbx/gl/state/colorbuffergl.h>
#include <nbx/gl/state/polygonmodegl.h>
#include <nbx/scene/attribute/clipplane.h>
#include <nbx/scene/attribute/facestyle.h>
#include <nbx/scene/shape/box.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/text/fontface.h>

#include "support/glfixture.h"
#include "support/imagecompare.h"

namespace {

using namespace NBX;
using Vector = Vector3Base<double>;

constexpr double s_far = 5800000.0;

/// The inked pixels of a picture: their box, in pixels, z 0, and how much ink there is, in whole pixels.
struct Ink {
    Bounds box;
    double amount = 0.0;
};

class TextShapePainterGLTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        ASSERT_TRUE(FontFace::named()) << "fonts-dejavu-core is not installed";
        canvas->setSize(s_width, s_height);
        root->append(pixels.get());
    }
    /// White, on nothing.
    SO<TextShape> newText(const std::wstring & text, const Vector & position, double size = 20.0) {
        const SO<TextShape> shape(new TextShape(text, position, size));
        shape->setColor(Color::white);
        return shape;
    }
    Ink inkOf(const SO<Image> & image, unsigned component = 3) {
        Ink ink;
        for (int y = 0; y < image->height(); ++y)
            for (int x = 0; x < image->width(); ++x) {
                const double part = pixel(image, x, y)[component] / 255.0;
                ink.amount += part;
                if (part > 0.1) ink.box += Bounds(Vector(x, y, 0), Vector(x + 1, y + 1, 0));
            }
        return ink;
    }
    Ink drawnInk() { return inkOf(draw()); }
    /// What a text inks by its layout, at `size` pixels an em.
    static Bounds expectedInk(const TextShape & text, double x, double y) {
        const Bounds & ink = text.layout().inkBox();
        return Bounds(ink.getLLF() * text.getSize() + Vector(x, y, 0),
                      ink.getURB() * text.getSize() + Vector(x, y, 0));
    }
    static void expectNear(const Bounds & expected, const Bounds & found, double distance,
                           const std::string & what) {
        EXPECT_NEAR(expected.getLLF().x, found.getLLF().x, distance) << what;
        EXPECT_NEAR(expected.getLLF().y, found.getLLF().y, distance) << what;
        EXPECT_NEAR(expected.getURB().x, found.getURB().x, distance) << what;
        EXPECT_NEAR(expected.getURB().y, found.getURB().y, distance) << what;
    }

    static constexpr unsigned s_width = 200, s_height = 100;
    const SO<Camera> pixels = Camera::newPixelCoordsCamera(100, -100);
};

TEST_F(TextShapePainterGLTest, UprightTextStandsAtItsPlaceInItsSize) {
    for (const double size : {10.0, 20.0, 36.0})
        for (int anchor = 0; anchor < TextLayout::anchors; ++anchor) {
            root->clear();
            root->append(pixels.get());
            const SO<TextShape> text = newText(L"Höhe", Vector(100.25, 50.5, 0), size);
            text->setAnchor(TextLayout::Anchor(anchor));
            root->append(text.get());
            expectNear(expectedInk(*text, 100.25, 50.5), drawnInk().box, 1.0, std::to_string(anchor));
        }
}

TEST_F(TextShapePainterGLTest, UprightTextHasOneSizeWhereverItIsSeenFrom) {
    for (const double distance : {50.0, 5000.0, 5e6}) {
        root->clear();
        root->append(new Camera(new LookAt(Vector(s_far, 900, s_far - distance), Vector(s_far, 900, s_far)),
                                new Perspective(45.0, 1.0, 1e8)));
        const SO<TextShape> text = newText(L"Höhe", Vector(s_far, 900, s_far));
        root->append(text.get());
        expectNear(expectedInk(*text, 100, 50), drawnInk().box, 1.0, std::to_string(distance));
    }
    // Behind the eye.
    root->clear();
    root->append(
        new Camera(new LookAt(Vector(0, 0, 10), Vector(0, 0, 20)), new Perspective(45.0, 1.0, 100.0)));
    root->append(newText(L"Höhe", Vector(0, 0, 0)).get());
    EXPECT_EQ(0.0, drawnInk().amount);
}

TEST_F(TextShapePainterGLTest, TextOnTheGroundIsReadFromAbove) {
    root->clear();
    // A metre a pixel, from straight above, with north up.
    root->append(new Camera(new LookAt(Vector(s_far, 1000, s_far), Vector(s_far, 0, s_far), Vector(0, 0, 1)),
                            new Ortho(-100, 100, -50, 50, 1.0, 2000.0)));
    const SO<TextShape> text = newText(L"Höhe", Vector(s_far + 10, 0, s_far - 20));
    text->setSize(30.0, TextShape::SU_Metres);
    root->append(text.get());
    const Ink ink = drawnInk();
    expectNear(expectedInk(*text, 110, 30), ink.box, 1.0, "");
    // From half as high up it is half as high: it lies.
    root->clear();
    root->append(
        new Camera(new LookAt(Vector(s_far, 500, s_far - 866), Vector(s_far, 0, s_far), Vector(0, 0, 1)),
                   new Ortho(-100, 100, -50, 50, 1.0, 2000.0)));
    root->append(text.get());
    const Ink lying = drawnInk();
    EXPECT_NEAR(ink.box.diagonal().x, lying.box.diagonal().x, 1.01);
    EXPECT_NEAR(ink.box.diagonal().y * 0.5, lying.box.diagonal().y, 1.01);
    EXPECT_NEAR(ink.amount * 0.5, lying.amount, ink.amount * 0.03);
}

TEST_F(TextShapePainterGLTest, ClipPlanesCutIt) {
    const SO<TextShape> lying = newText(L"Höhe", Vector(0, 0, 0)),
                        upright = newText(L"Höhe", Vector(0, 0, 0));
    lying->setSize(20.0, TextShape::SU_Metres);
    for (const auto & [text, x, cut] : {std::tuple(lying, 20.0, 120.0), std::tuple(lying, -1.0, 100.0),
                                        std::tuple(upright, 1.0, 0.0), std::tuple(upright, -1.0, 100.0)}) {
        root->clear();
        root->append(new Camera(new LookAt(Vector(0, 1000, 0), Vector(0, 0, 0), Vector(0, 0, 1)),
                                new Ortho(-100, 100, -50, 50, 1.0, 2000.0)));
        root->append(new ClipPlane(Vector(1, 0, 0), -x));
        root->append(text.get());
        const Bounds box = drawnInk().box;
        EXPECT_EQ(cut != 0.0, box.isDefined()) << "an upright text is where its anchor is, " << x;
        if (box.isDefined()) {
            EXPECT_NEAR(cut, box.getLLF().x, 4.0) << x;
        }
    }
}

TEST_F(TextShapePainterGLTest, InkIsThatOfTheOutlinesAtEachSizeAndPlace) {
    // Of the letter's area at a large size.
    canvas->setSize(600, 600);
    const SO<TextShape> text = newText(L"Rg8", Vector(20, 200, 0), 256);
    root->append(text.get());
    const double area = drawnInk().amount / (256.0 * 256.0);
    canvas->setSize(s_width, s_height);
    for (const double size : {8.0, 10.0, 12.0, 16.0, 30.0})
        for (int i = 0; i < 8; ++i) {
            text->setSize(size, TextShape::SU_Pixels);
            text->setPosition(Vector(20 + i * 0.125, 30 + i * 0.31, 0));
            EXPECT_NEAR(area, drawnInk().amount / (size * size), area * (size < 9.0 ? 0.06 : 0.03))
                << size << ' ' << i;
        }
}

TEST_F(TextShapePainterGLTest, NothingFlickersWhileTextMoves) {
    const SO<TextShape> text = newText(L"Everest 8848 m", Vector(20, 30, 0), 11.0);
    root->append(text.get());
    SO<Image> before = draw();
    const double amount = inkOf(before).amount;
    for (int i = 1; i <= 32; ++i) {
        text->setPosition(Vector(20 + i / 16.0, 30 + i / 64.0, 0));
        const SO<Image> now = draw();
        EXPECT_LT(largestDifference(before, now), 40) << "by a sixteenth of a pixel, " << i;
        EXPECT_NEAR(amount, inkOf(now).amount, amount * 0.03);
        before = now;
    }
}

TEST_F(TextShapePainterGLTest, WhatIsTooSmallToReadFadesAway) {
    const SO<TextShape> text = newText(L"Everest Everest Everest", Vector(20, 30, 0), 6.0);
    text->setHalo(100.0, Color::red);
    root->append(text.get());
    const double readable = drawnInk().amount / (6.0 * 6.0);
    EXPECT_GT(readable, 1.0);
    double last = readable;
    for (const double size : {4.5, 4.0, 3.5, 2.9, 1.0, 0.01}) {
        text->setSize(size, TextShape::SU_Pixels);
        const double ink = drawnInk().amount / (size * size);
        EXPECT_LT(ink, last + 1e-9) << size;
        EXPECT_TRUE(size > 3.0 || ink == 0.0) << size;
        last = ink;
    }
}

TEST_F(TextShapePainterGLTest, HalosSurroundTheLetters) {
    const SO<TextShape> text = newText(L"Höhe", Vector(50, 40, 0), 30.0);
    text->setColor(Color::green);
    root->append(text.get());
    const Ink alone = drawnInk();
    for (const double width : {1.0, 2.0, 4.0}) {
        text->setHalo(width, Color::red);
        const SO<Image> image = draw();
        const Bounds expected = expectedInk(*text, 50, 40).expand(width);
        expectNear(Bounds(Vector(expected.getLLF().x, expected.getLLF().y, 0),
                          Vector(expected.getURB().x, expected.getURB().y, 0)),
                   inkOf(image).box, 1.0, std::to_string(width));
        EXPECT_NEAR(alone.amount, inkOf(image, 1).amount, 1.0) << "the letters are as before";
    }
    text->setHalo(1000.0, Color::red);
    expectNear(expectedInk(*text, 50, 40).expand(6.0), drawnInk().box, 1.0, "the widest");
}

TEST_F(TextShapePainterGLTest, ColorsAreBlendedWithWhatIsBehind) {
    root->append(new BackgroundGL(Color(0.0, 0.0, 1.0, 1.0)));
    const SO<TextShape> text = newText(L"\u2588", Vector(20, 30, 0), 40.0);
    text->setColor(Color(1.0, 0.0, 0.0, 0.5));
    root->append(text.get());
    const SO<Image> image = draw();
    EXPECT_NEAR(128, pixel(image, 30, 45)[0], 1);
    EXPECT_NEAR(127, pixel(image, 30, 45)[2], 1);
    EXPECT_EQ(255, pixel(image, 30, 45)[3]) << "as opaque as before";
    // On nothing there is as much as the colour has.
    root->clear();
    root->append(pixels.get());
    root->append(text.get());
    EXPECT_NEAR(128, pixel(draw(), 30, 45)[3], 1);
    // Whoever blends in a way of his own goes on so.
    root->clear();
    root->append(pixels.get());
    root->append(ColorBufferGL::newBlending(true, GL_ZERO, GL_ONE));
    root->append(text.get());
    EXPECT_EQ(0.0, drawnInk().amount);
}

TEST_F(TextShapePainterGLTest, IsHiddenByWhatStandsBeforeItAndHidesNothing) {
    const SO<TextShape> text = newText(L"Höhe", Vector(50, 40, 0));
    root->append(new Box(Vector(0, 0, 50), Vector(65, 100, 50)));
    root->append(text.get());
    const SO<Image> hidden = draw();
    EXPECT_EQ((std::array<int, 4>{255, 255, 255, 255}), pixel(hidden, 60, 45)) << "the box";
    root->clear();
    root->append(pixels.get());
    root->append(text.get());
    root->append(new Box(Vector(0, 0, -50), Vector(200, 100, -50)));
    EXPECT_NEAR(200.0 * 100.0, drawnInk().amount, 1e-6) << "what comes later is not cut out";
}

TEST_F(TextShapePainterGLTest, LeavesTheStateAsItIsFound) {
    const SO<TextShape> text = newText(L"Höhe", Vector(50, 40, 0));
    text->setHalo(1.0, Color::red);
    root->append(text.get());
    const std::vector<int> before = stateOfGL();
    draw();
    EXPECT_EQ(before, stateOfGL());
    EXPECT_FALSE(glIsEnabled(GL_BLEND));
    const Names names = countNames();
    const SO<Image> expected = draw();
    EXPECT_EQ(names, countNames());
    // Nor does it take what it finds for its own.
    const SO<BufferObjectGL> buffer(new BufferObjectGL(
        engine.get(), 4, nullptr, BufferObjectGL::DT_VertexAttributes, BufferObjectGL::UP_Static));
    buffer->bind(engine.get());
    EXPECT_EQ(0, largestDifference(expected, draw()));
    buffer->unbind(engine.get());
}

TEST_F(TextShapePainterGLTest, NeitherFaceStylesNorWireFramesConcernIt) {
    const SO<TextShape> text = newText(L"Höhe", Vector(50, 40, 0));
    root->append(text.get());
    const double expected = drawnInk().amount;
    root->clear();
    root->append(pixels.get());
    root->append(new FaceStyle(FaceStyle::S_Culled, FaceStyle::S_Culled));
    root->append(new PolygonModeGL(GL_LINE));
    root->append(text.get());
    EXPECT_NEAR(expected, drawnInk().amount, 1e-6);
}

TEST_F(TextShapePainterGLTest, TilesOfALargePictureFit) {
    const SO<TextShape> text = newText(L"Höhe 8848", Vector(-0.8, 0, 0), 60.0);
    text->setHalo(3.0, Color::red);
    root->clear();
    root->append(text.get());
    const SO<Image> tiled = canvas->largeScaleSnapshot(450, 230);
    ASSERT_TRUE(tiled);
    canvas->setSize(450, 230);
    EXPECT_LE(largestDifference(draw(), tiled), 1);
    canvas->setSize(s_width, s_height);
    engine->setMaxViewport(300, 300);
    const SO<Image> cropped = canvas->largeScaleSnapshot(450, 230);
    EXPECT_LE(largestDifference(tiled, cropped), 3);
}

TEST_F(TextShapePainterGLTest, WithoutTextOrFontNothingIsDrawn) {
    for (const wchar_t * nothing : {L"", L" \n ", L"\x01"}) {
        root->append(newText(nothing, Vector(50, 40, 0)).get());
        EXPECT_EQ(0.0, drawnInk().amount);
    }
    const SO<TextShape> text = newText(L"Höhe", Vector(50, 40, 0));
    text->setFont(L"Nobody Has This Font Either");
    root->append(text.get());
    EXPECT_EQ(0.0, drawnInk().amount);
    EXPECT_EQ(0.0, drawnInk().amount);
    EXPECT_EQ(1U, reports.size());
    reports.clear();
}

TEST_F(TextShapePainterGLTest, AMegabyteIsDrawnAsFarAsItIsRead) {
    std::wstring text(1 << 20, L'a');
    for (std::size_t i = 0; i < text.size(); i += 7)
        text[i] = wchar_t(i % 0x250);
    root->append(newText(text, Vector(-5000, 40, 0)).get());
    EXPECT_GT(drawnInk().amount, 100.0);
}

TEST_F(TextShapePainterGLTest, LooksLikeItself) {
    canvas->setSize(640, 240);
    canvas->setBackgroundColor(Color(0.45, 0.55, 0.35, 1.0));
    double y = 225.0;
    for (const double size : {9.0, 11.0, 14.0, 20.0, 32.0}) {
        y -= size * 1.5;
        const SO<TextShape> text =
            newText(L"Everest 8848 m ÄÖÜ \u05E9\u05DC\u05D5\u05DD \u0627\u0644\u0633\u0644\u0627\u0645",
                    Vector(20, y, 0), size);
        text->setColor(Color::black);
        text->setHalo(size * 0.1, Color::white);
        root->append(text.get());
    }
    // And one that lies on the ground, seen from the south.
    root->append(
        new Camera(new LookAt(Vector(0, 40, -60), Vector(0, 0, 20)), new Perspective(45.0, 1.0, 1000.0)));
    const SO<TextShape> lying = newText(L"Rhône — Lac Léman", Vector(0, 0, -8), 8.0);
    lying->setSize(8.0, TextShape::SU_Metres);
    lying->setAnchor(TextLayout::A_Center);
    lying->setColor(Color(0.1, 0.2, 0.6, 1.0));
    lying->setHalo(0.8, Color(0.9, 0.95, 1.0, 1.0));
    root->append(lying.get());
    const SO<Image> image = draw();
    const std::string path = testing::TempDir() + "textshape" + std::to_string(::getpid()) + ".png";
    writePng(*image, path);
    EXPECT_EQ("", compareWithGolden(path, "textshape"));
    std::filesystem::remove(path);
}

} // namespace
