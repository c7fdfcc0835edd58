#include "core/terrain/texture/vector/vectortexturetables.h"

#include "core/terrain/texture/vector/vectortextureimagegl.h"

#include "vectortexturetest.h"

using NBX::SO;
using ZMT::CORE::DrawnLevelsTextureGL;

namespace {

/// The tables of the process, with patches and textures that nobody draws.
class VectorTextureTablesTest : public VectorTextureFixture {
protected:
    using Patch = VectorTexture::Patch;

    SO<Patch> patch() { return new Patch(texture.get(), tree.get(), 0); }
    static SO<NBX::Texture2DGL> image(unsigned size = 65) {
        return new DrawnLevelsTextureGL(size, size, s_rgba4);
    }
    void frame(bool inMotion = false) {
        tables.endFrame({nullptr, inMotion});
        tables.beginFrame({nullptr, inMotion});
    }
    std::vector<Patch *> taken() {
        std::vector<Patch *> result;
        for (const SO<Patch> & each : tables.takeQueue())
            result.push_back(each.get());
        return result;
    }
    using Patches = std::vector<Patch *>;

    Tables & tables = Tables::instance();
};

TEST_F(VectorTextureTablesTest, HaveTheirUsualValues) {
    EXPECT_EQ(tables.textureFormat, s_rgba4);
    EXPECT_EQ(tables.maxPatches, 35U);
}

TEST_F(VectorTextureTablesTest, TheMostWantedComesFirst) {
    const SO<Patch> a = patch(), b = patch(), c = patch(), d = patch();
    tables.enqueue(a.get(), 1.0);
    tables.enqueue(b.get(), 3.0);
    tables.enqueue(c.get(), 1.5);
    tables.enqueue(a.get(), 1.0);
    tables.enqueue(d.get(), 2.0);
    EXPECT_EQ(taken(), (Patches{b.get(), a.get(), d.get(), c.get()})) << "of equal ones the earlier one";
    EXPECT_EQ(tables.queueLength(), 0U);
    EXPECT_TRUE(taken().empty());
    EXPECT_FALSE(tables.isFull()) << "nothing waited";
}

TEST_F(VectorTextureTablesTest, OnlyAsManyAreTakenAsThereIsRoomFor) {
    tables.maxPatches = 3;
    const SO<Patch> used = patch(), unused = patch(), a = patch(), b = patch(), c = patch();
    tables.store(used.get(), image());
    tables.store(unused.get(), image());
    frame();
    frame();
    EXPECT_TRUE(tables.use(used.get()));
    frame(); // what the last picture used counts as well
    for (const SO<Patch> & each : {a, b, c})
        tables.enqueue(each.get(), 1.0);
    EXPECT_EQ(taken(), (Patches{a.get(), b.get()})) << "the unused one gives way";
    EXPECT_FALSE(tables.isFull());
    tables.maxPatches = 1;
    tables.enqueue(a.get(), 1.0);
    EXPECT_TRUE(taken().empty());
    EXPECT_FALSE(tables.isFull()) << "the next picture may have room";
    tables.enqueue(a.get(), 1.0);
    EXPECT_TRUE(taken().empty());
    EXPECT_TRUE(tables.isFull()) << "it had none";
    tables.enqueue(b.get(), 1.0);
    EXPECT_TRUE(taken().empty());
    EXPECT_FALSE(tables.isFull()) << "another wish";
    tables.enqueue(b.get(), 1.0);
    EXPECT_TRUE(taken().empty());
    EXPECT_TRUE(tables.isFull());
    frame(true);
    EXPECT_FALSE(tables.isFull()) << "another view";
}

/// The memory of a patch may be that of the next one.
TEST_F(VectorTextureTablesTest, AWishIsNewWhereAPatchThatIsGoneHadItsAddress) {
    tables.maxPatches = 1;
    const SO<Patch> used = patch(), a = patch();
    tables.store(used.get(), image());
    for (const bool isFull : {false, true}) {
        tables.enqueue(a.get(), 1.0);
        EXPECT_TRUE(taken().empty());
        EXPECT_EQ(tables.isFull(), isFull);
    }
    tables.forget(a.get());
    tables.enqueue(a.get(), 1.0);
    EXPECT_TRUE(taken().empty());
    EXPECT_FALSE(tables.isFull());
}

TEST_F(VectorTextureTablesTest, PatchesWhoseGroundIsGoneAreNotTaken) {
    const SO<Patch> gone(new Patch(texture.get(), FakePatch::oblong(0, 0, 8, 8, 0).get(), 0));
    tables.enqueue(gone.get(), 1.0);
    EXPECT_TRUE(taken().empty());
    EXPECT_EQ(tables.queueLength(), 0U);
}

TEST_F(VectorTextureTablesTest, TheOldestGoesUnlessItStandsAtTheEndOfTheListOfDrawnOnes) {
    tables.maxPatches = 2;
    const SO<Patch> a = patch(), b = patch(), c = patch(), d = patch();
    tables.store(a.get(), image());
    frame();
    frame();
    EXPECT_TRUE(tables.renderOrder().empty());
    tables.store(b.get(), image());
    tables.store(c.get(), image());
    EXPECT_FALSE(tables.hasTexture(a.get()));
    tables.store(d.get(), image());
    EXPECT_TRUE(tables.hasTexture(b.get())) << "this picture has drawn it";
    EXPECT_EQ(tables.renderOrder(), (Patches{d.get(), c.get(), b.get()}));
    EXPECT_EQ(tables.textureCount(), 3U);
    frame();
    EXPECT_EQ(tables.renderOrder().size(), 3U) << "the newest picture's";
    EXPECT_EQ(tables.textureCount(), 3U) << "drawn is used";
    frame();
    EXPECT_TRUE(tables.renderOrder().empty());
    tables.store(a.get(), image());
    EXPECT_EQ(tables.textureCount(), 2U);
    EXPECT_TRUE(tables.hasTexture(d.get()));
}

TEST_F(VectorTextureTablesTest, TheListOfDrawnOnesIsCutTo9) {
    std::vector<SO<Patch>> patches;
    for (unsigned i = 0; i < 12; ++i) {
        patches.push_back(patch());
        tables.store(patches.back().get(), image());
    }
    EXPECT_EQ(tables.renderOrder().size(), 12U + 1U) << "and one null from the beginning";
    tables.endFrame({nullptr, false});
    ASSERT_EQ(tables.renderOrder().size(), 9U);
    EXPECT_EQ(tables.renderOrder().front(), patches.back().get());
    tables.store(patches[11].get(), image());
    EXPECT_EQ(tables.renderOrder().size(), 9U) << "none stands in it twice";
    patches.clear();
    EXPECT_TRUE(tables.renderOrder().empty()) << "who dies leaves it";
}

TEST_F(VectorTextureTablesTest, AListWithoutEntriesBeginsWithANull) {
    frame();
    frame();
    EXPECT_TRUE(tables.renderOrder().empty());
    texture = newTexture();
    EXPECT_EQ(tables.renderOrder(), Patches{nullptr});
    texture = newTexture();
    EXPECT_EQ(tables.renderOrder(), Patches{nullptr});
}

TEST_F(VectorTextureTablesTest, ThePoolGivesWhatFitsAndNobodyUses) {
    SO<NBX::Texture2DGL> held = image();
    tables.giveBack(held);
    EXPECT_FALSE(tables.takeFromPool(65, s_rgba4)) << "it is in use";
    const NBX::Texture2DGL * before = held.get();
    held = nullptr;
    EXPECT_EQ(tables.takeFromPool(65, s_rgba4).get(), before);
    EXPECT_EQ(tables.poolSize(), 0U);
    tables.giveBack(image(32));
    EXPECT_FALSE(tables.takeFromPool(65, s_rgba4));
    EXPECT_EQ(tables.poolSize(), 0U) << "the others go";
    tables.giveBack(image());
    EXPECT_FALSE(tables.takeFromPool(65, s_rgba8));
    tables.giveBack(new NBX::Texture2DGL(65, 65, s_rgba4));
    EXPECT_EQ(tables.poolSize(), 0U) << "its levels cannot be drawn";
}

TEST_F(VectorTextureTablesTest, TexturesAndPoolTogetherHaveABound) {
    tables.maxPatches = 2;
    for (unsigned i = 0; i < 6; ++i)
        tables.giveBack(image());
    EXPECT_EQ(tables.poolSize(), 3U);
    tables.dropAllTextures();
    EXPECT_EQ(tables.poolSize(), 0U);
}

} // namespace
