#include "core/terrain/texture/dynamic/trapezoidgridgl.h"

#include <array>
#include <cstring>

#include <support/glfixture.h>

#include "core/terrain/texture/dynamic/trapezoidprogramsgl.h"

using ZMT::CORE::FloatTargetGL;
using ZMT::CORE::TrapezoidGridGL;
using ZMT::CORE::TrapezoidProgramsGL;

namespace {

using Matrix = NBX::Matrix4x4Base<double>;
using XYZW = std::array<float, 4>;

class TrapezoidGridGLTest : public GLFixture {
protected:
    /// Of the vertices, row by row.
    template <class T> std::vector<T> values(const TrapezoidGridGL & grid, const char * name) {
        const auto buffer = grid.shape()->attribute(name);
        std::vector<T> result(buffer->count());
        EXPECT_EQ(buffer->bytes(), result.size() * sizeof(T));
        const void * mapped = buffer->mapPointer(NBX::BufferObjectGL::MA_Read);
        std::memcpy(result.data(), mapped, buffer->bytes());
        buffer->unmapPointer();
        return result;
    }
    /// Draws the plane of three heights over the unit square, as heights are drawn.
    void drawPlane(const TrapezoidGridGL & grid, double atOrigin, double alongX, double alongY) {
        const TrapezoidProgramsGL::TrapMatScope scope(grid.toPixelMiddles() *
                                                      Matrix::translation({-1.0, -1.0, 0.0}) *
                                                      Matrix::scaling({2.0, 2.0, 1.0}));
        glPushAttrib(GL_ALL_ATTRIB_BITS);
        glDisable(GL_DEPTH_TEST);
        ASSERT_TRUE(TrapezoidProgramsGL::height().use());
        glBegin(GL_QUADS);
        for (const auto & [x, y] :
             {std::pair(-1.0, -1.0), std::pair(2.0, -1.0), std::pair(2.0, 2.0), std::pair(-1.0, 2.0)})
            glVertex3d(x, y, atOrigin + x * alongX + y * alongY);
        glEnd();
        NBX::GL2::ProgramObject::useNone();
        glPopAttrib();
    }
};

TEST_F(TrapezoidGridGLTest, ItsVerticesCoverTheSquareRowByRow) {
    const TrapezoidGridGL grid(engine.get(), 5);
    EXPECT_TRUE(grid.isUsable());
    EXPECT_EQ(grid.size(), 5U);
    const auto places = values<std::array<float, 2>>(grid, "gridXY");
    ASSERT_EQ(places.size(), 25U);
    for (unsigned j = 0; j < 5; ++j)
        for (unsigned i = 0; i < 5; ++i) {
            EXPECT_EQ(places[j * 5 + i][0], float(i) / 4.0F);
            EXPECT_EQ(places[j * 5 + i][1], float(j) / 4.0F);
        }
    EXPECT_EQ(grid.shape()->vertexCount(), 25U);
    EXPECT_EQ(grid.shape()->primitiveType(), NBX::VertexAttributeShapeGL::PT_Triangles);
}

TEST_F(TrapezoidGridGLTest, BothGridsHaveTheirSizes) {
    for (const unsigned n : {128U, 1024U}) {
        const TrapezoidGridGL grid(engine.get(), n);
        EXPECT_EQ(grid.shape()->vertexCount(), n * n);
        EXPECT_EQ(grid.shape()->attribute("gridZ")->bytes(), std::size_t(n) * n * 4 * sizeof(float));
        EXPECT_EQ(grid.shape()->attribute("gridZ")->components(), 4U);
        EXPECT_EQ(grid.shape()->attribute("gridXY")->components(), 2U);
        EXPECT_EQ(grid.texture()->getWidth(), n);
        EXPECT_EQ(grid.texture()->getHeight(), n);
    }
}

TEST_F(TrapezoidGridGLTest, TheHeightsAreThoseAtTheVertices) {
    for (const unsigned n : {2U, 7U, 128U}) {
        TrapezoidGridGL grid(engine.get(), n);
        const std::vector<int> before = stateOfGL();
        // Of somebody who reads a part of a picture.
        glPixelStorei(GL_PACK_ROW_LENGTH, int(n) - 1);
        grid.fill(engine.get(), [&] { drawPlane(grid, -100.0, 700.0, 900.0); });
        glPixelStorei(GL_PACK_ROW_LENGTH, 0);
        EXPECT_EQ(stateOfGL(), before);
        EXPECT_EQ(grid.shape()->attribute("gridZ")->dataType(), NBX::BufferObjectGL::DT_VertexAttributes);
        const auto heights = values<XYZW>(grid, "gridZ");
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i) {
                const XYZW & found = heights[j * n + i];
                const double expected = -100.0 + 700.0 * i / (n - 1.0) + 900.0 * j / (n - 1.0);
                ASSERT_NEAR(found[0], expected, 0.02) << i << ", " << j << " of " << n;
                ASSERT_EQ(found[1], found[0]);
                ASSERT_EQ(found[2], found[0]);
                ASSERT_EQ(found[3], 1.0F);
            }
    }
}

TEST_F(TrapezoidGridGLTest, WhereNothingIsDrawnThereIsNoData) {
    TrapezoidGridGL grid(engine.get(), 4);
    grid.fill(engine.get(), [&] { drawPlane(grid, 3.0, 0.0, 0.0); });
    glPushAttrib(GL_ALL_ATTRIB_BITS);
    glColorMask(GL_FALSE, GL_TRUE, GL_FALSE, GL_TRUE);
    glEnable(GL_SCISSOR_TEST);
    glScissor(0, 0, 1, 1);
    grid.fill(engine.get(), [] {});
    glPopAttrib();
    for (const XYZW & found : values<XYZW>(grid, "gridZ"))
        EXPECT_EQ(found, (XYZW{-9999.0F, -9999.0F, -9999.0F, -9999.0F}));
}

/// The mesh over the whole picture, with some heights, and which pixels it leaves out.
class HolesTest : public TrapezoidGridGLTest {
protected:
    bool isDrawn(ZMT::CORE::TrapezoidProgramGL & program, float height, float rest = 5.0F) {
        TrapezoidGridGL grid(engine.get(), 3);
        std::array<XYZW, 9> heights;
        heights.fill({0.0F, 0.0F, rest, 1.0F});
        heights[4] = {1.0F, 1.0F, height, 1.0F};
        grid.shape()->attribute("gridZ")->update(0, heights.data(), sizeof(heights));
        const FloatTargetGL target(engine.get(), 16);
        XYZW found{};
        target.drawInto(engine.get(), [&] {
            glPushAttrib(GL_ALL_ATTRIB_BITS);
            glDisable(GL_DEPTH_TEST);
            program.set("invTrapMat", Matrix());
            // Heights play no part in where it is drawn.
            program.set("mvpMat", Matrix({2, 0, 0, -1, 0, 2, 0, -1, 0, 0, 0, 0, 0, 0, 0, 1}));
            EXPECT_TRUE(program.use());
            grid.draw(engine.get());
            NBX::GL2::ProgramObject::useNone();
            glReadPixels(6, 10, 1, 1, GL_RGBA, GL_FLOAT, found.data());
            glPopAttrib();
        });
        return found[3] != FloatTargetGL::noData;
    }
};

TEST_F(HolesTest, TheMeasuredMeshHasThemAtZeroAndFromMinusFiveHundredDown) {
    auto & mesh = TrapezoidProgramsGL::mesh();
    EXPECT_TRUE(isDrawn(mesh, 5.0F));
    EXPECT_TRUE(isDrawn(mesh, -499.0F));
    EXPECT_TRUE(isDrawn(mesh, 0.001F));
    EXPECT_FALSE(isDrawn(mesh, 0.0F));
    EXPECT_FALSE(isDrawn(mesh, -500.0F));
    EXPECT_FALSE(isDrawn(mesh, -9999.0F));
    EXPECT_FALSE(isDrawn(mesh, 5.0F, 0.0F));
}

TEST_F(HolesTest, ThePatternHasThemAtZeroAndAtMinus9999) {
    auto & mesh = TrapezoidProgramsGL::meshPattern();
    EXPECT_TRUE(isDrawn(mesh, 5.0F));
    EXPECT_TRUE(isDrawn(mesh, -500.0F));
    EXPECT_TRUE(isDrawn(mesh, -9998.0F));
    EXPECT_FALSE(isDrawn(mesh, 0.0F));
    EXPECT_FALSE(isDrawn(mesh, -9999.0F));
}

TEST_F(HolesTest, TheTexturedMeshHasThoseOfTheMeasuredOne) {
    auto & mesh = TrapezoidProgramsGL::meshTextured();
    EXPECT_TRUE(isDrawn(mesh, -499.0F));
    EXPECT_FALSE(isDrawn(mesh, 0.0F));
    EXPECT_FALSE(isDrawn(mesh, -500.0F));
}

} // namespace
