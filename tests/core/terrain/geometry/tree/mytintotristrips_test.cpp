#include <zmt/core/terrain/geometry/tree/mytintotristrips.h>

#include <random>
#include <set>

#include <gtest/gtest.h>

#include <support/recordedreports.h>

#include "support/testterrain.h"

using ZMT::CORE::MyTinPointAccessor;
using ZMT::CORE::MyTinToTristrips;
using Tin = ZMT::CORE::Tin<MyTinPointAccessor>;

namespace {

/// The corners, from the least on, in the direction in which the triangle turns.
std::array<unsigned, 3> normalized(std::array<unsigned, 3> t) {
    std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
    return t;
}

class MyTinToTristripsTest : public testing::Test {
protected:
    void SetUp() override {
        MyTinPointAccessor::currentData = TestTerrain::grid({20, 20}, TestTerrain::bumpy);
        tin.init(0, 19, 399, 380);
    }
    void TearDown() override { MyTinPointAccessor::currentData = nullptr; }

    Tin tin;
};

TEST_F(MyTinToTristripsTest, StripsHoldEachFaceOnceAndTurnLikeIt) {
    std::mt19937 random(3);
    for (unsigned n = 0; n < 60; ++n)
        tin.insert(random() % 400);
    std::multiset<std::array<unsigned, 3>> faces, drawn;
    for (unsigned f = 0; f < tin.faces(); ++f)
        faces.insert(normalized({tin.corner(tin.face(f), 0).index(), tin.corner(tin.face(f), 1).index(),
                                 tin.corner(tin.face(f), 2).index()}));

    const MyTinToTristrips strips(tin);
    unsigned begin = 0;
    for (const unsigned end : strips.ends()) {
        ASSERT_GE(end, begin + 3);
        for (unsigned i = begin; i + 2 < end; ++i) {
            std::array<unsigned, 3> t{strips.nodes()[i].index(), strips.nodes()[i + 1].index(),
                                      strips.nodes()[i + 2].index()};
            if ((i - begin) % 2 == 1) std::swap(t[0], t[1]);
            drawn.insert(normalized(t));
        }
        begin = end;
    }
    EXPECT_EQ(begin, strips.nodes().size());
    EXPECT_EQ(drawn, faces);
    EXPECT_LT(strips.ends().size(), tin.faces() / 2) << "strips are longer than triangles";
}

TEST_F(MyTinToTristripsTest, AMissingNodeIsReportedAndLeftOut) {
    struct Strips : MyTinToTristrips {
        explicit Strips(const Tin & mesh) : MyTinToTristrips(mesh) {}
        using MyTinToTristrips::finishStrip;
        using MyTinToTristrips::triangle;
    };
    Strips strips{tin};
    const std::size_t before = strips.nodes().size();
    const RecordedReports reports;
    strips.triangle(tin.node(0), ZMT::CORE::TinNode(), tin.node(1));
    strips.finishStrip();
    EXPECT_EQ(reports.count(0, L"n", L"no node"), 1U) << reports;
    EXPECT_EQ(reports.size(), 1U);
    EXPECT_EQ(strips.nodes().size(), before + 2);
    EXPECT_EQ(strips.ends().back(), before + 2);
}

TEST_F(MyTinToTristripsTest, AnEmptyMeshIsReported) {
    const RecordedReports reports;
    const MyTinToTristrips strips{Tin()};
    EXPECT_EQ(reports.count(0, L"tin.faces() > 0", L"empty tin"), 1U) << reports;
    EXPECT_TRUE(strips.nodes().empty());
    EXPECT_TRUE(strips.ends().empty());
}

} // namespace
