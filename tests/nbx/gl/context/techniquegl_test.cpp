#include <nbx/gl/context/techniquegl.h>

#include "support/glfixture.h"

namespace {

using namespace NBX;

class TechniqueGLTest : public GLFixture {};

class PlainTechniqueGL : public TechniqueGL {
public:
    ID target() const override { return "Plain"; }
};

TEST_F(TechniqueGLTest, NeedsAnEngineForOpenGL) {
    const SO<PlainTechniqueGL> technique(new PlainTechniqueGL);
    const SO<Engine> plain(new Engine);
    EXPECT_TRUE(technique->canBeUsed(engine.get()));
    EXPECT_FALSE(technique->canBeUsed(plain.get()));
    EXPECT_FALSE(technique->canBeUsed(nullptr));
}

} // namespace
