#include <gtest/gtest.h>

#include "core/terrain/texture/texturelist.h"

#include "faketerraintexture.h"

using ZMT::CORE::TerrainTexture;
using ZMT::CORE::TextureList;

namespace {

class TextureListTest : public testing::Test {
protected:
    FakeTextures fakes_ = fakeTextures(3);
};

TEST_F(TextureListTest, NullListIsEmpty) {
    const auto never = [](const TerrainTexture &) -> bool { throw std::logic_error("asked"); };
    EXPECT_FALSE(TextureList::anyRefines(nullptr, never));
    EXPECT_FALSE(TextureList::requestAll(
        nullptr, [](const TerrainTexture &) -> NBX::SO<NBX::TextureGL> { throw std::logic_error("asked"); }));
    std::vector<NBX::Visitable *> children;
    TextureList::acceptChildren(nullptr, children);
    EXPECT_TRUE(children.empty());
}

TEST_F(TextureListTest, AsksInOrderUpToTheFirstThatRefines) {
    std::vector<const TerrainTexture *> asked;
    EXPECT_TRUE(TextureList::anyRefines(sequenceOf(fakes_).get(), [&](const TerrainTexture & texture) {
        asked.push_back(&texture);
        return asked.size() == 2;
    }));
    EXPECT_EQ(asked, (std::vector<const TerrainTexture *>{fakes_[0].get(), fakes_[1].get()}));
}

TEST_F(TextureListTest, CollectsTheAnswersInOrder) {
    fakes_[1] = nullptr;
    const auto all = TextureList::requestAll(sequenceOf(fakes_).get(), [](const TerrainTexture & texture) {
        return static_cast<const FakeTerrainTexture &>(texture).answer;
    });
    ASSERT_TRUE(all);
    EXPECT_EQ(all->stl(), (std::vector<NBX::SO<NBX::TextureGL>>{fakes_[0]->answer, fakes_[2]->answer}));
}

TEST_F(TextureListTest, ListsItsEntriesForAVisit) {
    std::vector<NBX::Visitable *> children;
    TextureList::acceptChildren(sequenceOf(fakes_).get(), children);
    EXPECT_EQ(children, (std::vector<NBX::Visitable *>{fakes_[0].get(), fakes_[1].get(), fakes_[2].get()}));
}

/// Makes a texture anew each time it is asked.
class MadeTextures : public TextureList::Textures {
public:
    unsigned size() const override { return 2; }
    NBX::SO<TerrainTexture> get(unsigned i) const override {
        return i == 0 ? held : NBX::SO<TerrainTexture>(fakeTextures(1)[0].get());
    }
    NBX::SO<TerrainTexture> held{fakeTextures(1)[0].get()};
};

TEST_F(TextureListTest, TexturesThatNobodyHoldsAreNoChildren) {
    const NBX::SO<MadeTextures> made(new MadeTextures);
    std::vector<NBX::Visitable *> children;
    TextureList::acceptChildren(made.get(), children);
    EXPECT_EQ(children, (std::vector<NBX::Visitable *>{made->held.get()}));
}

} // namespace
