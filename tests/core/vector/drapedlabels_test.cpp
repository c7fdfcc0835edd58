#include "core/vector/drapedlabels.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "memoryfeatures.h"

using ZMT::CORE::DrapedLabels;
using ZMT::CORE::VectorStyleSheet;

namespace {

std::vector<std::wstring> textsIn(const DrapedLabels & labels, const ZMT::RASTER::GeoExtent & box,
                                  double metresPerPixel = 1.0) {
    std::vector<std::wstring> texts;
    labels.visit(box, metresPerPixel, [&](const DrapedLabels::Label & label) {
        texts.push_back(label.text);
        return true;
    });
    return texts;
}

TEST(DrapedLabels, OnlyThoseWithATextAreKept) {
    MemoryFeatures source;
    const auto sheet = VectorStyleSheet::parseFile("b = 1: label=a, label-size=10m\nb = 2: label=a\n");
    DrapedLabels labels;
    for (const auto & [text, rule] : {std::pair("one", 1), {"upright", 2}, {"", 1}, {"nothing", 3}})
        EXPECT_TRUE(
            labels.add(sheet, source.addPoint({0.0, 0.0, 0.0}, {std::int64_t(rule), std::string(text)})));
    EXPECT_TRUE(labels.add(sheet, source.add({std::int64_t(1), std::string("nowhere")})));
    EXPECT_EQ(labels.size(), 1U);
    labels.settle();
    EXPECT_EQ(textsIn(labels, {-1.0, -1.0, 1.0, 1.0}), std::vector<std::wstring>{L"one"});
}

TEST(DrapedLabels, AreFoundFromWhereTheyReach) {
    MemoryFeatures source;
    const auto sheet = VectorStyleSheet::parse("label=a, label-size=10m, halo=0");
    DrapedLabels labels;
    labels.add(sheet, source.addPoint({1000.0, 0.0, 2000.0}, {std::string("word")}));
    labels.settle();
    ZMT::RASTER::GeoExtent box{};
    labels.visit({-1e6, -1e6, 1e6, 1e6}, 1.0, [&](const DrapedLabels::Label & label) {
        box = label.box;
        return true;
    });
    EXPECT_NEAR((box.minX + box.maxX) / 2.0, 1000.0, 1.0);
    EXPECT_GT(box.maxX - box.minX, 15.0);
    EXPECT_LT(box.maxX - box.minX, 40.0);
    EXPECT_NEAR(box.minY, 2000.0, 4.0);
    EXPECT_NEAR(box.maxY, 2008.0, 4.0);
    const double e = 0.1;
    EXPECT_EQ(textsIn(labels, {box.maxX - e, 0.0, 1e4, 1e4}).size(), 1U);
    EXPECT_EQ(textsIn(labels, {box.maxX + e, 0.0, 1e4, 1e4}).size(), 0U);
    EXPECT_EQ(textsIn(labels, {0.0, 0.0, box.minX + e, 1e4}).size(), 1U);
    EXPECT_EQ(textsIn(labels, {0.0, 0.0, box.minX - e, 1e4}).size(), 0U);
    EXPECT_EQ(textsIn(labels, {0.0, box.maxY - e, 1e4, 1e4}).size(), 1U);
    EXPECT_EQ(textsIn(labels, {0.0, box.maxY + e, 1e4, 1e4}).size(), 0U);
    EXPECT_EQ(textsIn(labels, {0.0, 0.0, 1e4, box.minY + e}).size(), 1U);
    EXPECT_EQ(textsIn(labels, {0.0, 0.0, 1e4, box.minY - e}).size(), 0U);
}

TEST(DrapedLabels, NoTwoOverlapAndThoseOfLargeFeaturesStay) {
    MemoryFeatures source;
    const auto sheet = VectorStyleSheet::parse("label=a, label-size=10m");
    DrapedLabels labels;
    const auto add = [&](const char * text, double middle, double half) {
        labels.add(sheet,
                   source.addArea({MemoryFeatures::rectangle(middle - half, -half, middle + half, half)},
                                  {std::string(text)}));
    };
    add("small", 0.0, 10.0);
    add("large", 5.0, 40.0);
    add("apart", 200.0, 1.0);
    add("enormous", 3000.0, 1000.0);
    labels.settle();
    EXPECT_EQ(textsIn(labels, {-1e6, -1e6, 1e6, 1e6}),
              (std::vector<std::wstring>{L"enormous", L"large", L"apart"}));
}

TEST(DrapedLabels, ThoseThatShowAtFewScalesGiveWay) {
    MemoryFeatures source;
    const auto sheet = VectorStyleSheet::parseFile("b = 1: label=a, label-size=10m, label-from=1:1000\n"
                                                   "b = 2: label=a, label-size=10m, label-from=1:100000\n"
                                                   "b = 3: label=a, label-size=10m\n");
    for (const std::int64_t other : {2, 3}) {
        DrapedLabels labels;
        labels.add(sheet, source.addArea({MemoryFeatures::rectangle(-90.0, -90.0, 90.0, 90.0)},
                                         {std::int64_t(1), std::string("near")}));
        labels.add(sheet, source.addArea({MemoryFeatures::rectangle(-9.0, -9.0, 9.0, 9.0)},
                                         {other, std::string("far")}));
        labels.settle();
        EXPECT_EQ(textsIn(labels, {-1e6, -1e6, 1e6, 1e6}, 0.1), std::vector<std::wstring>{L"far"}) << other;
    }
}

TEST(DrapedLabels, ScalesAreThoseOfThePixels) {
    MemoryFeatures source;
    const auto sheet = VectorStyleSheet::parse("label=a, label-size=10m, label-from=1:10000");
    DrapedLabels labels;
    labels.add(sheet, source.addPoint({0.0, 0.0, 0.0}, {std::string("word")}));
    labels.settle();
    EXPECT_EQ(textsIn(labels, {-9.0, -9.0, 9.0, 9.0}, 2.79).size(), 1U);
    EXPECT_EQ(textsIn(labels, {-9.0, -9.0, 9.0, 9.0}, 2.81).size(), 0U);
}

TEST(DrapedLabels, StandAboveSymbolsAndInTheMiddleOfTheRest) {
    MemoryFeatures source;
    const auto sheet = VectorStyleSheet::parse("label=a, label-size=10m, size=30m");
    DrapedLabels labels;
    labels.add(sheet, source.addPoint({100.0, 0.0, 200.0}, {std::string("point")}));
    labels.add(sheet, source.addLine({{0.0, 0.0, 0.0}, {10.0, 0.0, 0.0}}, {std::string("line")}));
    labels.add(sheet,
               source.addArea({MemoryFeatures::rectangle(0.0, 100.0, 40.0, 140.0)}, {std::string("area")}));
    labels.settle();
    std::map<std::wstring, DrapedLabels::Label> all;
    labels.visit({-1e6, -1e6, 1e6, 1e6}, 1.0, [&](const DrapedLabels::Label & label) {
        all[label.text] = label;
        return true;
    });
    ASSERT_EQ(all.size(), 3U);
    EXPECT_TRUE(all[L"point"].standsAbove);
    EXPECT_EQ(all[L"point"].x, 100.0);
    EXPECT_EQ(all[L"point"].z, 215.0);
    EXPECT_FALSE(all[L"line"].standsAbove || all[L"area"].standsAbove);
    EXPECT_NEAR(all[L"line"].x, 5.0, 1e-9);
    EXPECT_NEAR(all[L"area"].z, 120.0, 1.0);
}

TEST(DrapedLabels, TooManyAndTooLongOnesAreCut) {
    MemoryFeatures source;
    const auto sheet = VectorStyleSheet::parse("label=a, label-size=10m");
    DrapedLabels labels;
    ASSERT_TRUE(labels.add(sheet, source.addPoint({0.0, 0.0, 0.0}, {std::string(1000, 'x')})));
    const auto & feature = source.addPoint({0.0, 0.0, 0.0}, {std::string("x")});
    for (std::size_t i = 1; i < DrapedLabels::mostLabels; ++i)
        ASSERT_TRUE(labels.add(sheet, feature));
    EXPECT_FALSE(labels.add(sheet, feature));
    EXPECT_EQ(labels.size(), DrapedLabels::mostLabels);
    DrapedLabels one;
    one.add(sheet, source.features.front());
    one.settle();
    EXPECT_EQ(textsIn(one, {-1e6, -1e6, 1e6, 1e6}),
              std::vector<std::wstring>{std::wstring(DrapedLabels::mostCharacters, L'x')});
}

} // namespace
