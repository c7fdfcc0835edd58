#include <nbx/scene/shape/lineset.h>

#include <gtest/gtest.h>

#include <nbx/container/sequence/array.h>

#include "support/storedcopy.h"

namespace {

using namespace NBX;
using V = Vector3Base<double>;

TEST(LineSet, BoxAndStoredForm) {
    const SO<Array<V>> vertices(new Array<V>());
    vertices->append(V(1, 2, 3));
    vertices->append(V(-1, 5, 0));
    const SO<LineSet> lines(new LineSet(LineSet::PT_LineLoop, vertices));
    EXPECT_EQ(lines->boundingBox(), Bounds(V(-1, 2, 0), V(1, 5, 3)));
    const SO<LineSet> copy = storedCopy(*lines);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->getPrimitiveType(), LineSet::PT_LineLoop);
    EXPECT_EQ(copy->boundingBox(), lines->boundingBox());
    lines->setVertexIterator(nullptr);
    EXPECT_FALSE(lines->boundingBox().isDefined());
}

} // namespace
