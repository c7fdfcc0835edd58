#include <zmt/core/terrain/frame/terrainwatcher.h>

#include <gtest/gtest.h>

using ZMT::CORE::TerrainWatcher;

namespace {

class NamedWatcher : public TerrainWatcher {
    NBX_TEMPLATE_CLASS(NamedWatcher, TerrainWatcher)
};

TEST(TerrainWatcher, HasSeenNothingAtFirst) {
    const NBX::SO<TerrainWatcher> watcher(new TerrainWatcher);
    const TerrainWatcher::Matrix identity;
    EXPECT_FALSE(watcher->viewinfo());
    EXPECT_EQ(watcher->modelview(), identity);
    EXPECT_EQ(watcher->inverseModelview(), identity);
    EXPECT_EQ(watcher->projection(), identity);
    EXPECT_EQ(watcher->inverseProjection(), identity);
    EXPECT_EQ(watcher->orientation(), identity);
    EXPECT_EQ(watcher->inverseOrientation(), identity);
    EXPECT_FALSE(watcher->getFreeze());
    watcher->setFreeze(true);
    EXPECT_TRUE(watcher->getFreeze());
    EXPECT_TRUE(watcher->isEnabled());
}

TEST(TerrainWatcher, SubclassesShareOneStack) {
    EXPECT_EQ(NBX::SO<NamedWatcher>(new NamedWatcher)->category(), TerrainWatcher::ClassNameNBX());
}

} // namespace
