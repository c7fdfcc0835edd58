#include <gtest/gtest.h>

#include <support/recordedattributes.h>
#include <support/roundtrip.h>

#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include "faketerraintexture.h"

using NBX::TextureGL;

namespace {

/// Lists the attributes of the base class, and changes its filters from the outside.
class TerrainTextureTest : public testing::Test {
protected:
    TextureArguments arguments_;
    NBX::SO<FakeTerrainTexture> texture_ = new FakeTerrainTexture;
};

TEST_F(TerrainTextureTest, StartsWithTheFiltersOfItsConstructor) {
    EXPECT_EQ(texture_->minFilter(), TextureGL::FM_NearestMipmapLinear);
    EXPECT_EQ(texture_->magFilter(), TextureGL::FM_Nearest);
}

TEST_F(TerrainTextureTest, SettingAnotherFilterIsAChange) {
    auto before = texture_->lastTransactionNo();
    texture_->minFilter(TextureGL::FM_NearestMipmapLinear);
    texture_->magFilter(TextureGL::FM_Nearest);
    EXPECT_EQ(texture_->lastTransactionNo(), before);
    texture_->minFilter(TextureGL::FM_Linear);
    EXPECT_GT(texture_->lastTransactionNo(), before);
    EXPECT_EQ(texture_->minFilter(), TextureGL::FM_Linear);
    before = texture_->lastTransactionNo();
    texture_->magFilter(TextureGL::FM_Linear);
    EXPECT_GT(texture_->lastTransactionNo(), before);
    EXPECT_EQ(texture_->magFilter(), TextureGL::FM_Linear);
}

TEST_F(TerrainTextureTest, RequestPassesEverythingOn) {
    texture_->isIncomplete = true;
    EXPECT_EQ(arguments_.request(*texture_), texture_->answer);
    EXPECT_TRUE(texture_->wasRequestedWith(arguments_));
    EXPECT_TRUE(arguments_.incomplete);
}

TEST_F(TerrainTextureTest, RequestNeverTakesIncompleteBack) {
    arguments_.incomplete = true;
    arguments_.request(*texture_);
    EXPECT_TRUE(arguments_.incomplete);
}

TEST_F(TerrainTextureTest, RequestSetsTheFiltersEveryTime) {
    const auto answer = texture_->answer;
    arguments_.request(*texture_);
    EXPECT_EQ(answer->getMinFilter(), TextureGL::FM_NearestMipmapLinear);
    EXPECT_EQ(answer->getMagFilter(), TextureGL::FM_Nearest);

    answer->setMinFilter(TextureGL::FM_Linear);
    answer->setMagFilter(TextureGL::FM_Linear);
    arguments_.request(*texture_);
    EXPECT_EQ(answer->getMinFilter(), TextureGL::FM_NearestMipmapLinear);
    EXPECT_EQ(answer->getMagFilter(), TextureGL::FM_Nearest);
}

TEST_F(TerrainTextureTest, NothingToShowIsNull) {
    texture_->answer = nullptr;
    EXPECT_FALSE(arguments_.request(*texture_));
}

TEST_F(TerrainTextureTest, StoresItsFilters) {
    EXPECT_EQ(RecordedAttributes::of(*texture_), (std::vector<std::string>{"minFilter", "magFilter"}));
    texture_->minFilter(TextureGL::FM_LinearMipmapLinear);
    texture_->magFilter(TextureGL::FM_Linear);
    EXPECT_TRUE(RecordedAttributes::of(*texture_, true).empty()) << "2 and 1 are the defaults";
}

/// Writes any number for the filters.
class SpoiltTexture : public ZMT::CORE::SimpleTerrainTexture {
    NBX_STORED_CLASS(SpoiltTexture, ZMT::CORE::SimpleTerrainTexture)
public:
    void serialize(NBX::SerializationManager & m) override {
        if (!m.isWriting()) return ZMT::CORE::TerrainTexture::serialize(m);
        int minFilter = 4711, magFilter = -1;
        m.enterObject();
        m.attribute("minFilter", minFilter);
        m.attribute("magFilter", magFilter);
    }
};
NBX_STORED_CLASS_IMPL(SpoiltTexture, ZMT::CORE::SimpleTerrainTexture)

TEST_F(TerrainTextureTest, StoredNumbersThatAreNoFiltersGiveTheDefaults) {
    const auto read = roundTrip(NBX::SO<SpoiltTexture>(new SpoiltTexture));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->minFilter(), TextureGL::FM_LinearMipmapLinear);
    EXPECT_EQ(read->magFilter(), TextureGL::FM_Linear);
}

} // namespace
