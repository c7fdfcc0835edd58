#include "landscape/terrainoptions.h"

#include <gtest/gtest.h>

#include "landscape/errors.h"

namespace {

TEST(TerrainOptions, BudgetsHaveBounds) {
    EXPECT_THROW(checkTreeOptions({.maxVertices = 49, .threads = {}}), UsageError);
    EXPECT_NO_THROW(checkTreeOptions({.maxVertices = 50, .threads = {}}));
    EXPECT_NO_THROW(checkTreeOptions({.maxVertices = 32000, .threads = {}}));
    EXPECT_THROW(checkTreeOptions({.maxVertices = 32001, .threads = {}}), UsageError);
}

TEST(TerrainOptions, ThreadsHaveBounds) {
    EXPECT_THROW(checkTreeOptions({.maxVertices = {}, .threads = 0}), UsageError);
    EXPECT_NO_THROW(checkTreeOptions({.maxVertices = {}, .threads = 1}));
    EXPECT_NO_THROW(checkTreeOptions({.maxVertices = {}, .threads = 1024}));
    EXPECT_THROW(checkTreeOptions({.maxVertices = {}, .threads = 1025}), UsageError);
    EXPECT_NO_THROW(checkTreeOptions({})) << "nothing was told";
}

TEST(TerrainOptions, ABuiltTerrainTakesNoneOfTheBuilding) {
    EXPECT_NO_THROW(checkBuiltOptions("t", {}, {}));
    EXPECT_THROW(checkBuiltOptions("t", {.maxVertices = 100, .threads = {}}, {}), UsageError);
    EXPECT_THROW(checkBuiltOptions("t", {.maxVertices = {}, .threads = 1}, {}), UsageError);
    EXPECT_THROW(checkBuiltOptions("t", {}, {.native = true}), UsageError);
    EXPECT_THROW(checkBuiltOptions("t", {}, {.fillVoids = true}), UsageError);
}

TEST(TerrainOptions, ExaggerationIsAboveNothingAndAtMostAThousand) {
    EXPECT_THROW(checkExaggeration(0.0), UsageError);
    EXPECT_NO_THROW(checkExaggeration(1e-9));
    EXPECT_NO_THROW(checkExaggeration(1000.0));
    EXPECT_THROW(checkExaggeration(1000.1), UsageError);
}

} // namespace
