#include "core/terrain/texture/lodtexturerequest.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <map>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

#include <nbx/container/map/nonpersistentdictionary.h>

#include "fakepyramid.h"

using NBX::Bounds;
using NBX::SO;
using NBX::TextureGL;
using ZMT::CORE::EmptyTexture;
using ZMT::CORE::GeometryPatch;
using ZMT::CORE::LODTextureLevel;
using ZMT::CORE::LODTextureRequest;
using Levels = LODTextureRequest::Levels;
using Point = NBX::Vector3Base<double>;

namespace {

Bounds boxOf(double width, double depth) {
    return {Point(5.0, 0.0, 7.0), Point(5.0 + width, 1.0, 7.0 + depth)};
}

/// Levels of columns of size 1, 2, 4 and 8, and of rows of twice that size.
Levels levels(unsigned granularityX, unsigned granularityY) {
    Levels result;
    for (unsigned i = 0; i < 4; ++i)
        result.push_back(
            {1.0 * (1U << i), 2.0 * (1U << i), 10000U >> i, 5000U >> i, granularityX, granularityY});
    return result;
}

struct LevelCase {
    const char * name;
    unsigned granularityX, granularityY;
    double width, depth;
    unsigned level;
};

class ChooseLevelTest : public testing::TestWithParam<LevelCase> {};

TEST_P(ChooseLevelTest, TakesTheFirstThatFitsWithItsTiles) {
    const LevelCase & c = GetParam();
    EXPECT_EQ(LODTextureRequest::chooseLevel(levels(c.granularityX, c.granularityY), boxOf(c.width, c.depth)),
              c.level);
}

INSTANTIATE_TEST_SUITE_P(Boxes, ChooseLevelTest,
                         testing::Values(LevelCase{"all", 1, 1, 510.0, 1020.0, 0},
                                         LevelCase{"oneColumnTooMany", 1, 1, 511.0, 10.0, 1},
                                         LevelCase{"oneRowTooMany", 1, 1, 10.0, 1022.0, 1},
                                         LevelCase{"columnsRoundedDown", 1, 1, 510.49, 10.0, 0},
                                         LevelCase{"columnsRoundedUp", 1, 1, 510.5, 10.0, 1},
                                         LevelCase{"rowsRoundedDown", 1, 1, 10.0, 1020.9, 0},
                                         LevelCase{"rowsRoundedUp", 1, 1, 10.0, 1021.0, 1},
                                         LevelCase{"theLargerSideCounts", 1, 1, 10.0, 3000.0, 2},
                                         LevelCase{"wholeTiles", 128, 64, 383.0, 894.0, 0},
                                         LevelCase{"oneTileTooManyInX", 128, 64, 384.0, 10.0, 1},
                                         LevelCase{"oneTileTooManyInY", 128, 64, 10.0, 896.0, 1},
                                         LevelCase{"twoTilesAtLeast", 256, 256, 255.0, 510.0, 0},
                                         LevelCase{"wideTiles", 256, 1, 256.0, 10.0, 1},
                                         LevelCase{"deepTiles", 1, 256, 10.0, 512.0, 1},
                                         LevelCase{"nothingFits", 1, 1, 1e9, 1e9, 3},
                                         LevelCase{"tilesWiderThanTextures", 512, 1, 1.0, 1.0, 3},
                                         LevelCase{"tilesDeeperThanTextures", 1, 512, 1.0, 1.0, 3},
                                         LevelCase{"noGranularity", 0, 0, 510.0, 1020.0, 0}),
                         [](const auto & info) { return std::string(info.param.name); });

TEST(LODTextureRequest, AnUndefinedBoxHasTheLastLevel) {
    EXPECT_EQ(LODTextureRequest::chooseLevel(levels(1, 1), Bounds()), 3U);
}

TEST(LODTextureRequest, TexturesArePowersOfTwoWithinTheLimit) {
    const std::pair<std::uint64_t, unsigned> cases[] = {
        {0, 1}, {1, 1}, {2, 2}, {3, 4}, {256, 256}, {257, 512}, {512, 512}, {513, 512}, {UINT64_MAX, 512}};
    for (const auto & [pixels, size] : cases)
        EXPECT_EQ(LODTextureRequest::textureSize(pixels), size) << pixels;
}

TEST(LODTextureRequest, TheLargerSideOfATexelCountsOnTheScreen) {
    const auto view = viewFromAbove(0.5);
    EXPECT_NEAR(LODTextureRequest::screenTexelSize({2.0, 8.0, 1, 1, 1, 1}, *view, Point()), 4.0, 1e-9);
    EXPECT_NEAR(LODTextureRequest::screenTexelSize({6.0, 3.0, 1, 1, 1, 1}, *view, Point(9, 9, 9)), 3.0, 1e-9);
}

TEST(LODTextureRequest, OnlyAreaOverlaps) {
    const Bounds texture(Point(0.0, -1e42, 0.0), Point(10.0, 1e42, 6.0));
    const Bounds shared =
        LODTextureRequest::overlap(texture, Bounds(Point(8.0, 3.0, -5.0), Point(20.0, 4.0, 5.0)));
    EXPECT_EQ(shared, Bounds(Point(8.0, 3.0, 0.0), Point(10.0, 4.0, 5.0)));
    EXPECT_FALSE(LODTextureRequest::overlap(texture, Bounds()).isDefined());
    EXPECT_FALSE(LODTextureRequest::overlap(Bounds(), texture).isDefined());
    for (const double x : {10.0, -5.0, 11.0})
        EXPECT_FALSE(LODTextureRequest::overlap(texture, Bounds(Point(x, 0.0, 0.0), Point(x + 5.0, 0.0, 5.0)))
                         .isDefined())
            << x;
    for (const double z : {6.0, -5.0, 7.0})
        EXPECT_FALSE(LODTextureRequest::overlap(texture, Bounds(Point(0.0, 0.0, z), Point(5.0, 0.0, z + 5.0)))
                         .isDefined())
            << z;
    EXPECT_FALSE(
        LODTextureRequest::overlap(texture, Bounds(Point(2.0, 0.0, 1.0), Point(2.0, 9.0, 5.0))).isDefined())
        << "a line to the north";
    EXPECT_FALSE(
        LODTextureRequest::overlap(texture, Bounds(Point(2.0, 0.0, 1.0), Point(5.0, 9.0, 1.0))).isDefined())
        << "a line to the east";
}

// The search for the best piece that is ready.

class Piece : public NBX::SharedObj {
    NBX_TEMPLATE_CLASS(Piece, NBX::SharedObj)
public:
    explicit Piece(unsigned pieceLevel) : level(pieceLevel) {}
    const unsigned level;
};

using Manager = ZMT::CORE::ResourceManager<Piece, TextureGL>;

class Preparer : public Manager::Preparer {
    NBX_TEMPLATE_CLASS(Preparer, Manager::Preparer)
public:
    SO<TextureGL> call(SO<Piece>) override { return nullptr; }
};

/// Notes what it is asked for. It has a texture at `ready`, one without content at `blank`, and makes one at
/// once for whom cannot wait.
class NotingManager : public Manager {
    NBX_TEMPLATE_CLASS(NotingManager, Manager)
public:
    struct Note {
        unsigned level;
        bool mayPrepare;
        double priority;
        bool operator==(const Note &) const = default;
        friend std::ostream & operator<<(std::ostream & stream, const Note & note) {
            return stream << note.level << (note.mayPrepare ? " for " : " looked at with ") << note.priority;
        }
    };

    NotingManager() : ResourceManager(0.0, false, 5, 0.0) {}
    double sizeOf(const SO<Piece> &) const override { return 0.0; }
    SO<TextureGL> request(const SO<Piece> & piece, const SO<Manager::Preparer> & preparer,
                          double priority) override {
        notes.push_back({piece->level, preparer != nullptr, priority});
        if (piece->level == blank) return EmptyTexture::texture();
        if (outcome(piece) != Outcome::None) return nullptr;
        return piece->level == ready || priority >= s_immediately ? textures[piece->level] : nullptr;
    }

    Outcome outcome(const SO<Piece> & piece) const override {
        const auto known = outcomes.find(piece->level);
        return known == outcomes.end() ? Outcome::None : known->second;
    }

    std::vector<Note> notes;
    std::map<unsigned, Outcome> outcomes;
    std::vector<SO<TextureGL>> textures;
    unsigned ready = UINT_MAX, blank = UINT_MAX;
};

NotingManager::Note looked(unsigned level) {
    return {level, false, -1e42};
}
NotingManager::Note wanted(unsigned level, double priority) {
    return {level, true, priority};
}

/// Four patches, each in the corner of the one above it, which has texels of four times the size.
class FindTest : public testing::Test {
protected:
    using Mapper = NBX::NonPersistentDictionary<SO<const GeometryPatch>, SO<Piece>>;

    FindTest() {
        SO<const GeometryPatch> patch(root.get());
        for (unsigned level = 4; level-- > 0; patch = patch->children() > 0 ? patch->child(0) : patch) {
            mapper->insert(patch, new Piece(level));
            finest = patch;
        }
        for (unsigned i = 0; i < 4; ++i) {
            manager->textures.push_back(new NBX::ImageTexture2DGL(nullptr));
            levels.push_back({std::pow(4.0, i), std::pow(4.0, i), 1, 1, 1, 1});
        }
    }
    /// The level that is shown; 4 for none.
    unsigned find(const SO<const GeometryPatch> & patch, double textureError, bool asynchronous = true) {
        incomplete = false;
        manager->notes.clear();
        const Point eye;
        const LODTextureRequest request(levels, *view, eye, textureError, asynchronous);
        found = request.find<Piece>(*manager, *mapper, patch, preparer, 100.0, incomplete);
        const auto & all = manager->textures;
        return static_cast<unsigned>(std::find(all.begin(), all.end(), found) - all.begin());
    }

    const SO<FakePatch> root = FakePatch::oblong(0.0, 0.0, 8.0, 4.0, 3);
    SO<Mapper> mapper{new Mapper};
    SO<const GeometryPatch> finest;
    const SO<NotingManager> manager{new NotingManager};
    const SO<Manager::Preparer> preparer{new Preparer};
    const SO<NBX::ViewInfo> view = viewFromAbove(1.0);
    Levels levels;
    bool incomplete = false;
    SO<TextureGL> found; ///< by the last call
};

using Notes = std::vector<NotingManager::Note>;

TEST_F(FindTest, ThePriorityIsHalvedFromPatchToParentAndGrowsWithTheTexels) {
    EXPECT_EQ(find(finest, 0.0), 3U);
    EXPECT_TRUE(incomplete);
    EXPECT_EQ(manager->notes, (Notes{looked(0), wanted(0, 100.0), looked(1), wanted(1, 200.0), looked(2),
                                     wanted(2, 400.0), looked(3), wanted(3, 1e42)}));
}

TEST_F(FindTest, EndsAtTheFirstThatIsReady) {
    manager->ready = 1;
    EXPECT_EQ(find(finest, 0.0), 1U);
    EXPECT_TRUE(incomplete);
    EXPECT_EQ(manager->notes, (Notes{looked(0), wanted(0, 100.0), looked(1)}));
    manager->ready = 0;
    EXPECT_EQ(find(finest, 0.0), 0U);
    EXPECT_FALSE(incomplete);
    EXPECT_EQ(manager->notes, (Notes{looked(0)}));
}

TEST_F(FindTest, WhatIsFinerThanNeededIsNotAskedForAndCostsNoPriority) {
    EXPECT_EQ(find(finest, 16.0), 3U) << "exactly the allowed size of a texel";
    EXPECT_TRUE(incomplete);
    EXPECT_EQ(manager->notes, (Notes{looked(2), wanted(2, 1600.0), looked(3), wanted(3, 1e42)}));
    EXPECT_EQ(find(finest, 64.0), 3U);
    EXPECT_FALSE(incomplete) << "the root is good enough";
    EXPECT_EQ(manager->notes, (Notes{looked(3), wanted(3, 1e42)}));
}

TEST_F(FindTest, WhoCannotWaitGetsTheFinestAtOnce) {
    EXPECT_EQ(find(finest, 0.0, false), 0U);
    EXPECT_FALSE(incomplete);
    EXPECT_EQ(manager->notes, (Notes{looked(0), wanted(0, 1e42)}));
}

TEST_F(FindTest, WhatHasNoContentShowsTheEmptyTexture) {
    manager->blank = 0;
    manager->ready = 1;
    EXPECT_EQ(find(finest, 0.0), 4U);
    EXPECT_EQ(found, EmptyTexture::texture());
    EXPECT_FALSE(incomplete) << "there is nothing to wait for";
    EXPECT_EQ(manager->notes, (Notes{looked(0)}));
}

TEST_F(FindTest, APreparerThatGaveNullStandsForNoContentToo) {
    manager->outcomes[0] = Manager::Outcome::Done;
    EXPECT_EQ(find(finest, 0.0), 4U);
    EXPECT_EQ(found, EmptyTexture::texture());
    EXPECT_FALSE(incomplete);
}

TEST_F(FindTest, WhatHasFailedShowsTheParentAndIsNotAskedForAgain) {
    manager->outcomes[0] = manager->outcomes[1] = Manager::Outcome::Failed;
    manager->ready = 2;
    EXPECT_EQ(find(finest, 0.0), 2U);
    EXPECT_FALSE(incomplete) << "it may fail for ever";
    EXPECT_EQ(manager->notes, (Notes{looked(0), looked(1), looked(2)}));
    EXPECT_EQ(find(finest, 0.0, false), 2U);
}

TEST_F(FindTest, ARootThatHasFailedShowsTheEmptyTexture) {
    for (unsigned level = 0; level < 4; ++level)
        manager->outcomes[level] = Manager::Outcome::Failed;
    EXPECT_EQ(find(finest, 0.0), 4U);
    EXPECT_EQ(found, EmptyTexture::texture());
    EXPECT_FALSE(incomplete);
}

TEST_F(FindTest, WithoutARootThereIsNothing) {
    const RecordedReports reports;
    EXPECT_EQ(find(nullptr, 0.0), 4U);
    EXPECT_EQ(reports.count(0, L"false", L"internal error"), 1U) << reports;
    EXPECT_TRUE(manager->notes.empty());
}

TEST_F(FindTest, APatchThatIsNotMappedIsReportedAndPassedOver) {
    const SO<const GeometryPatch> parent(finest->parent().get());
    const SO<Mapper> all(mapper);
    mapper = new Mapper;
    for (SO<const GeometryPatch> patch = finest; patch; patch = patch->parent())
        if (patch != parent) mapper->insert(patch, all->get(patch));
    RecordedReports reports;
    EXPECT_EQ(find(finest, 0.0), 3U);
    EXPECT_TRUE(incomplete);
    EXPECT_EQ(manager->notes,
              (Notes{looked(0), wanted(0, 100.0), looked(2), wanted(2, 800.0), looked(3), wanted(3, 1e42)}))
        << "it costs no priority";
    EXPECT_EQ(reports.count(0, L"mapper_->find(patch, texPatch)", L""), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U);
}

TEST_F(FindTest, PatchesAreMappedFromTheRootDownAndOnce) {
    const SO<Mapper> fresh(new Mapper);
    std::vector<const GeometryPatch *> asked;
    const auto newPiece = [&](const GeometryPatch & patch) {
        asked.push_back(&patch);
        return SO<Piece>(new Piece(3 - static_cast<unsigned>(asked.size())));
    };
    LODTextureRequest::map(*fresh, finest, newPiece);
    const SO<const GeometryPatch> child(root->child(0).get()), grandchild(child->child(0).get());
    EXPECT_EQ(asked, (std::vector<const GeometryPatch *>{root.get(), child.get(), grandchild.get()}));
    EXPECT_EQ(fresh->get(finest), fresh->get(grandchild)) << "there is nothing finer";
    LODTextureRequest::map(*fresh, SO<const GeometryPatch>(grandchild->child(1).get()), newPiece);
    EXPECT_EQ(asked.size(), 3U);
    EXPECT_EQ(fresh->size(), 5U);
}

} // namespace
