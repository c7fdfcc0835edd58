#include <zmt/core/terrain/geometry/hybrid/microtrianglesdatanormalpaintergl.h>

#include <zmt/core/terrain/geometry/hybrid/createhybriddata.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdata.h>
#include <zmt/core/terrain/geometry/hybrid/microtrianglesdatapaintergl.h>
#include <zmt/core/terrain/geometry/regular/gridpatchnormalpaintergl.h>

#include "support/testpatches.h"

using NBX::SO;
using ZMT::CORE::CreateHybridData;
using ZMT::CORE::MicroTrianglesData;
using ZMT::CORE::MicroTrianglesDataNormalPainterGL;

namespace {

class MicroTrianglesDataNormalPainterGLTest : public PatchPainterFixture {
protected:
    /// The colour of a pyramid on flat ground, on its side towards the west, and that of the ground.
    std::pair<std::array<int, 3>, std::array<int, 3>> colors(const Point & scale) {
        const auto data = CreateHybridData::create(
            TestTerrain::grid({6, 6}, [](unsigned, unsigned) { return 0.0; }),
            std::vector<CreateHybridData::Feature>{{{2.2, 0, 2.2}, {2.2, 0, 2.8}}, {{2.5, 0.3, 2.5}}});
        MicroTrianglesDataNormalPainterGL painter(scale);
        const auto micro = data->microData(2, 2);
        const auto draw = [&] { EXPECT_TRUE(painter.render(engine.get(), micro.get())); };
        return {colorAt({2.3, 0.1, 2.5}, draw), colorAt({2.05, 0.0, 2.5}, draw)};
    }
    static void expectNear(const std::array<int, 3> & a, const std::array<int, 3> & b) {
        for (unsigned c = 0; c < 3; ++c)
            EXPECT_NEAR(a[c], b[c], 3) << c;
    }
};

TEST_F(MicroTrianglesDataNormalPainterGLTest, ShowsTheDirectionOfTheNormal) {
    const int half = int(std::lround(127.5 * (1.0 + std::sqrt(0.5))));
    const auto [slope, ground] = colors({1, 1, 1});
    expectNear(slope, {255 - half, half, 128});
    expectNear(ground, {128, 255, 128});
    const auto [flattened, same] = colors({0, 1, 0});
    expectNear(flattened, {128, 255, 128});
}

TEST_F(MicroTrianglesDataNormalPainterGLTest, DrawsTheSameTriangles) {
    const auto data = CreateHybridData::create(
        TestPatches::smallGrid(), std::vector<CreateHybridData::Feature>{
                                      {{102.3, 6.0, 203.0}, {105.7, 6.0, 203.5}, {103.1, 6.0, 208.6}}});
    const auto micro = data->microData(2, 1);
    ASSERT_TRUE(micro);
    MicroTrianglesDataNormalPainterGL colored({1, 1, 1});
    ZMT::CORE::MicroTrianglesDataPainterGL plain;
    EXPECT_EQ(colored.target(), plain.target());
    EXPECT_EQ(TestPatches::normalized(feedback([&] { colored.render(engine.get(), micro.get()); })),
              TestPatches::normalized(feedback([&] { plain.render(engine.get(), micro.get()); })));
    EXPECT_FALSE(colored.render(engine.get(), nullptr));

    const auto patch = TestPatches::gridPatch(data, NBX::Area(0, 0, 8, 6));
    ZMT::CORE::GridPatchNormalPainterGL patchPainter({1, 1, 1});
    EXPECT_GT(surface(patchPainter, *patch).size(), 96U) << "cells are among what a patch draws";
}

} // namespace
