#pragma once

#include <array>
#include <functional>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <GL/glew.h>

#include <nbx/math/matrix4x4base.h>
#include <nbx/math/vector3base.h>

/// What OpenGL would draw, as triangles in object coordinates.
class FeedbackGL {
public:
    using Point = NBX::Vector3Base<double>;
    using Triangle = std::array<Point, 3>;

    /// Sees the cube from -`halfSize` to `halfSize` from above: x to the right, z up, higher ground nearer,
    /// leaning over so that upright triangles have an area. A picture's pixel has 1/256 of the cube.
    static NBX::Matrix4x4Base<double> fromAbove(double halfSize) {
        return NBX::Matrix4x4Base<double>::scaling({1.0 / halfSize, 1.0 / halfSize, 1.0 / halfSize}) *
               NBX::Matrix4x4Base<double>({1, 0.0625, 0, 0, 0, 0.125, 1, 0, 0, -0.5, 0, 0, 0, 0, 0, 1});
    }

    /// Calls `draw` with object coordinates that `toClip` takes to the cube from -1 to 1. A context and a
    /// frame buffer are current.
    static std::vector<Triangle> triangles(const NBX::Matrix4x4Base<double> & toClip,
                                           const std::function<void()> & draw) {
        return corners(toClip, GL_3D, 3, draw).first;
    }

    /// The same, and the red of the corners under the light in force.
    static std::pair<std::vector<Triangle>, std::vector<std::array<double, 3>>>
    litTriangles(const NBX::Matrix4x4Base<double> & toClip, const std::function<void()> & draw) {
        return corners(toClip, GL_3D_COLOR, 7, draw);
    }

    static void loadMatrices(const NBX::Matrix4x4Base<double> & toClip) {
        glMatrixMode(GL_PROJECTION);
        glLoadMatrixd(toClip.columns().data());
        glMatrixMode(GL_MODELVIEW);
        glLoadIdentity();
    }

private:
    /// `numbers` are those of a corner of `type`; its fourth is the red.
    static std::pair<std::vector<Triangle>, std::vector<std::array<double, 3>>>
    corners(const NBX::Matrix4x4Base<double> & toClip, GLenum type, int numbers,
            const std::function<void()> & draw) {
        constexpr int side = 256;
        std::vector<GLfloat> buffer(400000);
        GLint viewport[4];
        glGetIntegerv(GL_VIEWPORT, viewport);
        loadMatrices(toClip);
        glViewport(0, 0, side, side);
        glFeedbackBuffer(GLsizei(buffer.size()), type, buffer.data());
        glRenderMode(GL_FEEDBACK);
        draw();
        const GLint size = glRenderMode(GL_RENDER);
        glViewport(viewport[0], viewport[1], viewport[2], viewport[3]);
        EXPECT_GE(size, 0) << "too much for the buffer";

        std::pair<std::vector<Triangle>, std::vector<std::array<double, 3>>> result;
        const auto toObject = toClip.inverse();
        for (GLint i = 0; i < size;) {
            EXPECT_EQ(buffer[i], GLfloat(GL_POLYGON_TOKEN));
            EXPECT_EQ(buffer[i + 1], 3.0F);
            Triangle & triangle = result.first.emplace_back();
            std::array<double, 3> & red = result.second.emplace_back();
            for (unsigned k = 0; k < 3; ++k) {
                const GLfloat * p = &buffer[i + 2 + numbers * int(k)];
                red[k] = numbers > 3 ? double(p[3]) : 0.0;
                triangle[k] =
                    toObject * Point(p[0] * 2.0 / side - 1.0, p[1] * 2.0 / side - 1.0, p[2] * 2.0 - 1.0);
            }
            i += 2 + 3 * numbers;
        }
        return result;
    }
};
