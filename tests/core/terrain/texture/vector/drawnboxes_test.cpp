#include "core/terrain/texture/vector/drawnboxes.h"

#include <gtest/gtest.h>

#include <nbx/engine/canvas.h>
#include <nbx/engine/engine.h>
#include <nbx/scene/attribute/contextdata.h>

using NBX::Bounds;
using NBX::SO;
using ZMT::CORE::DrawnBoxes;
using Point = NBX::Vector3Base<double>;

namespace {

/// What a canvas pushes for each picture.
SO<NBX::Attribute> picture() {
    return new NBX::ContextData<NBX::Canvas *>(NBX::Canvas::ClassNameNBX(), nullptr);
}

Bounds box(double from, double to) {
    return {Point(from, 0.0, from), Point(to, 0.0, to)};
}

class DrawnBoxesTest : public testing::Test {
protected:
    const SO<NBX::Engine> engine{new NBX::Engine}, other{new NBX::Engine};
    DrawnBoxes boxes;
};

TEST_F(DrawnBoxesTest, TerrainsOfOnePictureAreJoined) {
    {
        const NBX::AttributeScope scope(engine.get(), picture().get());
        EXPECT_TRUE(boxes.begin(engine.get()));
        boxes.end(engine.get(), box(0.0, 10.0));
        EXPECT_FALSE(boxes.begin(engine.get()));
        EXPECT_FALSE(boxes.lastPicture(engine.get()).isDefined());
        boxes.end(engine.get(), box(20.0, 30.0));
    }
    const NBX::AttributeScope scope(engine.get(), picture().get());
    EXPECT_TRUE(boxes.begin(engine.get()));
    EXPECT_EQ(boxes.lastPicture(engine.get()), box(0.0, 30.0));
}

TEST_F(DrawnBoxesTest, CanvasesHaveTheirOwn) {
    for (int i = 0; i < 2; ++i)
        for (const SO<NBX::Engine> & each : {engine, other}) {
            EXPECT_TRUE(boxes.begin(each.get()));
            boxes.end(each.get(), each == engine ? box(0.0, 1.0) : box(5.0, 6.0));
        }
    boxes.begin(engine.get());
    EXPECT_EQ(boxes.lastPicture(engine.get()), box(0.0, 1.0));
    EXPECT_EQ(boxes.lastPicture(other.get()), box(5.0, 6.0));
}

TEST_F(DrawnBoxesTest, WithoutAPictureEachTerrainIsOne) {
    EXPECT_TRUE(boxes.begin(engine.get()));
    boxes.end(engine.get(), box(0.0, 1.0));
    EXPECT_TRUE(boxes.begin(engine.get()));
    EXPECT_EQ(boxes.lastPicture(engine.get()), box(0.0, 1.0));
    boxes.end(engine.get(), Bounds());
    EXPECT_TRUE(boxes.begin(engine.get()));
    EXPECT_FALSE(boxes.lastPicture(engine.get()).isDefined());
    EXPECT_TRUE(boxes.begin(nullptr));
    boxes.end(nullptr, box(0.0, 1.0));
    EXPECT_FALSE(boxes.lastPicture(nullptr).isDefined());
}

} // namespace
