#include "core/terrain/geometry/chunked/chunkedloderrorfield.h"

#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

using ZMT::CORE::ChunkedLodErrorField;

namespace {

using Values = std::vector<unsigned short>;

/// The definition, level by level and cell by cell.
class PlainSweep {
public:
    PlainSweep(const Values & heights, unsigned sizeX, unsigned sizeY, unsigned level)
        : heights_(heights), sizeX_(int(sizeX)), sizeY_(int(sizeY)), m_(1 << level),
          errors(std::size_t(m_ + 1) * std::size_t(m_ + 1)) {
        int s = 1, step = 2, d = 1, bound = 0;
        while (s != m_) {
            for (int j = s; j < m_; j += step)
                for (int i = 0; i <= m_; i += step) {
                    calculate(i, j, 0, s, bound);
                    calculate(j, i, s, 0, bound);
                }
            for (int j = s; j < m_; j += step) {
                for (int i = s; i < m_; i += step) {
                    calculate(i, j, s, d, m_);
                    d = -d;
                }
                d = -d;
            }
            d = step;
            s = step;
            step *= 2;
            bound = m_;
        }
        for (const int y : {0, m_})
            for (const int x : {0, m_})
                errorAt(x, y) = 65535;
        errorAt(m_ / 2, m_ / 2) = 65535;
    }

private:
    int height(int x, int y) const {
        return heights_[std::size_t(std::min(x, sizeX_ - 1) + std::min(y, sizeY_ - 1) * sizeX_)];
    }
    unsigned short & errorAt(int x, int y) { return errors[std::size_t(x + y * (m_ + 1))]; }

    void calculate(int i, int j, int di, int dj, int bound) {
        int e = std::abs(height(i, j) - (height(i - di, j - dj) + height(i + di, j + dj)) / 2);
        if (bound != 0) {
            int dy = (di + dj) / 2, dx = di - dy;
            for (int turn = 0; turn < 4; ++turn) {
                const bool leaves = (i == 0 && dx < 0) || (i == bound && dx > 0) || (j == 0 && dy < 0) ||
                                    (j == bound && dy > 0);
                if (!leaves) e = std::max<int>(e, errorAt(i + dx, j + dy));
                const int before = dx;
                dx = -dy;
                dy = before;
            }
        }
        errorAt(i, j) = static_cast<unsigned short>(e);
    }

    const Values & heights_;
    int sizeX_, sizeY_, m_;

public:
    Values errors;
};

Values fieldOf(const Values & heights, unsigned sizeX, unsigned sizeY, unsigned level) {
    // Every error is written, also where the array was not empty.
    Values errors(((std::size_t(1) << level) + 1) * ((std::size_t(1) << level) + 1), 12345);
    ChunkedLodErrorField::compute(heights.data(), sizeX, sizeY, level, errors.data());
    return errors;
}

Values randomHeights(std::size_t count, unsigned range, std::mt19937 & random) {
    Values heights(count);
    for (auto & height : heights)
        height = static_cast<unsigned short>(random() % range);
    return heights;
}

TEST(ChunkedLodErrorField, ARidgeIsSeenByAllThatNeedIt) {
    // One peak on the edge of the finest level: the face beside it needs it, and the middle of each side that
    // needs the face.
    Values heights(25, 0);
    heights[1] = 100;
    // clang-format off
    const Values expected{65535, 100,   100, 0, 65535,
                              0, 100,     0, 0,     0,
                            100,   0, 65535, 0,     0,
                              0,   0,     0, 0,     0,
                          65535,   0,     0, 0, 65535};
    // clang-format on
    EXPECT_EQ(fieldOf(heights, 5, 5, 2), expected);
}

TEST(ChunkedLodErrorField, DiagonalsAlternate) {
    // Each face is bent by the corners of one diagonal alone, which rises in the first and the last face.
    Values heights(25, 0);
    heights[0] = heights[4] = heights[20] = heights[24] = 80;
    const Values errors = fieldOf(heights, 5, 5, 2);
    for (const std::size_t edge : {1, 3, 5, 9, 15, 19, 21, 23})
        EXPECT_EQ(errors[edge], 40) << edge;
    heights.assign(25, 0);
    heights[12] = 80;
    EXPECT_EQ(fieldOf(heights, 5, 5, 2)[6], 40) << "rises, through the middle";
    heights[12] = 0;
    heights[2] = 80;
    EXPECT_EQ(PlainSweep(heights, 5, 5, 2).errors, fieldOf(heights, 5, 5, 2));
}

TEST(ChunkedLodErrorField, FlatGroundHasCornersAndCentreAlone) {
    for (const unsigned level : {1U, 2U, 3U, 7U}) {
        const unsigned size = (1U << level) + 1;
        const Values errors = fieldOf(Values(std::size_t(size) * size, 65534), size, size, level);
        EXPECT_EQ(std::count(errors.begin(), errors.end(), 65535), 5);
        EXPECT_EQ(std::count(errors.begin(), errors.end(), 0), std::ptrdiff_t(errors.size()) - 5);
    }
}

TEST(ChunkedLodErrorField, IsThatOfThePlainSweep) {
    std::mt19937 random(1);
    for (unsigned run = 0; run < 300; ++run) {
        const unsigned level = 1 + random() % 8, size = (1U << level) + 1;
        const bool isSquare = run % 3 == 0;
        const unsigned sizeX = isSquare ? size : 1 + random() % size;
        const unsigned sizeY = isSquare ? size : 1 + random() % size;
        const Values heights =
            randomHeights(std::size_t(sizeX) * sizeY, run % 2 == 0 ? 65535 : 1 + random() % 9, random);
        ASSERT_EQ(fieldOf(heights, sizeX, sizeY, level), PlainSweep(heights, sizeX, sizeY, level).errors)
            << "run " << run << ": " << sizeX << " by " << sizeY << ", level " << level;
    }
}

TEST(ChunkedLodErrorField, WideLatticesAreAsNarrowOnes) {
    // Rows of more than one vector at several levels, and of an odd number of them.
    std::mt19937 random(2);
    const struct {
        unsigned sizeX, sizeY, level;
    } cases[] = {{1025, 1025, 10}, {1000, 1025, 10}, {1025, 3, 10}, {2, 1025, 10}, {577, 600, 10}};
    for (const auto & c : cases) {
        const Values heights = randomHeights(std::size_t(c.sizeX) * c.sizeY, 65535, random);
        EXPECT_EQ(fieldOf(heights, c.sizeX, c.sizeY, c.level),
                  PlainSweep(heights, c.sizeX, c.sizeY, c.level).errors)
            << c.sizeX << " by " << c.sizeY;
    }
}

} // namespace
