#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include <zmt/core/vector/vectoroverlaytexture.h>

#include "../terrain/texture/vector/texellevels.h"
#include "../terrain/texture/vector/vectortexturetest.h"
#include "memoryfeatures.h"

using NBX::SO;
using ZMT::CORE::LocalFrame;
using ZMT::CORE::VectorOverlay;
using ZMT::CORE::VectorOverlayTexture;
using ZMT::CORE::VectorStyleSheet;

namespace {

/// The square of 1024 units lies at (500000, 4000000) of the map. Textures have 256 texels along a side and
/// a margin of 16 around the patch, so that those of the square have texels of 4.5 units.
class VectorOverlayTextureTest : public VectorTextureFixture {
protected:
    static constexpr double s_east = 500000.0, s_north = 4000000.0;
    static constexpr int s_size = 256;
    static constexpr double s_texel = 4.5;

    void SetUp() override {
        VectorTextureFixture::SetUp();
        texture->setBufferSize(s_size);
        texture->setInternalFormat(s_rgba8);
        textureError = 0.0;
    }
    void TearDown() override {
        overlaid = nullptr;
        VectorTextureFixture::TearDown();
    }

    /// A place of the map by its place in the square.
    static Point at(double x, double z) { return {s_east + x, 0.0, s_north + z}; }
    static MemoryFeatures::Feature::Line rectangle(double west, double south, double east, double north) {
        return MemoryFeatures::rectangle(s_east + west, s_north + south, s_east + east, s_north + north);
    }
    SO<VectorOverlay> newOverlay(const std::string & style,
                                 const std::shared_ptr<MemoryFeatures> & source = nullptr) const {
        return new VectorOverlay(source ? source : features, VectorStyleSheet::parse(style));
    }
    void lay(const VectorOverlayTexture::Overlays & overlays) {
        overlaid = new VectorOverlayTexture(overlays, LocalFrame(Point(s_east, 100.0, s_north)), square);
    }
    void lay(const std::string & style) { lay({newOverlay(style)}); }

    TexelLevels drawn(const GeometryPatch & patch) {
        const SO<NBX::TextureGL> shown = request(*overlaid, &patch);
        return TexelLevels(*shown, engine.get());
    }
    TexelLevels drawn() { return drawn(*tree); }
    /// Of the texture of the whole square, in texels; that of texel 0 is 0.5.
    static double column(double x) { return (x + 16.0 * 4.0) / s_texel; }
    static double xOf(int column) { return (column + 0.5) * s_texel - 16.0 * 4.0; }
    static std::array<int, 4> texelAt(const TexelLevels & levels, double x, double z) {
        return levels.at(0, int(column(x)), int(column(z)));
    }
    /// Texels that are drawn in a column, from the middle of the patch upwards.
    static unsigned drawnInColumn(const TexelLevels & levels, int x) {
        unsigned count = 0;
        for (int y = 0; y < s_size; ++y)
            if (levels.at(0, x, y)[3] > 0) ++count;
        return count;
    }

    const std::shared_ptr<MemoryFeatures> features =
        std::make_shared<MemoryFeatures>(std::vector<MemoryFeatures::Field>{
            {"NAME", MemoryFeatures::Field::Type::Text}, {"class", MemoryFeatures::Field::Type::Integer}});
    SO<VectorOverlayTexture> overlaid;
};

TEST_F(VectorOverlayTextureTest, LinesLieWhereTheyAreOnTheMap) {
    features->addLine({at(-200.0, 100.0), at(400.0, 300.0), at(1300.0, 900.0)}, {std::string(), {}});
    lay("color=#ff0000, width=1");
    const TexelLevels levels = drawn();
    const auto heightAt = [](double x) {
        return x < 400.0 ? 100.0 + (x + 200.0) / 3.0 : 300.0 + (x - 400.0) / 1.5;
    };
    for (int x = 0; x < s_size; ++x) {
        const double row = column(heightAt(xOf(x)));
        unsigned count = 0;
        for (int y = 0; y < s_size; ++y) {
            if (levels.at(0, x, y)[3] == 0) continue;
            ++count;
            EXPECT_NEAR(y + 0.5, row, 1.0) << "column " << x;
            EXPECT_EQ(levels.at(0, x, y), (std::array<int, 4>{255, 0, 0, 255}));
        }
        EXPECT_GE(count, 1U) << "column " << x;
    }
}

TEST_F(VectorOverlayTextureTest, WidthsInPixelsAreThoseOfTheTexture) {
    features->addLine({at(-200.0, 500.0), at(1300.0, 500.0)}, {std::string(), {}});
    for (const unsigned width : {1U, 2U, 3U, 5U, 12U}) {
        lay("color=black, width=" + std::to_string(width));
        const TexelLevels levels = drawn();
        for (int x = 0; x < s_size; x += 17)
            EXPECT_EQ(drawnInColumn(levels, x), width) << x;
    }
}

TEST_F(VectorOverlayTextureTest, WidthsInMetresAreThoseOnTheGroundAtEachLevel) {
    features->addLine({at(-200.0, 130.0), at(1300.0, 130.0)}, {std::string(), {}});
    lay("color=black, width=45m");
    EXPECT_EQ(drawnInColumn(drawn(), 50), 10U);
    EXPECT_EQ(drawnInColumn(drawn(*below(1)), 50), 20U);
    EXPECT_EQ(drawnInColumn(drawn(*below(2)), 50), 40U);
}

TEST_F(VectorOverlayTextureTest, WhatIsNarrowerThanAPixelFades) {
    features->addLine({at(-200.0, 130.0), at(1300.0, 130.0)}, {std::string(), {}});
    lay("color=black, width=0.9m");
    TexelLevels levels = drawn();
    EXPECT_EQ(drawnInColumn(levels, 50), 1U);
    int alpha = 0;
    for (int y = 0; y < s_size; ++y)
        alpha += levels.at(0, 50, y)[3];
    EXPECT_NEAR(alpha, 255.0 * 0.9 / s_texel, 2.0);
    levels = drawn(*below(1));
    alpha = 0;
    for (int y = 0; y < s_size; ++y)
        alpha += levels.at(0, 50, y)[3];
    EXPECT_NEAR(alpha, 255.0 * 2.0 * 0.9 / s_texel, 2.0) << "twice as much of half as large pixels";
}

TEST_F(VectorOverlayTextureTest, BendsOfWideLinesHaveNoGaps) {
    const std::vector<Point> line = {at(200.0, 200.0), at(500.0, 800.0), at(560.0, 200.0), at(700.0, 220.0),
                                     at(600.0, 300.0)};
    features->addLine(line, {std::string(), {}});
    lay("color=black, width=90m");
    const TexelLevels levels = drawn();
    const auto distance = [&](double x, double z) {
        double least = 1e9;
        for (std::size_t i = 1; i < line.size(); ++i) {
            const double ax = line[i - 1].x - s_east, az = line[i - 1].z - s_north;
            const double bx = line[i].x - s_east - ax, bz = line[i].z - s_north - az;
            const double share = std::clamp(((x - ax) * bx + (z - az) * bz) / (bx * bx + bz * bz), 0.0, 1.0);
            least = std::min(least, std::hypot(x - ax - share * bx, z - az - share * bz));
        }
        return least;
    };
    for (int y = 0; y < s_size; ++y)
        for (int x = 0; x < s_size; ++x) {
            const double away = distance(xOf(x), xOf(y));
            if (away < 45.0 - 1.0) {
                ASSERT_EQ(levels.at(0, x, y)[3], 255) << xOf(x) << ", " << xOf(y);
            }
            if (away > 45.0 + 1.0) {
                ASSERT_EQ(levels.at(0, x, y)[3], 0) << xOf(x) << ", " << xOf(y);
            }
        }
}

TEST_F(VectorOverlayTextureTest, CurvesOfManySmallBendsHaveNoHoles) {
    // The smallest bends open wedges of parts of a texel.
    for (const int bends : {24, 90, 300, 1000, 3000}) {
        features->features.clear();
        MemoryFeatures::Feature::Line curve;
        for (int i = 0; i <= bends; ++i) {
            const double angle = 6.283185307179586 * i / bends;
            curve.push_back(at(500.3 + 300.0 * std::cos(angle), 500.7 + 300.0 * std::sin(angle)));
        }
        features->addLine(curve, {std::string(), {}});
        lay("color=black, width=360m");
        const TexelLevels levels = drawn();
        for (int y = 0; y < s_size; ++y)
            for (int x = 0; x < s_size; ++x) {
                const double radius = std::hypot(xOf(x) - 500.3, xOf(y) - 500.7);
                if (radius > 125.0 && radius < 475.0) {
                    ASSERT_EQ(levels.at(0, x, y)[3], 255) << bends << ": " << x << ", " << y;
                }
            }
    }
}

TEST_F(VectorOverlayTextureTest, NeighbouringPatchesMeet) {
    features->addLine({at(-200.0, 100.0), at(1300.0, 412.0)}, {std::string(), {}});
    lay("color=black, width=20m");
    const TexelLevels left = drawn(*below(2)); // 0 to 256, and a margin of 16
    const SO<GeometryPatch> other(below(1)->child(1));
    ASSERT_EQ(other->boundingBox().getLLF().x, 256.0);
    const TexelLevels right = drawn(*other);
    const double texel = 256.0 * 1.125 / s_size;
    const auto middleOf = [&](const TexelLevels & levels, int column) {
        double sum = 0.0, count = 0.0;
        for (int y = 0; y < s_size; ++y)
            if (levels.at(0, column, y)[3] > 0) {
                sum += y + 0.5;
                count += 1.0;
            }
        return count > 0.0 ? sum / count * texel - 16.0 : -1.0;
    };
    const auto columnIn = [&](double low) { return int((256.0 - low + 16.0) / texel); };
    EXPECT_NEAR(middleOf(left, columnIn(0.0)), middleOf(right, columnIn(256.0)), texel);
    EXPECT_NEAR(middleOf(left, columnIn(0.0)), 100.0 + (256.0 + 200.0) * 312.0 / 1500.0, texel);
}

/// A patch and the larger one beside it, whose textures meet at x = 512: texels of 2.25 and of 4.5 units.
class VectorOverlaySeamTest : public VectorOverlayTextureTest {
protected:
    static constexpr double s_seam = 512.0, s_fine = s_texel / 2.0;

    void SetUp() override {
        VectorOverlayTextureTest::SetUp();
        finer = below(1);
        ASSERT_EQ(finer->boundingBox().getURB().x, s_seam);
    }
    /// Where the middle of the column at `x` is drawn, and how much of it, in units.
    static std::pair<double, double> crossing(const TexelLevels & levels, double texel, double x) {
        const double low = -16.0 * (texel == s_fine ? 2.0 : 4.0);
        double sum = 0.0, count = 0.0;
        for (int y = 0; y < s_size; ++y) {
            const double alpha = levels.at(0, int((x - low) / texel), y)[3] / 255.0;
            sum += alpha * ((y + 0.5) * texel + low);
            count += alpha;
        }
        return {count > 0.0 ? sum / count : NAN, count * texel};
    }

    SO<GeometryPatch> finer;
};

TEST_F(VectorOverlaySeamTest, CentreLinesMeetWithinATexelOfTheCoarser) {
    // As the programs draw; with one sample edges are rounded to whole texels besides.
    VectorTexture::setSamples(4);
    for (const double slope : {-0.6, -0.2, 0.0, 0.37, 0.9}) {
        features->features.clear();
        features->addLine({at(-200.0, 250.0 - 712.0 * slope), at(1300.0, 250.0 + 788.0 * slope)},
                          {std::string(), {}});
        for (const char * style : {"width=1", "width=2", "width=5", "width=20m"}) {
            lay("color=black, " + std::string(style));
            const double fine = crossing(drawn(*finer), s_fine, s_seam).first;
            const double coarse = crossing(drawn(), s_texel, s_seam).first;
            EXPECT_NEAR(fine, coarse, s_texel) << slope << " " << style;
            EXPECT_NEAR(fine, 250.0, s_texel) << slope << " " << style;
        }
    }
}

TEST_F(VectorOverlaySeamTest, WidthsJumpByTheRatioOfTheLevelsAndNotAtAllInMetres) {
    features->addLine({at(-200.0, 250.0), at(1300.0, 250.0)}, {std::string(), {}});
    for (const unsigned samples : {1U, 4U}) {
        VectorTexture::setSamples(samples);
        for (const unsigned width : {1U, 2U, 5U}) {
            lay("color=black, width=" + std::to_string(width));
            const double fine = crossing(drawn(*finer), s_fine, s_seam).second;
            EXPECT_NEAR(crossing(drawn(), s_texel, s_seam).second / fine, 2.0, 0.01) << width;
        }
        for (const double metres : {3.0, 9.0, 31.5}) {
            lay("color=black, width=" + std::to_string(metres) + "m");
            const double fine = crossing(drawn(*finer), s_fine, s_seam).second;
            const double coarse = crossing(drawn(), s_texel, s_seam).second;
            // Edges lie at whole texels, or at samples. What is less than a texel fades, and keeps its sum.
            const double rounded = metres < s_texel ? s_fine : s_texel;
            EXPECT_NEAR(fine, coarse, (samples == 1 ? 1.0 : 0.25) * rounded) << metres;
        }
    }
}

/// Dashes are counted from the beginning of the line, in texels: it begins at the seam of two patches of one
/// level, where both begin their first dash, however the line goes on.
TEST_F(VectorOverlaySeamTest, DashesOfPatchesOfOneLevelGoOn) {
    features->addLine({at(100.0, 250.0), at(900.0, 250.0)}, {std::string(), {}});
    lay("color=black, width=1, dash=12 8");
    const SO<GeometryPatch> other(tree->child(1));
    ASSERT_EQ(other->boundingBox().getLLF().x, s_seam);
    const TexelLevels left = drawn(*finer), right = drawn(*other);
    unsigned dashes = 0, seen = 0;
    for (double x = s_seam - 30.0; x < s_seam + 30.0; x += 0.5) {
        const double along = std::fmod((x - 100.0) / s_fine, 20.0);
        if (std::min({along, std::abs(along - 12.0), 20.0 - along}) < 1.2) continue;
        const bool inLeft = crossing(left, s_fine, x).second > 0.0;
        const bool inRight = crossing(right, s_fine, x - s_seam).second > 0.0;
        EXPECT_EQ(inLeft, along < 12.0) << x;
        EXPECT_EQ(inRight, inLeft) << x;
        dashes += inLeft;
        ++seen;
    }
    EXPECT_GT(dashes, 20U);
    EXPECT_LT(dashes, seen - 10U) << "and gaps";
}

/// Both show the letters at the seam, in their size and place.
TEST_F(VectorOverlaySeamTest, LabelsOnTheGroundAreWholeWhereLevelsMeet) {
    VectorTexture::setSamples(4);
    features->addPoint(at(470.0, 250.0), {std::string("HHHHHHHH"), {}});
    lay("label=NAME, label-size=90m, label-color=#0000ff, halo=0, size=0");
    const TexelLevels fine = drawn(*finer), coarse = drawn();
    double letters = 0.0, differences = 0.0;
    unsigned stems = 0;
    for (double x = 380.0; x < s_seam + 24.0; x += s_texel) {
        const auto [middle, height] = crossing(coarse, s_texel, x);
        const double left = crossing(fine, s_fine, x - s_fine / 2.0).second,
                     right = crossing(fine, s_fine, x + s_fine / 2.0).second;
        differences += std::abs(height - (left + right) / 2.0);
        letters += height;
        if (height < 50.0) continue;
        ++stems;
        EXPECT_NEAR(crossing(fine, s_fine, x).first, middle, s_texel) << x;
    }
    EXPECT_GT(stems, 4U);
    EXPECT_LT(differences, 0.2 * letters);
}

TEST_F(VectorOverlayTextureTest, TexelsAreNoLargerThanTheLargestOne) {
    features->addLine({at(-200.0, 500.0), at(1300.0, 500.0)}, {std::string(), {}});
    lay("color=black");
    const auto splits = [&](const GeometryPatch & patch, double error) {
        return overlaid->refine(&patch, view.get(), 1000, 1000, eye, error, false);
    };
    // The square has texels of 4 units, each of which is a pixel of the screen.
    EXPECT_FALSE(splits(*tree, 8.0));
    EXPECT_FALSE(splits(*below(1), 4.0));
    overlaid->setLargestTexel(2.0);
    EXPECT_EQ(overlaid->largestTexel(), 2.0);
    EXPECT_TRUE(splits(*tree, 8.0));
    EXPECT_TRUE(splits(*below(1), 8.0));
    EXPECT_FALSE(splits(*below(2), 8.0));
    EXPECT_TRUE(splits(*below(2), 1.0)) << "what the view asks for, where that is less";
    textureError = 8.0;
    asynchronous = false;
    const auto own = request(*overlaid, below(1).get());
    EXPECT_NE(own.get(), request(*overlaid, tree.get()).get());
    overlaid->setLargestTexel(0.0);
    EXPECT_FALSE(splits(*tree, 8.0));
}

TEST_F(VectorOverlayTextureTest, WithALargestTexelSizesAreThoseOfTheScreen) {
    features->addLine({at(-200.0, 300.0), at(1300.0, 300.0)}, {std::string(), {}});
    features->addPoint(at(512.0, 700.0), {std::string(), {}});
    lay("color=black, width=2, symbol=square, size=8");
    const auto count = [&](double z) {
        const TexelLevels levels = drawn();
        unsigned texels = 0;
        for (int y = int(column(z - 100.0)); y < int(column(z + 100.0)); ++y)
            texels += levels.at(0, int(column(512.0)), y)[3] > 0;
        return texels;
    };
    EXPECT_EQ(count(300.0), 2U);
    EXPECT_EQ(count(700.0), 8U);
    overlaid->setLargestTexel(0.5);
    EXPECT_EQ(count(300.0), 6U) << "drawn anew, 1.5 pixels for each by the largest texels";
    EXPECT_EQ(count(700.0), 24U);
    const auto before = drawn();
    const unsigned long textures = VectorTexture::renderCount();
    overlaid->setLargestTexel(0.5);
    drawn();
    EXPECT_EQ(VectorTexture::renderCount(), textures) << "nothing has changed";
    lay("color=black, width=1, dash=6 4");
    overlaid->setLargestTexel(0.5);
    const TexelLevels levels = drawn();
    const int begin = int(column(-64.0));
    std::vector<bool> row;
    for (int x = begin; x < s_size; ++x)
        row.push_back(levels.at(0, x, int(column(300.0)))[3] > 0);
    const auto changes = [&] {
        unsigned number = 0;
        for (std::size_t i = 1; i < row.size(); ++i)
            number += row[i] != row[i - 1];
        return number;
    }();
    EXPECT_NEAR(changes, 2.0 * double(row.size()) / 30.0, 2.0);
    overlaid->setLargestTexel(NAN);
    EXPECT_EQ(reports.count(0, L"isSize", L"texels of nan pixels"), 1U) << reports;
    reports.clear();
    EXPECT_EQ(overlaid->largestTexel(), 0.5);
}

TEST_F(VectorOverlayTextureTest, AreasHaveHolesAndOpacity) {
    features->addArea({rectangle(100.0, 100.0, 900.0, 900.0), rectangle(300.0, 300.0, 600.0, 600.0)},
                      {std::string(), {}});
    for (const double opacity : {0.25, 0.5, 1.0}) {
        lay("fill=#008000, width=0, opacity=" + std::to_string(opacity));
        const TexelLevels levels = drawn();
        for (const double x : {110.0, 200.0, 290.0, 610.0, 890.0}) {
            const auto texel = texelAt(levels, x, 450.0);
            EXPECT_NEAR(texel[3], 255.0 * opacity, 2.0) << x;
            EXPECT_NEAR(texel[1], 128, 2) << x;
        }
        for (const double x : {90.0, 310.0, 450.0, 590.0, 910.0})
            EXPECT_EQ(texelAt(levels, x, 450.0)[3], 0) << x;
    }
}

TEST_F(VectorOverlayTextureTest, AreasThatCrossThemselvesAreFilledWhereTheyAreInsideAnOddNumberOfTimes) {
    features->addArea({{at(100.0, 100.0), at(900.0, 900.0), at(900.0, 100.0), at(100.0, 900.0)}},
                      {std::string(), {}});
    lay("fill=#008000, width=0");
    const TexelLevels levels = drawn();
    EXPECT_EQ(texelAt(levels, 200.0, 500.0)[3], 255);
    EXPECT_EQ(texelAt(levels, 800.0, 500.0)[3], 255);
    EXPECT_EQ(texelAt(levels, 500.0, 200.0)[3], 0);
    EXPECT_EQ(texelAt(levels, 500.0, 800.0)[3], 0);
}

TEST_F(VectorOverlayTextureTest, AreasThatReachFarBeyondTheTextureFillIt) {
    features->addArea({rectangle(-3e6, -3e6, 4e6, 4e6), rectangle(500.0, -2e6, 3e6, 2e6)},
                      {std::string(), {}});
    lay("fill=#008000, color=red, width=1");
    const TexelLevels levels = drawn(*below(1));
    for (int y = 0; y < s_size; y += 15)
        for (int x = 0; x < s_size; x += 15) {
            const double east = (x + 0.5) * s_texel / 2.0 - 32.0;
            EXPECT_EQ(levels.at(0, x, y)[3], east < 500.0 ? 255 : 0) << east;
        }
}

/// What shows of a text that lies about the border of two patches, in each of them, in the area that both
/// show.
TEST_F(VectorOverlayTextureTest, LabelsOnTheGroundAreWholeAtTheBorderOfPatches) {
    // The end of the name reaches far into the patch where there is nothing else.
    features->addPoint(at(200.0, 500.0), {std::string("MMMMMMMMMMMM"), {}});
    lay("label=NAME, label-size=40m, label-color=#0000ff, halo=0, size=0");
    const SO<GeometryPatch> far(below(1)->child(3));
    ASSERT_EQ(far->boundingBox().getLLF(), Point(256.0, 0.0, 256.0));
    const SO<GeometryPatch> near(below(1)->child(2));
    const TexelLevels right = drawn(*far), left = drawn(*near);
    const double texel = 256.0 * 1.125 / s_size;
    unsigned letters = 0, beyond = 0;
    for (int y = 0; y < s_size; ++y)
        for (int x = 0; x < s_size; ++x) {
            const bool isLetter = right.at(0, x, y)[3] > 128;
            beyond += isLetter && x * texel > 100.0 ? 1 : 0;
            // 256 units are 227.6 texels, so that the two pictures lie a part of a texel apart.
            const double xLeft = x + 256.0 / texel;
            if (xLeft >= s_size - 2) continue;
            letters += isLetter ? 1 : 0;
            if (isLetter && right.at(0, x + 1, y)[3] > 128 && (x == 0 || right.at(0, x - 1, y)[3] > 128)) {
                EXPECT_GT(left.at(0, int(xLeft), y)[3], 0) << x << ", " << y;
            }
        }
    EXPECT_GT(letters, 50U);
    EXPECT_GT(beyond, 50U) << "far from the point, and from all features";
    EXPECT_EQ(overlaid->overlays()[0]->counts().labels, 2U);
}

TEST_F(VectorOverlayTextureTest, LabelsOnTheGroundHaveTheirSizePlaceAndScale) {
    features->addArea({rectangle(300.0, 300.0, 700.0, 700.0)}, {std::string("H"), {}});
    const auto boxOf = [](const TexelLevels & levels) {
        std::array<double, 4> box = {1e9, 1e9, -1e9, -1e9};
        for (int y = 0; y < s_size; ++y)
            for (int x = 0; x < s_size; ++x)
                if (levels.at(0, x, y)[3] > 128)
                    box = {std::min(box[0], xOf(x)), std::min(box[1], xOf(y)), std::max(box[2], xOf(x)),
                           std::max(box[3], xOf(y))};
        return box;
    };
    const std::string style = "label=NAME, label-size=200m, halo=0, opacity=0, label-color=black";
    lay(style);
    const auto box = boxOf(drawn());
    EXPECT_NEAR((box[0] + box[2]) / 2.0, 500.0, 15.0);
    EXPECT_NEAR(box[3] - box[1], 0.7 * 200.0, 25.0) << "a capital letter";
    // A pixel of 4.5 metres is a scale of 1 : 16071.
    lay(style + ", label-from=1:16000");
    EXPECT_EQ(boxOf(drawn())[0], 1e9);
    lay(style + ", label-from=1:17000");
    EXPECT_LT(boxOf(drawn())[0], 1e9);
}

TEST_F(VectorOverlayTextureTest, LabelsOnTheGroundAreOverAllElseOfTheirOverlay) {
    features->addArea({rectangle(100.0, 100.0, 900.0, 900.0)}, {std::string("MMM"), {}});
    lay("label=NAME, label-size=200m, halo=0, fill=#ff0000, width=0, label-color=#0000ff");
    TexelLevels levels = drawn();
    unsigned blue = 0;
    for (int y = 0; y < s_size; ++y)
        for (int x = 0; x < s_size; ++x)
            if (levels.at(0, x, y) == std::array<int, 4>{0, 0, 255, 255}) ++blue;
    EXPECT_GT(blue, 500U);
}

TEST_F(VectorOverlayTextureTest, LabelsThatStandUprightAreNotLaidOnTheGround) {
    features->addPoint(at(500.0, 500.0), {std::string("H"), {}});
    lay("label=NAME, label-size=40, size=0");
    const TexelLevels levels = drawn();
    for (int y = 0; y < s_size; ++y)
        for (int x = 0; x < s_size; ++x)
            ASSERT_EQ(levels.at(0, x, y)[3], 0);
    EXPECT_EQ(features->queries.size(), 2U) << "no walk through all features";
}

TEST_F(VectorOverlayTextureTest, WhatIsTranslucentDoesNotAddUpOverItself) {
    features->addLine({at(100.0, 100.0), at(900.0, 900.0), at(900.0, 100.0), at(100.0, 900.0),
                       at(120.0, 850.0), at(100.0, 100.0)},
                      {std::string(), {}});
    features->addLine({at(500.0, 0.0), at(500.0, 1000.0)}, {std::string(), {}});
    for (const char * width : {"1", "2", "90m"}) {
        lay({newOverlay("color=#ff0000, opacity=0.5, width=" + std::string(width))});
        const TexelLevels levels = drawn();
        for (int y = 0; y < s_size; ++y)
            for (int x = 0; x < s_size; ++x) {
                const int alpha = levels.at(0, x, y)[3];
                if (alpha > 0) {
                    ASSERT_NEAR(alpha, 127.5, 2.0) << x << ", " << y << " width " << width;
                }
            }
        EXPECT_GT(texelAt(levels, 500.0, 500.0)[3], 0);
    }
}

TEST_F(VectorOverlayTextureTest, ATranslucentOutlineShowsTheFillBelowIt) {
    features->addArea({rectangle(100.0, 100.0, 900.0, 900.0)}, {std::string(), {}});
    lay("fill=#0000ff80, color=#ff000080, width=90m");
    const TexelLevels levels = drawn();
    EXPECT_NEAR(texelAt(levels, 500.0, 500.0)[3], 128, 2) << "fill";
    EXPECT_NEAR(texelAt(levels, 500.0, 75.0)[3], 128, 2) << "the outer half of the outline";
    EXPECT_NEAR(texelAt(levels, 500.0, 125.0)[3], 192, 2) << "both";
}

TEST_F(VectorOverlayTextureTest, TheOpacityOfTheOverlayMultipliesThatOfTheStyle) {
    features->addArea({rectangle(100.0, 100.0, 900.0, 900.0)}, {std::string(), {}});
    const SO<VectorOverlay> overlay = newOverlay("fill=#008000c0, width=0");
    lay({overlay});
    EXPECT_NEAR(texelAt(drawn(), 500.0, 500.0)[3], 192, 2);
    overlay->setOpacity(0.5);
    EXPECT_NEAR(texelAt(drawn(), 500.0, 500.0)[3], 96, 2) << "drawn anew by itself";
    overlay->setShown(false);
    EXPECT_EQ(texelAt(drawn(), 500.0, 500.0)[3], 0);
    overlay->setShown(true);
    overlay->setStyleSheet(VectorStyleSheet::parse("fill=#ff0000, width=0"));
    EXPECT_EQ(texelAt(drawn(), 500.0, 500.0), (std::array<int, 4>{255, 0, 0, 128}));
}

TEST_F(VectorOverlayTextureTest, ADarkLineHasNoBrightFringeAtAnyLevel) {
    features->addLine({at(0.0, 100.0), at(1000.0, 900.0)}, {std::string(), {}});
    for (const char * width : {"1", "20m", "0.5"}) {
        lay("color=#202020, width=" + std::string(width));
        const TexelLevels levels = drawn();
        for (unsigned level = 0; level < levels.levels(); ++level)
            for (int y = 0; y < levels.width(level); ++y)
                for (int x = 0; x < levels.width(level); ++x) {
                    const auto texel = levels.at(level, x, y);
                    if (texel[3] > 0) {
                        ASSERT_NEAR(texel[0], 32, 2 + 255 / texel[3]) << level;
                    }
                }
    }
}

TEST_F(VectorOverlayTextureTest, DashesFollowTheWholeLine) {
    // Of many short segments, each of which is shorter than a dash.
    MemoryFeatures::Feature::Line line;
    for (int i = 0; i <= 1000; ++i)
        line.push_back(at(i, 500.0));
    features->addLine(line, {std::string(), {}});
    for (const char * width : {"1", "3"}) {
        lay("color=black, dash=12 8, width=" + std::string(width));
        const TexelLevels levels = drawn();
        for (int x = int(column(0.0)) + 1; x < int(column(1000.0)); ++x) {
            const double along = std::fmod(x + 0.5 - column(0.0), 20.0);
            if (std::min({std::abs(along), std::abs(along - 12.0), std::abs(along - 20.0)}) < 1.0) continue;
            EXPECT_EQ(drawnInColumn(levels, x) > 0, along < 12.0) << x;
        }
    }
}

TEST_F(VectorOverlayTextureTest, DashesTooFineToBeSeenFade) {
    features->addLine({at(-200.0, 130.0), at(1300.0, 130.0)}, {std::string(), {}});
    lay("color=black, dash=0.5 0.5, width=1");
    const TexelLevels levels = drawn();
    for (int x = 20; x < 200; ++x) {
        int alpha = 0;
        for (int y = 0; y < s_size; ++y)
            alpha += levels.at(0, x, y)[3];
        EXPECT_NEAR(alpha, 127.5, 2.0);
    }
}

TEST_F(VectorOverlayTextureTest, SymbolsHaveTheirFormAndSize) {
    features->addPoint(at(500.0, 500.0), {std::string(), {}});
    const struct {
        const char * form;
        double share;      ///< of the square around it
        double up, corner; ///< what lies at 0.4 of the size above it, and to the north-east
    } cases[] = {{"circle", 0.785, 1, 0},
                 {"square", 1.0, 1, 1},
                 {"diamond", 0.5, 1, 0},
                 {"triangle", 0.433, 1, 0},
                 {"cross", 5.0 / 9.0, 1, 0}};
    for (const auto & [form, share, up, corner] : cases) {
        lay(std::string("color=black, size=40, symbol=") + form);
        const TexelLevels levels = drawn();
        unsigned count = 0;
        for (int y = 0; y < s_size; ++y)
            for (int x = 0; x < s_size; ++x)
                if (levels.at(0, x, y)[3] > 0) ++count;
        EXPECT_NEAR(count, 1600.0 * share, 60.0) << form;
        const double away = 16.0 * s_texel;
        EXPECT_EQ(texelAt(levels, 500.0, 500.0 + away)[3] > 0, up > 0) << form;
        EXPECT_EQ(texelAt(levels, 500.0 + away, 500.0 + away)[3] > 0, corner > 0) << form;
        EXPECT_EQ(texelAt(levels, 500.0, 500.0)[3], 255) << form;
    }
}

TEST_F(VectorOverlayTextureTest, SymbolsAtTheBorderShowInBothPatches) {
    features->addPoint(at(255.0, 100.0), {std::string(), {}});
    lay("color=black, size=30m, symbol=square");
    const SO<GeometryPatch> other(below(1)->child(1));
    unsigned counts[2] = {0, 0};
    const TexelLevels pictures[] = {drawn(*below(2)), drawn(*other)};
    const double texel = 256.0 * 1.125 / s_size;
    for (unsigned i = 0; i < 2; ++i)
        for (int y = 0; y < s_size; ++y)
            for (int x = 0; x < s_size; ++x)
                if (pictures[i].at(0, x, y)[3] > 0) ++counts[i];
    EXPECT_NEAR(counts[0], 900.0 / texel / texel, 60.0);
    EXPECT_NEAR(counts[1], 900.0 / texel / texel, 60.0);
}

TEST_F(VectorOverlayTextureTest, OverlaysCoverThoseBeforeThemAndLinesCoverAreas) {
    features->addLine({at(0.0, 500.0), at(1000.0, 500.0)}, {std::string(), {}});
    features->addPoint(at(300.0, 500.0), {std::string(), {}});
    features->addArea({rectangle(100.0, 100.0, 900.0, 900.0)}, {std::string(), {}});
    const auto above = std::make_shared<MemoryFeatures>();
    above->addArea({rectangle(600.0, 400.0, 800.0, 600.0)});
    lay({newOverlay("fill=#ff0000, color=#00ff00, width=40m, size=30m, symbol=square"),
         newOverlay("fill=#0000ff, width=0", above)});
    TexelLevels levels = drawn();
    EXPECT_EQ(texelAt(levels, 500.0, 300.0), (std::array<int, 4>{255, 0, 0, 255})) << "area";
    EXPECT_EQ(texelAt(levels, 500.0, 500.0), (std::array<int, 4>{0, 255, 0, 255})) << "line over area";
    EXPECT_EQ(texelAt(levels, 700.0, 500.0), (std::array<int, 4>{0, 0, 255, 255})) << "second overlay";
    overlaid->setOverlays({overlaid->overlays()[1], overlaid->overlays()[0]});
    levels = drawn();
    EXPECT_EQ(texelAt(levels, 700.0, 500.0), (std::array<int, 4>{0, 255, 0, 255})) << "now below";
}

TEST_F(VectorOverlayTextureTest, RulesAboveCoverThoseBelow) {
    features->addLine({at(0.0, 500.0), at(1000.0, 500.0)}, {std::string(), std::int64_t(1)});
    features->addLine({at(500.0, 0.0), at(500.0, 1000.0)}, {std::string(), std::int64_t(2)});
    for (const bool isFirstAbove : {true, false}) {
        const std::string first = "class = 1: width=40m, color=#ff0000\n";
        const std::string second = "class = 2: width=40m, color=#0000ff\n";
        lay({new VectorOverlay(features,
                               VectorStyleSheet::parseFile(isFirstAbove ? first + second : second + first))});
        EXPECT_EQ(texelAt(drawn(), 500.0, 500.0)[0], isFirstAbove ? 255 : 0);
    }
}

TEST_F(VectorOverlayTextureTest, FeaturesBringTheirStylesAlong) {
    features->addArea({rectangle(100.0, 100.0, 400.0, 900.0)}, {std::string(), {}}).style =
        "fill=#ff0000, width=0";
    features->addArea({rectangle(500.0, 100.0, 800.0, 900.0)}, {std::string(), {}}).style =
        "fill=#0000ff, width=0";
    lay({new VectorOverlay(features)});
    const TexelLevels levels = drawn();
    EXPECT_EQ(texelAt(levels, 200.0, 500.0), (std::array<int, 4>{255, 0, 0, 255}));
    EXPECT_EQ(texelAt(levels, 600.0, 500.0), (std::array<int, 4>{0, 0, 255, 255}));
}

TEST_F(VectorOverlayTextureTest, MoreTranslucentLooksThanTheStencilBufferHasNumbersFor) {
    // The first one and that behind 255 others overlap, and nothing between them touches that place.
    for (int i = 0; i < 256; ++i) {
        const double west = i % 255 == 0 ? 100.0 : 600.0;
        features->addArea({rectangle(west, 100.0, west + 300.0, 900.0)}, {std::string(), {}}).style =
            "width=0, fill=#" + std::to_string(100000 + i) + "80";
    }
    lay({new VectorOverlay(features)});
    EXPECT_NEAR(texelAt(drawn(), 250.0, 500.0)[3], 192, 2);
}

TEST_F(VectorOverlayTextureTest, SymbolsSmallerThanAPixelFade) {
    features->addPoint(at(502.5, 502.5), {std::string(), {}});
    lay("color=black, size=2.25m, symbol=square");
    const TexelLevels levels = drawn();
    int alpha = 0;
    for (int y = 0; y < s_size; ++y)
        for (int x = 0; x < s_size; ++x)
            alpha += levels.at(0, x, y)[3];
    EXPECT_NEAR(alpha, 255.0 / 4.0, 2.0) << "a quarter of a pixel";
}

TEST_F(VectorOverlayTextureTest, AnotherStyleHasOtherLabels) {
    features->addPoint(at(500.0, 500.0), {std::string("H"), {}});
    const SO<VectorOverlay> overlay = newOverlay("size=3");
    lay({overlay});
    drawn();
    EXPECT_EQ(overlay->counts().labels, 0U);
    overlay->setStyleSheet(VectorStyleSheet::parse("label=NAME, label-size=50m"));
    drawn();
    EXPECT_EQ(overlay->counts().labels, 1U);
}

TEST_F(VectorOverlayTextureTest, WhereNothingLiesNothingIsReadOrDrawn) {
    features->addLine({at(10.0, 10.0), at(100.0, 50.0)}, {std::string(), {}});
    lay("width=1");
    const auto before = VectorOverlayTexture::renderCount();
    const SO<GeometryPatch> far(tree->child(3));
    ASSERT_GE(far->boundingBox().getLLF().x, 512.0);
    for (int i = 0; i < 3; ++i)
        request(*overlaid, far.get());
    EXPECT_EQ(VectorOverlayTexture::renderCount(), before);
    EXPECT_TRUE(features->queries.empty()) << "beyond the extent";
    // Within the extent, but nothing there.
    features->addLine({at(1000.0, 1000.0), at(1020.0, 1020.0)}, {std::string(), {}});
    lay("width=1");
    const SO<GeometryPatch> hollow(below(1)->child(2));
    request(*overlaid, hollow.get());
    request(*overlaid, hollow.get());
    EXPECT_EQ(VectorOverlayTexture::renderCount(), before);
    EXPECT_EQ(features->queries.size(), 1U);
    request(*overlaid, below(2).get());
    EXPECT_EQ(VectorOverlayTexture::renderCount(), before + 1);
}

TEST_F(VectorOverlayTextureTest, SourcesAreAskedForTheBoxInTheirCoordinatesAndHalfATexel) {
    features->addLine({at(10.0, 10.0), at(1000.0, 1000.0)}, {std::string("a"), std::int64_t(1)});
    lay({new VectorOverlay(features, VectorStyleSheet::parseFile("class = 1 and NAME = a: width=1"))});
    drawn(*below(1));
    ASSERT_FALSE(features->queries.empty());
    const auto & query = features->queries.back();
    EXPECT_NEAR(query.tolerance, 0.5 * s_texel / 2.0, 1e-9);
    EXPECT_EQ(query.fields, (std::vector<unsigned>{1, 0}));
    EXPECT_NEAR(query.box.minX, s_east - 32.0 - 16.0 * s_texel / 2.0, 1e-6);
    EXPECT_NEAR(query.box.maxY, s_north + 512.0 + 32.0 + 16.0 * s_texel / 2.0, 1e-6);
}

TEST_F(VectorOverlayTextureTest, CountsTellWhatWasDrawn) {
    features->addLine({at(10.0, 10.0), at(500.0, 500.0), at(1000.0, 700.0)}, {std::string(), {}});
    features->addLine({at(10.0, 10.0), at(500.0, 500.0)}, {std::string(), std::int64_t(2)});
    features->add({std::string(), std::int64_t(2)});
    const SO<VectorOverlay> overlay(
        new VectorOverlay(features, VectorStyleSheet::parseFile("class != 2: width=1")));
    lay({overlay});
    drawn();
    EXPECT_EQ(overlay->counts().textures, 1U);
    EXPECT_EQ(overlay->counts().features, 1U);
    EXPECT_EQ(overlay->counts().vertices, 4U);
    EXPECT_EQ(overlay->name(), "memory");
}

TEST_F(VectorOverlayTextureTest, WhatCannotBeReadIsReportedOnce) {
    features->addLine({at(10.0, 10.0), at(1000.0, 1000.0)}, {std::string(), {}});
    const SO<VectorOverlay> overlay = newOverlay("width=1");
    lay({overlay});
    features->fails = true;
    const auto before = VectorOverlayTexture::renderCount();
    drawn();
    drawn(*below(1));
    EXPECT_EQ(VectorOverlayTexture::renderCount(), before + 2) << "nobody knows that nothing is there";
    EXPECT_EQ(overlay->failure(), "cannot be read: memory");
    EXPECT_EQ(reports.size(), 1U);
    reports.clear();
}

TEST_F(VectorOverlayTextureTest, AFieldThatIsNotThereIsToldBeforeAnythingIsDrawn) {
    EXPECT_THROW(newOverlay("label=HEIGHT"), NBX::InputException);
    const SO<VectorOverlay> overlay = newOverlay("width=1");
    EXPECT_THROW(overlay->setStyleSheet(VectorStyleSheet::parse("label=HEIGHT")), NBX::InputException);
    EXPECT_TRUE(overlay->styleSheet().fields().empty());
    overlay->setOpacity(NAN);
    EXPECT_EQ(overlay->opacity(), 1.0);
    EXPECT_EQ(reports.size(), 1U);
    reports.clear();
    overlay->setOpacity(7.0);
    EXPECT_EQ(overlay->opacity(), 1.0);
    overlay->setOpacity(-1.0);
    EXPECT_EQ(overlay->opacity(), 0.0);
}

TEST_F(VectorOverlayTextureTest, TexturesForABudgetCountTheirLevels) {
    EXPECT_EQ(VectorOverlayTexture::texturesFor(std::uint64_t(70) << 20, 1024, s_rgba4), 26U);
    EXPECT_EQ(VectorOverlayTexture::texturesFor(std::uint64_t(64) << 20, 1024, s_rgba8), 12U);
    EXPECT_EQ(VectorOverlayTexture::texturesFor(0, 1024, s_rgba8), 1U);
    EXPECT_EQ(VectorOverlayTexture::texturesFor(~std::uint64_t(0), 1, s_rgba8), ~0U);
    EXPECT_EQ(VectorOverlayTexture::texturesFor(1000, 0, s_rgba8), 200U);
}

} // namespace
