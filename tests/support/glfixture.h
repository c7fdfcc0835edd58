#pragma once

#include <array>
#include <cmath>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include <GL/glew.h>

#include <nbx/gl/offscreen/offscreencanvasgl.h>
#include <nbx/image/image.h>
#include <nbx/math/color.h>
#include <nbx/scene/node/scenething.h>

#include "support/recordedreports.h"

/// Tests that draw: an off-screen canvas of 64 by 64 pixels whose context is current, and its engine. Without
/// a context the test fails. Reports are recorded, and a test that leaves any behind fails.
class GLFixture : public ::testing::Test {
protected:
    void SetUp() override {
        canvas = NBX::SO<NBX::OffscreenCanvasGL>(new NBX::OffscreenCanvasGL(64, 64));
        ASSERT_TRUE(canvas->isCreated()) << "no OpenGL context";
        engine = canvas->engine();
        ASSERT_TRUE(canvas->makeContextCurrent());
        root = NBX::SO<NBX::SceneThing>(new NBX::SceneThing);
        canvas->append(root.get());
    }

    void TearDown() override {
        if (canvas && canvas->isCreated()) {
            EXPECT_EQ(GLenum(GL_NO_ERROR), glGetError());
            canvas->releaseContext();
        }
        root = nullptr;
        engine = nullptr;
        canvas = nullptr;
        EXPECT_TRUE(reports.empty()) << reports;
    }

    /// Draws the root node and gives the picture.
    NBX::SO<NBX::Image> draw() {
        canvas->redisplay();
        return canvas->snapshot();
    }

    /// The components of a pixel of the last picture drawn, from 0 to 255.
    static std::array<int, 4> pixel(const NBX::SO<NBX::Image> & image, int x, int y) {
        const NBX::Color color = image->getColor(x, y);
        std::array<int, 4> result;
        for (unsigned i = 0; i < 4; ++i)
            result[i] = int(std::lround(color[i] * 255.0F));
        return result;
    }

    /// The largest difference of two pictures of one size in any component, from 0 to 255; 256 for pictures
    /// of different size.
    static int largestDifference(const NBX::SO<NBX::Image> & a, const NBX::SO<NBX::Image> & b) {
        if (!a || !b || a->width() != b->width() || a->height() != b->height()) return 256;
        int largest = 0;
        for (int y = 0; y < a->height(); ++y)
            for (int x = 0; x < a->width(); ++x) {
                const std::array<int, 4> p = pixel(a, x, y), q = pixel(b, x, y);
                for (unsigned i = 0; i < 4; ++i)
                    largest = std::max(largest, std::abs(p[i] - q[i]));
            }
        return largest;
    }

    /// Number of names that OpenGL has given out, of those below a bound.
    struct Names {
        int buffers = 0, textures = 0, lists = 0, frameBuffers = 0, renderBuffers = 0, queries = 0;
        bool operator==(const Names &) const = default;
        friend std::ostream & operator<<(std::ostream & stream, const Names & n) {
            return stream << "buffers " << n.buffers << ", textures " << n.textures << ", lists " << n.lists
                          << ", frame buffers " << n.frameBuffers << ", render buffers " << n.renderBuffers
                          << ", queries " << n.queries;
        }
    };
    static Names countNames(unsigned bound = 50000) {
        Names names;
        for (unsigned i = 1; i < bound; ++i) {
            names.buffers += glIsBuffer(i) == GL_TRUE;
            names.textures += glIsTexture(i) == GL_TRUE;
            names.lists += glIsList(i) == GL_TRUE;
            names.frameBuffers += glIsFramebufferEXT(i) == GL_TRUE;
            names.renderBuffers += glIsRenderbufferEXT(i) == GL_TRUE;
            names.queries += glIsQuery(i) == GL_TRUE;
        }
        return names;
    }

    /// What painters have to leave as they find it.
    static std::vector<int> stateOfGL() {
        static constexpr GLenum names[] = {GL_ARRAY_BUFFER_BINDING,
                                           GL_ELEMENT_ARRAY_BUFFER_BINDING,
                                           GL_PIXEL_PACK_BUFFER_BINDING,
                                           GL_PIXEL_UNPACK_BUFFER_BINDING,
                                           GL_FRAMEBUFFER_BINDING,
                                           GL_RENDERBUFFER_BINDING,
                                           GL_VERTEX_ARRAY,
                                           GL_NORMAL_ARRAY,
                                           GL_COLOR_ARRAY,
                                           GL_TEXTURE_COORD_ARRAY,
                                           GL_CLIENT_ACTIVE_TEXTURE,
                                           GL_ACTIVE_TEXTURE,
                                           GL_TEXTURE_BINDING_2D,
                                           GL_TEXTURE_2D,
                                           GL_TEXTURE_GEN_S,
                                           GL_TEXTURE_GEN_T,
                                           GL_LIGHTING,
                                           GL_LIGHT0,
                                           GL_COLOR_MATERIAL,
                                           GL_NORMALIZE,
                                           GL_DEPTH_TEST,
                                           GL_DEPTH_FUNC,
                                           GL_DEPTH_WRITEMASK,
                                           GL_BLEND,
                                           GL_BLEND_SRC,
                                           GL_BLEND_DST,
                                           GL_ALPHA_TEST,
                                           GL_ALPHA_TEST_FUNC,
                                           GL_STENCIL_TEST,
                                           GL_CULL_FACE,
                                           GL_FRONT_FACE,
                                           GL_POLYGON_OFFSET_FILL,
                                           GL_SCISSOR_TEST,
                                           GL_MATRIX_MODE,
                                           GL_MODELVIEW_STACK_DEPTH,
                                           GL_PROJECTION_STACK_DEPTH,
                                           GL_TEXTURE_STACK_DEPTH,
                                           GL_ATTRIB_STACK_DEPTH,
                                           GL_CLIENT_ATTRIB_STACK_DEPTH,
                                           GL_PACK_ALIGNMENT,
                                           GL_UNPACK_ALIGNMENT,
                                           GL_CURRENT_PROGRAM,
                                           GL_LIST_INDEX};
        std::vector<int> state;
        for (const GLenum name : names) {
            GLint value = 0;
            glGetIntegerv(name, &value);
            state.push_back(value);
        }
        for (const GLenum name : {GL_COLOR_WRITEMASK, GL_VIEWPORT, GL_CURRENT_COLOR, GL_CURRENT_NORMAL}) {
            GLint values[4] = {0, 0, 0, 0};
            glGetIntegerv(name, values);
            state.insert(state.end(), values, values + 4);
        }
        return state;
    }

    RecordedReports reports;
    NBX::SO<NBX::OffscreenCanvasGL> canvas;
    NBX::SO<NBX::EngineGL> engine;
    NBX::SO<NBX::SceneThing> root;
};
