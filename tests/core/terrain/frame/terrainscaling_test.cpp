#include <zmt/core/terrain/frame/terrainscaling.h>

#include <gtest/gtest.h>

#include <nbx/object/so.h>

using ZMT::CORE::TerrainScaling;
using Point = NBX::Vector3Base<double>;

namespace {

class SteeperScaling : public TerrainScaling {
    NBX_TEMPLATE_CLASS(SteeperScaling, TerrainScaling)
public:
    SteeperScaling() : TerrainScaling({1, 9, 1}) {}
};

TEST(TerrainScaling, KeepsItsFactors) {
    const NBX::SO<TerrainScaling> scaling(new TerrainScaling({1, 2.5, 3}));
    EXPECT_EQ(scaling->getScaling(), Point(1, 2.5, 3));
    EXPECT_TRUE(scaling->isEnabled());
    const auto before = scaling->lastTransactionNo();
    scaling->setScaling({1, 2.5, 3});
    EXPECT_EQ(scaling->lastTransactionNo(), before) << "nothing has changed";
    scaling->setScaling({4, 5, 6});
    EXPECT_EQ(scaling->getScaling(), Point(4, 5, 6));
    EXPECT_GT(scaling->lastTransactionNo(), before);
}

TEST(TerrainScaling, SubclassesShareOneStack) {
    EXPECT_EQ(NBX::SO<SteeperScaling>(new SteeperScaling)->category(), TerrainScaling::ClassNameNBX());
}

} // namespace
