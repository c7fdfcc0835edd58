#include <nbx/gl/mesh/primitivequadtreeareagl.h>

#include <gtest/gtest.h>

#include <nbx/object/so.h>

using namespace NBX;

TEST(PrimitiveQuadTreeAreaGL, KeepsItsBox) {
    const Bounds box({1, 2, 3}, {4, 5, 6});
    const SO<PrimitiveQuadTreeAreaGL> area(new PrimitiveQuadTreeAreaGL(box));
    EXPECT_EQ(box, area->getBox());
    EXPECT_TRUE(area->isEnabled());
    EXPECT_EQ(PrimitiveQuadTreeAreaGL::ClassNameNBX(), area->category());
}
