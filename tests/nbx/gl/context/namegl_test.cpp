#include <nbx/gl/context/namegl.h>

#include <thread>

#include <nbx/gl/context/contextgl.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class NameGLTest : public GLFixture {
protected:
    static void use(const NameGL & name, NameGL::Kind kind) {
        switch (kind) {
        case NameGL::NK_Buffer:
            glBindBuffer(GL_ARRAY_BUFFER, name.get());
            break;
        case NameGL::NK_Texture:
            glBindTexture(GL_TEXTURE_2D, name.get());
            break;
        case NameGL::NK_RenderBuffer:
            glBindRenderbufferEXT(GL_RENDERBUFFER_EXT, name.get());
            break;
        case NameGL::NK_Query:
            glBeginQuery(GL_SAMPLES_PASSED, name.get());
            glEndQuery(GL_SAMPLES_PASSED);
            break;
        case NameGL::NK_FrameBuffer: {
            GLint before = 0;
            glGetIntegerv(GL_FRAMEBUFFER_BINDING_EXT, &before);
            glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, name.get());
            glBindFramebufferEXT(GL_FRAMEBUFFER_EXT, GLuint(before));
            break;
        }
        default:
            break;
        }
        glBindBuffer(GL_ARRAY_BUFFER, 0);
        glBindTexture(GL_TEXTURE_2D, 0);
        glBindRenderbufferEXT(GL_RENDERBUFFER_EXT, 0);
    }
    static constexpr NameGL::Kind kinds[] = {NameGL::NK_Buffer,      NameGL::NK_Texture,
                                             NameGL::NK_DisplayList, NameGL::NK_RenderBuffer,
                                             NameGL::NK_FrameBuffer, NameGL::NK_Query};
};

TEST_F(NameGLTest, FreesAtOnceWhereTheContextIsCurrent) {
    const Names before = countNames();
    for (const NameGL::Kind kind : kinds) {
        {
            const NameGL name = NameGL::generate(kind);
            EXPECT_TRUE(name);
            EXPECT_TRUE(name.isKnownHere());
            use(name, kind);
            EXPECT_FALSE(countNames() == before) << kind;
        }
        EXPECT_EQ(before, countNames()) << kind;
    }
}

TEST_F(NameGLTest, FreesLaterWhereNoContextIsCurrent) {
    const Names before = countNames();
    std::vector<NameGL> names;
    for (const NameGL::Kind kind : kinds) {
        names.push_back(NameGL::generate(kind));
        use(names.back(), kind);
    }
    canvas->releaseContext();
    names.clear();
    ASSERT_TRUE(canvas->makeContextCurrent());
    EXPECT_EQ(before, countNames());
}

TEST_F(NameGLTest, MayBeDroppedOnAnotherThread) {
    const Names before = countNames();
    NameGL name = NameGL::generate(NameGL::NK_Texture);
    use(name, NameGL::NK_Texture);
    std::thread([&] { name.drop(); }).join();
    EXPECT_FALSE(name);
    ASSERT_TRUE(canvas->makeContextCurrent());
    EXPECT_EQ(before, countNames());
    canvas->releaseContext();
}

TEST_F(NameGLTest, OwnNamesWaitForTheirContext) {
    const Names before = countNames();
    NameGL query = NameGL::generate(NameGL::NK_Query);
    use(query, NameGL::NK_Query);
    const SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(4, 4));
    ASSERT_TRUE(other->makeContextCurrent());
    EXPECT_FALSE(query.isKnownHere());
    query.drop();
    other->releaseContext();
    EXPECT_EQ(before.queries, countNames().queries);
}

TEST_F(NameGLTest, OwnNamesDieWithTheirContext) {
    SO<OffscreenCanvasGL> other(new OffscreenCanvasGL(4, 4));
    ASSERT_TRUE(other->makeContextCurrent());
    NameGL query = NameGL::generate(NameGL::NK_Query);
    other->releaseContext();
    other = nullptr;
    const unsigned same = query.get();
    const NameGL own = NameGL::generate(NameGL::NK_Query);
    use(own, NameGL::NK_Query);
    EXPECT_FALSE(query.isKnownHere());
    query.drop();
    EXPECT_TRUE(glIsQuery(own.get())) << same;
}

TEST_F(NameGLTest, MovesItsName) {
    NameGL a = NameGL::generate(NameGL::NK_Buffer);
    const unsigned name = a.get();
    NameGL b(std::move(a));
    EXPECT_EQ(name, b.get());
    EXPECT_EQ(0U, a.get());
    a = std::move(b);
    EXPECT_EQ(name, a.get());
    EXPECT_FALSE(b.isKnownHere());
}

TEST(NameGLWithoutContext, IsReported) {
    RecordedReports reports;
    EXPECT_FALSE(NameGL::generate(NameGL::NK_Buffer));
    EXPECT_EQ(1U, reports.count(0, L"ContextGL::current()", L"no current context"));
}

} // namespace
