#include "core/vector/labelwindows.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "memoryfeatures.h"
#include "support/recordedreports.h"

namespace {

using namespace ZMT::CORE;
using ZMT::RASTER::GeoExtent;
using Position = MemoryFeatures::Position;

constexpr auto s_all = [](const GeoExtent &) { return 1.0; };

class LabelWindowsTest : public testing::Test {
protected:
    /// Named by their field 1.
    ScreenLabels::Layer layer() {
        ScreenLabels::Layer layer;
        layer.source = source;
        layer.fields = {1};
        layer.labelOf =
            [this](const MemoryFeatures::Feature & feature) -> std::optional<ScreenLabels::Label> {
            ++asked;
            const auto * name = std::get_if<std::string>(&feature.values.at(0));
            if (!name) return {};
            return ScreenLabels::Label{*name, style};
        };
        return layer;
    }
    void addPoint(double x, double z, const std::string & name) {
        source->addPoint({x, 0, z}, {std::monostate(), name});
    }
    /// On a square of 1000 by 1000.
    void addPoints(unsigned count) {
        std::mt19937 random(5);
        std::uniform_real_distribution<double> place(0.0, 1000.0);
        for (unsigned i = 0; i < count; ++i)
            addPoint(place(random), place(random), std::to_string(i));
    }
    static std::set<std::int64_t> idsOf(const LabelWindows::Collection & collection) {
        std::set<std::int64_t> ids;
        for (const auto & candidate : collection.candidates)
            EXPECT_TRUE(ids.insert(candidate->feature).second) << "twice";
        return ids;
    }

    const std::shared_ptr<MemoryFeatures> source =
        std::make_shared<MemoryFeatures>(std::vector<ZMT::RASTER::VectorField>{
            {"no", ZMT::RASTER::VectorField::Type::Integer}, {"name", ZMT::RASTER::VectorField::Type::Text}});
    VectorStyle::Label style;
    unsigned asked = 0, windows = 1000;
};

TEST_F(LabelWindowsTest, SmallSourcesAreReadOnceAndWhole) {
    addPoints(100);
    LabelWindows labels(3, layer());
    EXPECT_EQ(100U, idsOf(labels.collect(s_all, windows, 1)).size());
    const auto state = labels.state();
    const LabelWindows::Collection again = labels.collect(s_all, windows, 2);
    EXPECT_EQ(100U, idsOf(again).size());
    EXPECT_TRUE(again.isComplete);
    EXPECT_EQ(3U, again.candidates.front()->layer);
    EXPECT_EQ(1U, source->queries.size());
    EXPECT_EQ(std::vector<unsigned>{1}, source->queries.front().fields);
    EXPECT_EQ(0.0, source->queries.front().tolerance);
    EXPECT_EQ(state, labels.state());
    EXPECT_EQ(999U, windows);
}

TEST_F(LabelWindowsTest, FeaturesWithoutNamesAreLeftOut) {
    addPoint(1, 1, "");
    addPoint(1, 1, " \t\n");
    source->addPoint({1, 0, 1}, {std::monostate(), std::monostate()});
    source->add({std::monostate(), "nowhere"});
    addPoint(1, 1, "here");
    LabelWindows labels(0, layer());
    const auto collection = labels.collect(s_all, windows, 1);
    ASSERT_EQ(1U, collection.candidates.size());
    EXPECT_EQ(L"here", collection.candidates.front()->text);
    for (const VectorSize & size : {VectorSize{12.0, VectorSize::Unit::Metres}, VectorSize{0.0},
                                    VectorSize{-1.0}, VectorSize{HUGE_VAL}, VectorSize{NAN}}) {
        style.size = size;
        LabelWindows none(0, layer());
        EXPECT_TRUE(none.collect(s_all, windows, 1).candidates.empty()) << size.value;
    }
}

TEST_F(LabelWindowsTest, LongNamesAreCut) {
    addPoint(1, 1, std::string(ScreenLabels::maxCharacters, 'x'));
    addPoint(1, 1, std::string(ScreenLabels::maxCharacters + 1, 'x'));
    LabelWindows labels(0, layer());
    const auto collection = labels.collect(s_all, windows, 1);
    ASSERT_EQ(2U, collection.candidates.size());
    EXPECT_EQ(std::wstring(ScreenLabels::maxCharacters, L'x'), collection.candidates[0]->text);
    EXPECT_EQ(std::wstring(ScreenLabels::maxCharacters - 1, L'x') + L'\u2026',
              collection.candidates[1]->text);
}

TEST_F(LabelWindowsTest, NothingIsReadOutOfView) {
    addPoints(100);
    LabelWindows labels(0, layer());
    const auto collection = labels.collect([](const GeoExtent &) { return 0.0; }, windows, 1);
    EXPECT_TRUE(collection.candidates.empty());
    EXPECT_TRUE(collection.isComplete);
    EXPECT_TRUE(source->queries.empty());
}

TEST_F(LabelWindowsTest, LayersThatAreOffAreNotRead) {
    addPoints(10);
    LabelWindows labels(0, layer());
    labels.layer().isShown = false;
    EXPECT_TRUE(labels.collect(s_all, windows, 1).candidates.empty());
    EXPECT_TRUE(source->queries.empty());
    labels.layer().isShown = true;
    EXPECT_EQ(10U, labels.collect(s_all, windows, 2).candidates.size());
}

TEST_F(LabelWindowsTest, OfCrowdedWindowsTheLargestAreKnown) {
    for (int i = 0; i < 3000; ++i) {
        auto & feature = source->addLine({{0, 0, double(i)}, {1.0 + (i * 7919) % 3000, 0, double(i)}});
        feature.values = {std::monostate(), "road"};
    }
    LabelWindows labels(0, layer());
    const auto far = labels.collect(s_all, windows, 1);
    ASSERT_EQ(LabelWindows::mostOfDivided, far.candidates.size());
    for (const auto & candidate : far.candidates)
        EXPECT_GT(candidate->extent, 2500.0);
    EXPECT_EQ(1U, source->queries.size());
    // From near all are.
    const auto near = labels.collect([](const GeoExtent &) { return 1e6; }, windows, 2);
    EXPECT_EQ(3000U, idsOf(near).size());
    EXPECT_NE(source->queries.size(), 1U);
}

TEST_F(LabelWindowsTest, OnlyWindowsInViewAreDivided) {
    addPoints(30'000);
    LabelWindows labels(0, layer());
    const GeoExtent view{100, 100, 120, 130};
    const auto pixels = [&](const GeoExtent & box) {
        const bool isInView =
            box.minX <= view.maxX && view.minX <= box.maxX && box.minY <= view.maxY && view.minY <= box.maxY;
        return isInView ? (box.maxX - box.minX) / 20.0 * 1000.0 : 0.0;
    };
    const auto ids = idsOf(labels.collect(pixels, windows, 1));
    for (const auto & feature : source->features) {
        const Position & p = feature.points.front();
        if (view.minX <= p.x && p.x <= view.maxX && view.minY <= p.z && p.z <= view.maxY) {
            EXPECT_TRUE(ids.contains(feature.id));
        }
    }
    EXPECT_LT(source->queries.size(), 20U);
    EXPECT_LT(asked, 4 * LabelWindows::mostFeatures);
}

TEST_F(LabelWindowsTest, ReadingMayTakeTurns) {
    addPoints(10'000);
    LabelWindows labels(0, layer());
    const auto near = [](const GeoExtent &) { return 1e6; };
    std::size_t before = 0;
    for (std::uint64_t turn = 1;; ++turn) {
        ASSERT_LT(turn, 100U);
        unsigned one = 1;
        const auto collection = labels.collect(near, one, turn);
        EXPECT_EQ(turn, source->queries.size());
        EXPECT_GE(collection.candidates.size(), before) << "what is known stays";
        before = collection.candidates.size();
        if (collection.isComplete) break;
        EXPECT_EQ(0U, one);
    }
    EXPECT_EQ(10'000U, before);
    unsigned none = 0;
    EXPECT_TRUE(labels.collect(near, none, 1000).isComplete);
}

/// Cuts lines at the border of the window, as sources may.
struct Cutting : MemoryFeatures {
    using MemoryFeatures::MemoryFeatures;
    void read(const Query & query, const std::function<bool(const Feature &)> & visit) const override {
        MemoryFeatures::read(query, [&](Feature feature) {
            for (auto & line : feature.lines)
                for (Position & p : line)
                    p.x = std::clamp(p.x, query.box.minX, query.box.maxX);
            return visit(feature);
        });
    }
};

TEST_F(LabelWindowsTest, AFeatureIsKnownByItsLargestPart) {
    const auto cutting = std::make_shared<Cutting>(source->fields());
    for (int i = 0; i < 2100; ++i)
        cutting->addPoint({i % 50 * 20.0, 0, i / 50 * 20.0}, {std::monostate(), "p"});
    auto & road = cutting->addLine({{0, 0, 300}, {900, 0, 300}});
    road.values = {std::monostate(), "road"};
    auto cut = layer();
    cut.source = cutting;
    LabelWindows labels(0, cut);
    for (const double pixels : {1.0, 1e6}) {
        const auto collection =
            labels.collect([&](const GeoExtent &) { return pixels; }, windows, std::uint64_t(pixels));
        idsOf(collection);
        const auto found = std::find_if(collection.candidates.begin(), collection.candidates.end(),
                                        [&](const auto & c) { return c->feature == road.id; });
        ASSERT_NE(found, collection.candidates.end());
        EXPECT_EQ(900.0, (*found)->extent);
        EXPECT_EQ(450.0, (*found)->map.x);
    }
}

TEST_F(LabelWindowsTest, OfPartsThatAreReadOneByOneTheLargestIsKnown) {
    const auto cutting = std::make_shared<Cutting>(source->fields());
    for (std::size_t i = 0; i < LabelWindows::mostFeatures; ++i)
        cutting->addPoint({double(i % 200) * 5.0, 0, double(i / 200) * 10.0}, {std::monostate(), "p"});
    auto & road = cutting->addLine({{400, 0, 300}, {900, 0, 300}}, {std::monostate(), "road"});
    auto cut = layer();
    cut.source = cutting;
    LabelWindows labels(0, cut);
    labels.collect(s_all, windows, 1);
    EXPECT_EQ(LabelWindows::mostFeatures, asked) << "a window is read no further";
    windows = 4;
    const auto near = labels.collect([](const GeoExtent &) { return 1e6; }, windows, 2);
    const auto found = std::find_if(near.candidates.begin(), near.candidates.end(),
                                    [&](const auto & c) { return c->feature == road.id; });
    ASSERT_NE(found, near.candidates.end());
    EXPECT_NEAR(402.5, (*found)->extent, 1e-9) << "from the middle, 497.5, on";
}

TEST_F(LabelWindowsTest, SourcesThatFailAreToldOfOnce) {
    addPoints(10);
    source->fails = true;
    LabelWindows labels(0, layer());
    RecordedReports reports;
    EXPECT_TRUE(labels.collect(s_all, windows, 1).candidates.empty());
    EXPECT_TRUE(labels.collect(s_all, windows, 2).isComplete);
    EXPECT_EQ(1U, labels.unread());
    ASSERT_EQ(1U, reports.size()) << reports;
    EXPECT_NE(std::wstring::npos, reports[0].message.find(L"cannot be read"));
}

TEST_F(LabelWindowsTest, WindowsThatFailLaterAreToldOfOnceToo) {
    addPoints(3000);
    LabelWindows labels(0, layer());
    const auto known = labels.collect(s_all, windows, 1).candidates.size();
    source->fails = true;
    RecordedReports reports;
    EXPECT_EQ(known, labels.collect([](const GeoExtent &) { return 1e6; }, windows, 2).candidates.size());
    EXPECT_EQ(4U, labels.unread());
    EXPECT_EQ(1U, reports.size()) << reports;
}

TEST_F(LabelWindowsTest, EmptySourcesAndMissingOnesHaveNoLabels) {
    LabelWindows empty(0, layer());
    EXPECT_TRUE(empty.collect(s_all, windows, 1).isComplete);
    RecordedReports reports;
    LabelWindows missing(0, ScreenLabels::Layer());
    EXPECT_TRUE(missing.collect(s_all, windows, 1).candidates.empty());
    EXPECT_EQ(1U, reports.size());
}

TEST_F(LabelWindowsTest, FeaturesAtOnePlaceEndSomewhere) {
    for (int i = 0; i < 2500; ++i)
        addPoint(7, 7, std::to_string(i));
    const auto near = [](const GeoExtent &) { return 1e6; };
    LabelWindows alone(0, layer());
    EXPECT_EQ(LabelWindows::mostCandidates, alone.collect(near, windows, 1).candidates.size());
    EXPECT_EQ(1U, source->queries.size());
    addPoint(20, 20, "other");
    LabelWindows labels(0, layer());
    EXPECT_LE(labels.collect(near, windows, 2).candidates.size(), 2501U);
    EXPECT_LT(source->queries.size(), 110U);
}

TEST_F(LabelWindowsTest, WindowsOutOfViewAreForgotten) {
    addPoints(36'000);
    LabelWindows labels(0, layer());
    std::size_t most = 0;
    std::uint64_t turn = 0;
    const auto look = [&](double x, double z) {
        const auto pixels = [&](const GeoExtent & box) {
            const bool isInView =
                box.minX <= x + 320 && x <= box.maxX && box.minY <= z + 320 && z <= box.maxY;
            return isInView ? (box.maxX - box.minX) * 2.0 : 0.0;
        };
        const auto ids = idsOf(labels.collect(pixels, windows, ++turn));
        most = std::max(most, labels.size());
        return ids;
    };
    const auto first = look(0, 0);
    for (double x = 0.0; x < 900.0; x += 333.0)
        for (double z = 0.0; z < 900.0; z += 333.0)
            look(x, z);
    EXPECT_GT(most, 10'000U);
    EXPECT_LT(most, LabelWindows::mostKept + 1);
    EXPECT_EQ(first, look(0, 0)) << "and read again";
}

TEST(LabelCandidateTest, ImportanceIsAnOrder) {
    std::vector<LabelCandidate> all;
    for (const unsigned layer : {0U, 1U})
        for (const double extent : {100.0, 30.0, 24.0, 0.0})
            for (const bool isShown : {true, false})
                for (const std::int64_t id : {1, 2}) {
                    LabelCandidate candidate;
                    candidate.layer = layer;
                    candidate.extent = extent;
                    candidate.isShown = isShown;
                    candidate.feature = id;
                    all.push_back(candidate);
                }
    const auto at = [&](double extent, bool isShown, std::int64_t id, unsigned layer = 0) {
        LabelCandidate c;
        c.layer = layer;
        c.extent = extent;
        c.isShown = isShown;
        c.feature = id;
        return c;
    };
    const std::pair<LabelCandidate, LabelCandidate> rows[] = {
        {at(0, false, 9, 0), at(100, true, 1, 1)}, {at(100, false, 9), at(24, true, 1)},
        {at(30, true, 9), at(100, false, 1)},      {at(25, true, 9), at(100, false, 1)},
        {at(0, true, 9), at(0, false, 1)},         {at(5, false, 1), at(5, false, 2)},
        {at(5, true, 1), at(5, true, 2)},          {at(1e-3, false, 9), at(0, true, 1)},
    };
    for (const auto & [first, second] : rows) {
        EXPECT_TRUE(LabelCandidate::isBefore(first, second));
        EXPECT_FALSE(LabelCandidate::isBefore(second, first));
    }
    for (const auto & a : all)
        for (const auto & b : all)
            EXPECT_EQ(&a != &b, LabelCandidate::isBefore(a, b) != LabelCandidate::isBefore(b, a));
}

} // namespace
