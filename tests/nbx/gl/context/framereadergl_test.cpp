#include "nbx/gl/context/framereadergl.h"

#include <nbx/image/memoryimage.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class FrameReaderGLTest : public GLFixture {
protected:
    void SetUp() override {
        GLFixture::SetUp();
        // Red grows with x, green with y.
        glEnable(GL_SCISSOR_TEST);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x) {
                glScissor(x, y, 1, 1);
                glClearColor(float(x) / 255.0F, float(y) / 255.0F, 0.0F, 1.0F);
                glClear(GL_COLOR_BUFFER_BIT);
            }
        glDisable(GL_SCISSOR_TEST);
    }
};

TEST_F(FrameReaderGLTest, ReadsARectangleToAPlace) {
    const SO<Image> image(new MemoryImage(7, 5, LS_RGB, Image::UInt8, 4));
    ASSERT_TRUE(FrameReaderGL::read(image.get(), Area(2, 3, 4, 2), 3, 1));
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 7; ++x) {
            const bool inside = x >= 3 && y >= 1 && y < 3;
            EXPECT_EQ(inside ? x - 1 : 0, image->pixelComponentsU8(x, y)[0]) << x << ", " << y;
            EXPECT_EQ(inside ? y + 2 : 0, image->pixelComponentsU8(x, y)[1]) << x << ", " << y;
        }
}

TEST_F(FrameReaderGLTest, ReadsOtherTypes) {
    const SO<Image> wide(new MemoryImage(8, 8, LS_RGBA, Image::UInt16)),
        floats(new MemoryImage(8, 8, LS_RGB, Image::Float));
    ASSERT_TRUE(FrameReaderGL::read(wide.get(), Area(0, 0, 8, 8)));
    ASSERT_TRUE(FrameReaderGL::read(floats.get(), Area(0, 0, 8, 8)));
    EXPECT_NEAR(7.0 / 255.0, wide->getColor(7, 2)[0], 1e-4);
    EXPECT_NEAR(2.0 / 255.0, floats->getColor(7, 2)[1], 1e-6);
}

TEST_F(FrameReaderGLTest, LeavesTheStateOfGLAsItIsFound) {
    const SO<Image> image(new MemoryImage(8, 8, LS_RGB));
    glPixelStorei(GL_PACK_ALIGNMENT, 8);
    glPixelStorei(GL_PACK_ROW_LENGTH, 100);
    const std::vector<int> before = stateOfGL();
    ASSERT_TRUE(FrameReaderGL::read(image.get(), Area(0, 0, 8, 8)));
    EXPECT_EQ(before, stateOfGL());
    EXPECT_EQ(7, image->pixelComponentsU8(7, 7)[1]);
    GLint length = 0;
    glGetIntegerv(GL_PACK_ROW_LENGTH, &length);
    EXPECT_EQ(100, length);
}

TEST_F(FrameReaderGLTest, ReadsNothingOutsideTheImage) {
    const SO<Image> image(new MemoryImage(8, 8, LS_RGB));
    EXPECT_FALSE(FrameReaderGL::read(image.get(), Area(0, 0, 8, 8), 1, 0));
    EXPECT_FALSE(FrameReaderGL::read(image.get(), Area(0, 0, 8, 8), 0, -1));
    EXPECT_FALSE(FrameReaderGL::read(image.get(), Area(0, 0, 4000000000U, 1)));
    EXPECT_EQ(3U, reports.count(L"the pixels do not lie inside the image"));
    reports.clear();
    EXPECT_TRUE(FrameReaderGL::read(image.get(), Area(0, 0, 0, 0), 8, 8));
}

} // namespace
