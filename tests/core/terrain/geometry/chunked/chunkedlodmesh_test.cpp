#include "core/terrain/geometry/chunked/chunkedlodmesh.h"

#include <array>
#include <map>
#include <set>

#include <support/recordedreports.h>

#include "chunkedfixture.h"

using TestChunked::Lattice;
using TestChunked::Random;
using TestChunked::Window;
using ZMT::CORE::ChunkedLodMesh;

namespace {

using Numbers = std::vector<unsigned>;
using Triangle = std::array<unsigned, 3>;
using Edge = std::pair<unsigned, unsigned>;

Numbers stripOf(const Lattice & lattice, const Window & w, unsigned short threshold) {
    Numbers strip;
    EXPECT_TRUE(ChunkedLodMesh::buildMesh(lattice, w.x, w.y, w.size, threshold, strip));
    return strip;
}

Numbers sideOf(const Lattice & lattice, const Window & w, unsigned short threshold, unsigned side) {
    Numbers numbers;
    ChunkedLodMesh::buildBoundary(lattice, w.x, w.y, w.size, threshold, numbers, side);
    return numbers;
}

/// Those with three different corners, as OpenGL turns them.
std::vector<Triangle> trianglesOf(const Numbers & strip) {
    std::vector<Triangle> triangles;
    for (std::size_t i = 2; i < strip.size(); ++i) {
        Triangle t{strip[i - 2], strip[i - 1], strip[i]};
        if (i % 2 == 1) std::swap(t[0], t[1]);
        if (t[0] != t[1] && t[1] != t[2] && t[2] != t[0]) triangles.push_back(t);
    }
    return triangles;
}

/// Twice the area of a triangle, in cells; above 0 when it turns clockwise with x to the right and y up.
long areaOf(const Triangle & t, unsigned width) {
    const auto x = [&](unsigned k) { return long(t[k] % width); };
    const auto y = [&](unsigned k) { return long(t[k] / width); };
    return (x(2) - x(0)) * (y(1) - y(0)) - (x(1) - x(0)) * (y(2) - y(0));
}

/// How often each edge is walked from its lower to its higher end, less how often back: 0 where two
/// triangles meet. Zero entries are left out.
class Edges {
public:
    void add(unsigned from, unsigned to, int times = 1) {
        if (from == to) return;
        int & count = from < to ? counts_[{from, to}] : counts_[{to, from}];
        count += from < to ? times : -times;
    }
    bool areAllBalanced() const {
        return std::all_of(counts_.begin(), counts_.end(), [](const auto & e) { return e.second == 0; });
    }

private:
    std::map<Edge, int> counts_;
};

class ChunkedLodMeshTest : public testing::Test {
protected:
    ~ChunkedLodMeshTest() override { EXPECT_TRUE(reports.empty()) << reports; }

    RecordedReports reports;
};

TEST_F(ChunkedLodMeshTest, TheHighestThresholdLeavesCornersAndCentre) {
    Random random(1);
    const auto lattice = TestChunked::randomLattice(5, 5, random);
    const Numbers strip = stripOf(*lattice, {0, 0, 5}, 65535);
    EXPECT_EQ(strip, (Numbers{0, 0, 0, 12, 4, 12, 24, 12, 20, 0}));
    EXPECT_EQ(trianglesOf(strip),
              (std::vector<Triangle>{{0, 12, 4}, {4, 12, 24}, {24, 12, 20}, {20, 12, 0}}));
    for (unsigned side = 0; side < 4; ++side)
        EXPECT_EQ(sideOf(*lattice, {0, 0, 5}, 65535, side).size(), 2U);
}

TEST_F(ChunkedLodMeshTest, SidesAreWalkedRoundTheWindow) {
    Random random(2);
    const auto lattice = TestChunked::randomLattice(5, 5, random);
    const Window quarter{2, 2, 3};
    EXPECT_EQ(sideOf(*lattice, quarter, 0, ChunkedLodMesh::S_LowX), (Numbers{12, 17, 22}));
    EXPECT_EQ(sideOf(*lattice, quarter, 0, ChunkedLodMesh::S_HighY), (Numbers{22, 23, 24}));
    EXPECT_EQ(sideOf(*lattice, quarter, 0, ChunkedLodMesh::S_HighX), (Numbers{24, 19, 14}));
    EXPECT_EQ(sideOf(*lattice, quarter, 0, ChunkedLodMesh::S_LowY), (Numbers{14, 13, 12}));
}

TEST_F(ChunkedLodMeshTest, AFifthSideIsReported) {
    Random random(3);
    const auto lattice = TestChunked::randomLattice(3, 3, random);
    EXPECT_TRUE(sideOf(*lattice, {0, 0, 3}, 0, 4).empty());
    EXPECT_EQ(reports.count(2, L"false", L"unsupported boundary enum"), 1U) << reports;
    reports.clear();
}

TEST_F(ChunkedLodMeshTest, BeyondTheRasterVerticesRepeatTheLastColumnAndRow) {
    Random random(4);
    const auto lattice = TestChunked::randomLattice(4, 3, random);
    ASSERT_EQ(lattice->paddedSize(), 5U);
    // Lists end with their corner, also where it repeats.
    EXPECT_EQ(sideOf(*lattice, {0, 0, 5}, 0, ChunkedLodMesh::S_HighX), (Numbers{11, 7, 3}));
    EXPECT_EQ(sideOf(*lattice, {0, 0, 5}, 0, ChunkedLodMesh::S_HighY), (Numbers{8, 9, 10, 11, 11}));
    const Numbers strip = stripOf(*lattice, {0, 0, 5}, 0);
    EXPECT_EQ(std::set<unsigned>(strip.begin(), strip.end()).size(), 12U);
}

TEST_F(ChunkedLodMeshTest, MeshesAreClosedAndEndWithTheirSides) {
    Random random(5);
    for (unsigned run = 0; run < 2000; ++run) {
        SCOPED_TRACE(run);
        const auto lattice = TestChunked::randomLattice(random);
        const Window w = TestChunked::randomWindow(*lattice, random);
        const unsigned short threshold = TestChunked::randomThreshold(*lattice, random);
        const auto triangles = trianglesOf(stripOf(*lattice, w, threshold));

        Edges edges;
        long area = 0;
        for (const Triangle & t : triangles) {
            const long own = areaOf(t, lattice->sizeX());
            // Beyond the raster triangles have no width.
            ASSERT_GE(own, lattice->isSquare() ? 1 : 0) << "turns the other way";
            area += own;
            for (unsigned k = 0; k < 3; ++k)
                edges.add(t[k], t[(k + 1) % 3]);
        }
        const auto cells = [](unsigned begin, unsigned size, unsigned limit) {
            return long(std::min(begin + size, limit)) - long(std::min(begin, limit - 1)) - 1;
        };
        const long expected = 2 * cells(w.x, w.size, lattice->sizeX()) * cells(w.y, w.size, lattice->sizeY());
        ASSERT_EQ(area, expected);
        // One column or row alone has no area, and may have triangles along it.
        if (expected == 0) continue;
        for (unsigned side = 0; side < 4; ++side) {
            const Numbers list = sideOf(*lattice, w, threshold, side);
            for (std::size_t i = 1; i < list.size(); ++i)
                edges.add(list[i - 1], list[i], -1);
        }
        ASSERT_TRUE(edges.areAllBalanced());
    }
}

/// The strip of a square lattice by its definition, vertex by vertex.
class PlainStrip {
public:
    PlainStrip(const Lattice & lattice, const Window & w, unsigned short threshold)
        : lattice_(lattice), threshold_(threshold) {
        const unsigned pitch = lattice.paddedSize(), a = w.x + w.y * pitch, b = a + w.size - 1;
        const unsigned d = a + (w.size - 1) * pitch, c = d + w.size - 1;
        const unsigned centre = a + w.size / 2 * (pitch + 1);
        unsigned levels = 0;
        while ((1U << levels) + 1 < w.size)
            ++levels;
        levels = 2 * levels - 1;
        numbers = {a, a};
        s0_ = s1_ = a;
        refine(levels, centre, a, b);
        append(b, 0);
        refine(levels, centre, b, c);
        append(c, 0);
        refine(levels, centre, c, d);
        append(d, 0);
        refine(levels, centre, d, a);
        numbers.push_back(a);
    }

    Numbers numbers;

private:
    void refine(unsigned level, unsigned i, unsigned j, unsigned k) {
        const unsigned m = (j + k) >> 1;
        const bool goes = level != 0 && threshold_ <= lattice_.errors()[m];
        if (goes) refine(level - 1, m, j, i);
        append(i, level & 1);
        if (goes) refine(level - 1, m, i, k);
    }

    void append(unsigned r, unsigned parity) {
        if (r == s0_ || r == s1_) return;
        if (parity == parity_) {
            numbers.push_back(s0_);
            s1_ = s0_;
        }
        numbers.push_back(r);
        s0_ = s1_;
        s1_ = r;
        parity_ = parity;
    }

    const Lattice & lattice_;
    unsigned short threshold_;
    unsigned s0_ = 0, s1_ = 0, parity_ = 1;
};

TEST_F(ChunkedLodMeshTest, StripsOfSquareLatticesAreThoseOfTheDefinition) {
    Random random(10);
    for (unsigned run = 0; run < 500; ++run) {
        const unsigned size = (1U << (1 + random() % 6)) + 1;
        const auto lattice = TestChunked::randomLattice(size, size, random);
        const Window w = TestChunked::randomWindow(*lattice, random);
        const unsigned short threshold = TestChunked::randomThreshold(*lattice, random);
        ASSERT_EQ(stripOf(*lattice, w, threshold), PlainStrip(*lattice, w, threshold).numbers)
            << "run " << run;
    }
}

TEST_F(ChunkedLodMeshTest, NoEdgeOfASquareLatticeHasMoreThanTwoTriangles) {
    Random random(6);
    for (unsigned run = 0; run < 500; ++run) {
        const unsigned size = (1U << (1 + random() % 6)) + 1;
        const auto lattice = TestChunked::randomLattice(size, size, random);
        const Window w = TestChunked::randomWindow(*lattice, random);
        std::set<Edge> walked;
        for (const Triangle & t :
             trianglesOf(stripOf(*lattice, w, TestChunked::randomThreshold(*lattice, random))))
            for (unsigned k = 0; k < 3; ++k)
                ASSERT_TRUE(walked.insert({t[k], t[(k + 1) % 3]}).second) << "run " << run;
    }
}

TEST_F(ChunkedLodMeshTest, HasTheVerticesWhoseErrorReachesTheThreshold) {
    Random random(7);
    for (unsigned run = 0; run < 500; ++run) {
        const unsigned size = (1U << (1 + random() % 6)) + 1;
        const auto lattice = TestChunked::randomLattice(size, size, random);
        const Window w = TestChunked::randomWindow(*lattice, random);
        const unsigned short threshold = TestChunked::randomThreshold(*lattice, random);
        const Numbers strip = stripOf(*lattice, w, threshold);
        const unsigned last = w.size - 1;
        std::set<unsigned> expected;
        for (unsigned y = 0; y <= last; ++y)
            for (unsigned x = 0; x <= last; ++x) {
                const bool isCorner = x % last == 0 && y % last == 0,
                           isCentre = 2 * x == last && 2 * y == last;
                const std::size_t number = lattice->latticeIndex(w.x + x, w.y + y);
                if (isCorner || isCentre || lattice->errors()[number] >= threshold)
                    expected.insert(unsigned(number));
            }
        ASSERT_EQ(std::set<unsigned>(strip.begin(), strip.end()), expected) << "run " << run;
    }
}

TEST_F(ChunkedLodMeshTest, HeightRangeIsThatOfTheMesh) {
    Random random(8);
    for (unsigned run = 0; run < 1000; ++run) {
        const auto lattice = TestChunked::randomLattice(random);
        const Window w = TestChunked::randomWindow(*lattice, random);
        const unsigned short threshold = run % 4 == 0 ? 0 : TestChunked::randomThreshold(*lattice, random);
        unsigned short low = 65535, high = 0;
        for (const unsigned number : stripOf(*lattice, w, threshold)) {
            low = std::min(low, lattice->heights()[number]);
            high = std::max(high, lattice->heights()[number]);
        }
        ASSERT_EQ(ChunkedLodMesh::heightRange(*lattice, w.x, w.y, w.size, threshold), std::pair(low, high))
            << "run " << run;
    }
}

TEST_F(ChunkedLodMeshTest, StopsAtTheLimit) {
    Random random(9);
    const auto lattice = TestChunked::randomLattice(65, 65, random);
    const Numbers whole = stripOf(*lattice, {0, 0, 65}, 0);
    Numbers strip;
    EXPECT_TRUE(ChunkedLodMesh::buildMesh(*lattice, 0, 0, 65, 0, strip, whole.size()));
    EXPECT_EQ(strip, whole);
    EXPECT_FALSE(ChunkedLodMesh::buildMesh(*lattice, 0, 0, 65, 0, strip, whole.size() - 1));
    EXPECT_FALSE(ChunkedLodMesh::buildMesh(*lattice, 0, 0, 65, 0, strip, 100));
    EXPECT_LT(strip.size(), 200U);
}

} // namespace
