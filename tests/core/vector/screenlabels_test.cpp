#include <zmt/core/vector/screenlabels.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include <nbx/gl/state/depthbuffergl.h>
#include <nbx/scene/view/camera.h>
#include <nbx/scene/view/ortho.h>
#include <nbx/scene/view/perspective.h>
#include <nbx/text/fontface.h>
#include <nbx/text/textshape.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/core/vector/vectoroverlay.h>

#include "memoryfeatures.h"
#include "support/recordedreports.h"

namespace {

using namespace ZMT::CORE;
using NBX::SO;
using Point = ScreenLabels::Point;
using Names = std::vector<std::string>;

constexpr unsigned s_screenWidth = 800, s_screenHeight = 600;
const std::vector<ZMT::RASTER::VectorField> s_fields = {{"name", ZMT::RASTER::VectorField::Type::Text}};

/// Names on a level ground of 10 km by 10 km, 100 m high, of which the eye sees a part.
class ScreenLabelsTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(NBX::FontFace::named()) << "fonts-dejavu-core is not installed";
        ground.box = NBX::Bounds(Point(0, 0, 0), Point(10'000, 1000, 10'000));
        ground.heightAt = [this](double, double) {
            ++heightsAsked;
            return height;
        };
        ground.isHidden = [this](const Point & eye, const Point & place) {
            ++rays;
            lastEye = eye;
            lastPlace = place;
            return isHidden && isHidden(place);
        };
        labels.setGround(ground);
    }
    void TearDown() override {
        GeoTransformation::setNBXOrigin({});
        EXPECT_TRUE(reports.empty()) << reports;
    }

    using Source = std::shared_ptr<MemoryFeatures>;
    static Source newSource() { return std::make_shared<MemoryFeatures>(s_fields); }
    ScreenLabels::Layer layerOf(const Source & features) const {
        const auto labelOf = [style = style](const MemoryFeatures::Feature & feature) {
            return ScreenLabels::Label{std::get<std::string>(feature.values.at(0)), style};
        };
        return {features, {0}, labelOf};
    }
    void setLayers(const std::vector<Source> & sources) {
        std::vector<ScreenLabels::Layer> layers;
        for (const Source & features : sources)
            layers.push_back(layerOf(features));
        labels.setLayers(layers);
    }
    /// A metre a pixel, with 5000, 5000 in the middle, and north up.
    static SO<NBX::Camera> fromAbove(double x = 5000, double z = 5000, double metres = 1.0) {
        const double w = s_screenWidth * metres / 2, h = s_screenHeight * metres / 2;
        return new NBX::Camera(new NBX::LookAt({x, 3000, z}, {x, 0, z}, {0, 0, 1}),
                               new NBX::Ortho(-w, w, -h, h, 1.0, 4000.0));
    }
    static SO<NBX::Camera> oblique(const Point & eye, const Point & aim) {
        return new NBX::Camera(new NBX::LookAt(eye, aim), new NBX::Perspective(45.0, 10.0, 20'000.0));
    }
    bool update(const SO<NBX::Camera> & camera,
                const ScreenLabels::Effort & effort = ScreenLabels::Effort::unlimited()) {
        const bool isComplete = labels.update(*camera, s_screenWidth, s_screenHeight, effort);
        expectLawful();
        return isComplete;
    }
    /// In the order of importance.
    Names names() const {
        Names names;
        for (const ScreenLabels::Placed & label : labels.placed())
            names.emplace_back(label.text.begin(), label.text.end());
        return names;
    }
    Names namesFrom(const SO<NBX::Camera> & camera) {
        EXPECT_TRUE(update(camera));
        return names();
    }

    void expectLawful() const {
        const auto & placed = labels.placed();
        std::set<std::pair<unsigned, std::int64_t>> features;
        for (std::size_t i = 0; i < placed.size(); ++i) {
            const auto & box = placed[i].box;
            EXPECT_TRUE(features.emplace(placed[i].layer, placed[i].feature).second);
            EXPECT_TRUE(box.left >= 0 && box.bottom >= 0 && box.right <= s_screenWidth &&
                        box.top <= s_screenHeight);
            for (std::size_t j = 0; j < i; ++j)
                EXPECT_FALSE(box.overlaps(placed[j].box)) << i << " " << j;
        }
        // The scene has them, and nothing else.
        const NBX::SceneThing & node = *labels.node();
        ASSERT_TRUE(node.objects() == 0 || dynamic_cast<NBX::DepthBufferGL *>(node.object(0)));
        std::multiset<std::wstring> texts, drawn;
        for (const auto & label : placed)
            texts.insert(label.text);
        for (unsigned i = 1; i < node.objects(); ++i)
            drawn.insert(dynamic_cast<NBX::TextShape &>(*node.object(i)).getText());
        EXPECT_EQ(texts, drawn);
    }

    RecordedReports reports;
    ScreenLabels labels;
    ScreenLabels::Ground ground;
    VectorStyle::Label style;
    const Source source = newSource();
    double height = 100.0;
    std::function<bool(const Point &)> isHidden;
    Point lastEye, lastPlace;
    unsigned heightsAsked = 0, rays = 0;
};

TEST_F(ScreenLabelsTest, NamesStandAboveTheirPoints) {
    source->addPoint({5010, 0, 4980}, {"Bern"});
    setLayers({source});
    EXPECT_EQ(Names{"Bern"}, namesFrom(fromAbove()));
    const ScreenLabels::Placed & label = labels.placed().front();
    EXPECT_EQ(0U, label.layer);
    EXPECT_EQ(1, label.feature);
    EXPECT_NEAR(410.0, (label.box.left + label.box.right) * 0.5, 1.0);
    EXPECT_NEAR(280.0, label.box.bottom, 1.0);
    EXPECT_NEAR(12.0 * 1.2, label.box.top - label.box.bottom, 3.0);
    EXPECT_EQ(5010.0, label.position.x);
    EXPECT_EQ(4980.0, label.position.z);
    EXPECT_NEAR(103.0, label.position.y, 1e-6) << "three pixels above the ground";
    const auto & shape = dynamic_cast<NBX::TextShape &>(*labels.node()->object(1));
    EXPECT_EQ(label.position, shape.getPosition());
    EXPECT_EQ(NBX::TextShape::SU_Pixels, shape.getSizeUnit());
    EXPECT_EQ(12.0, shape.getSize());
}

TEST_F(ScreenLabelsTest, NamesStandInTheMiddleOfLinesAndAreas) {
    source->addLine({{4900, 0, 5100}, {5100, 0, 5100}}, {"road"});
    source->addArea({MemoryFeatures::rectangle(4900, 4800, 5100, 5000)}, {"lake"});
    setLayers({source});
    EXPECT_EQ((Names{"road", "lake"}), namesFrom(fromAbove()));
    for (const auto & label : labels.placed()) {
        EXPECT_NEAR(400.0, (label.box.left + label.box.right) * 0.5, 2.0);
        EXPECT_NEAR(label.text == L"road" ? 400.0 : 200.0, (label.box.bottom + label.box.top) * 0.5, 3.0);
    }
}

TEST_F(ScreenLabelsTest, StylesAreHeeded) {
    style.size.value = 30.0;
    style.color = NBX::Color(1.0, 0.5, 0.25, 0.5);
    style.haloWidth = 3.0;
    style.haloColor = NBX::Color::blue;
    source->addPoint({5000, 0, 5000}, {"Bern"});
    setLayers({source});
    update(fromAbove());
    ASSERT_EQ(1U, labels.placed().size());
    const auto * shape = dynamic_cast<NBX::TextShape *>(labels.node()->object(1));
    EXPECT_EQ(30.0, shape->getSize());
    EXPECT_EQ(style.color, shape->getColor());
    EXPECT_EQ(3.0, shape->getHaloWidth());
    EXPECT_EQ(NBX::Color::blue, shape->getHaloColor());
    const auto wide = labels.placed().front().box;
    style.haloWidth = 0.0;
    setLayers({source});
    update(fromAbove());
    const auto narrow = labels.placed().front().box;
    EXPECT_NEAR(6.0, (wide.right - wide.left) - (narrow.right - narrow.left), 1e-9);
    EXPECT_NEAR(6.0, (wide.top - wide.bottom) - (narrow.top - narrow.bottom), 1e-9);
    labels.setOpacity(0, 0.5);
    update(fromAbove());
    shape = dynamic_cast<NBX::TextShape *>(labels.node()->object(1));
    EXPECT_EQ(0.25F, shape->getColor()[3]);
    EXPECT_EQ(0.5F, shape->getHaloColor()[3]);
}

TEST_F(ScreenLabelsTest, WithoutGroundThereAreNone) {
    source->addPoint({5000, 0, 5000}, {"Bern"});
    source->addPoint({5200, 0, 5000}, {"Thun"});
    setLayers({source});
    ground.heightAt = [](double x, double) { return x < 5100 ? 100.0 : -HUGE_VAL; };
    labels.setGround(ground);
    EXPECT_EQ(Names{"Bern"}, namesFrom(fromAbove()));
    ground.heightAt = [](double, double) { return NAN; };
    labels.setGround(ground);
    EXPECT_EQ(Names{}, namesFrom(fromAbove()));
    ground.heightAt = nullptr;
    labels.setGround(ground);
    EXPECT_EQ(Names{}, namesFrom(fromAbove()));
    labels.setGround({});
    EXPECT_EQ(Names{}, namesFrom(fromAbove()));
    ScreenLabels none;
    EXPECT_TRUE(none.update(*fromAbove(), s_screenWidth, s_screenHeight));
    EXPECT_TRUE(none.update(*fromAbove(), 0, 0));
    EXPECT_EQ(nullptr, none.labelAt(1, 1));
}

TEST_F(ScreenLabelsTest, WhatTheEyeDoesNotSeeHasNone) {
    source->addPoint({5000, 0, 5000}, {"ahead"});
    source->addPoint({5000, 0, 1000}, {"behind"});
    source->addPoint({5000, 0, 9990}, {"far"});
    source->addPoint({9000, 0, 4000}, {"aside"});
    setLayers({source});
    const SO<NBX::Camera> camera(new NBX::Camera(new NBX::LookAt({5000, 600, 3000}, {5000, 100, 5000}),
                                                 new NBX::Perspective(45.0, 10.0, 5000.0)));
    EXPECT_EQ(Names{"ahead"}, namesFrom(camera));
    EXPECT_NEAR(0.0, (Point(5000, 600, 3000) - lastEye).length(), 1e-6);
    camera->setProjection(new NBX::Perspective(45.0, 10.0, 20'000.0));
    EXPECT_EQ((Names{"ahead", "far"}), namesFrom(camera));
    camera->setProjection(new NBX::Perspective(45.0, 4000.0, 20'000.0));
    EXPECT_EQ(Names{"far"}, namesFrom(camera));
}

TEST_F(ScreenLabelsTest, RaysOfParallelViewsAreParallel) {
    source->addPoint({5100, 0, 5000}, {"Bern"});
    setLayers({source});
    update(fromAbove());
    EXPECT_NEAR(5100.0, lastEye.x, 1e-6);
    EXPECT_NEAR(5000.0, lastEye.z, 1e-6);
    EXPECT_NEAR(2999.0, lastEye.y, 1e-6);
    EXPECT_NEAR(103.0, lastPlace.y, 1e-6);
}

TEST_F(ScreenLabelsTest, WhatIsHiddenTakesNoRoom) {
    source->addPoint({5000, 0, 5000}, {"hidden"});
    source->addPoint({5001, 0, 5000}, {"seen"});
    setLayers({source});
    EXPECT_EQ(Names{"hidden"}, namesFrom(fromAbove()));
    isHidden = [](const Point & place) { return place.x == 5000.0; };
    EXPECT_EQ(Names{"hidden"}, namesFrom(fromAbove())) << "the same view is not looked at again";
    labels.groundChanged();
    EXPECT_EQ(Names{"seen"}, namesFrom(fromAbove()));
    ground.isHidden = nullptr;
    labels.setGround(ground);
    EXPECT_EQ(Names{"seen"}, namesFrom(fromAbove())) << "keeps its place";
}

TEST_F(ScreenLabelsTest, TheLargestComesFirst) {
    source->addLine({{4990, 0, 5000}, {5010, 0, 5000}}, {"short"});
    source->addLine({{4900, 0, 5000}, {5100, 0, 5000}}, {"long"});
    source->addPoint({5000, 0, 5000}, {"point"});
    const Source other = newSource();
    other->addPoint({5000, 0, 5000}, {"important"});
    setLayers({source, other});
    EXPECT_EQ(Names{"long"}, namesFrom(fromAbove()));
    setLayers({other, source});
    EXPECT_EQ(Names{"important"}, namesFrom(fromAbove())) << "the first layer comes before all";
    labels.setShown(0, false);
    EXPECT_EQ(Names{"long"}, namesFrom(fromAbove()));
    labels.setShown(1, false);
    EXPECT_EQ(Names{}, namesFrom(fromAbove()));
    labels.setShown(0, true);
    EXPECT_EQ(Names{"important"}, namesFrom(fromAbove()));
}

TEST_F(ScreenLabelsTest, OfEqualOnesTheFirstComesFirst) {
    for (const char * name : {"a", "b", "c"})
        source->addPoint({5000, 0, 5000}, {name});
    std::reverse(source->features.begin(), source->features.end());
    setLayers({source});
    EXPECT_EQ(Names{"a"}, namesFrom(fromAbove())) << "by its number, not by the order of reading";
}

TEST_F(ScreenLabelsTest, WhatShowsKeepsItsPlace) {
    source->addLine({{5000, 0, 5000}, {5060, 0, 5000}}, {"first"});
    source->addLine({{4930, 0, 5005}, {5130, 0, 5005}}, {"longer"});
    source->addLine({{5000, 0, 4900}, {5060, 0, 4900}}, {"second"});
    source->addLine({{4880, 0, 4905}, {5180, 0, 4905}}, {"muchlonger"});
    setLayers({source});
    // The longer ones come from behind a ridge.
    isHidden = [](const Point & place) { return place.z == 5005 || place.z == 4905; };
    EXPECT_EQ((Names{"first", "second"}), namesFrom(fromAbove()));
    isHidden = nullptr;
    labels.groundChanged();
    EXPECT_EQ((Names{"muchlonger", "first"}), namesFrom(fromAbove())) << "but not against all";
    setLayers({source});
    EXPECT_EQ((Names{"muchlonger", "longer"}), namesFrom(fromAbove())) << "without a past";
}

TEST_F(ScreenLabelsTest, NamesHaveASmallestScale) {
    style.smallestScale = 10'000.0; // 2.8 m a pixel
    source->addPoint({5000, 0, 5000}, {"Bern"});
    setLayers({source});
    EXPECT_EQ(Names{}, namesFrom(fromAbove(5000, 5000, 2.81)));
    EXPECT_EQ(Names{"Bern"}, namesFrom(fromAbove(5000, 5000, 2.79)));
    EXPECT_EQ(Names{"Bern"}, namesFrom(fromAbove(5000, 5000, 2.9))) << "no flicker at the limit";
    EXPECT_EQ(Names{}, namesFrom(fromAbove(5000, 5000, 2.95)));
    EXPECT_EQ(Names{}, namesFrom(fromAbove(5000, 5000, 2.9)));
    // 600 pixels in 45 degrees: 1 m a pixel at 724 m.
    const double distance = 2.8 * 300.0 / std::tan(3.14159265358979 / 8.0);
    const auto away = [&](double part) {
        return oblique({5000, 100, 5000 - distance * part}, {5000, 100, 5000});
    };
    EXPECT_EQ(Names{}, namesFrom(away(1.01)));
    EXPECT_EQ(Names{"Bern"}, namesFrom(away(0.99)));
}

TEST_F(ScreenLabelsTest, NamesThatDoNotFitIntoThePictureWait) {
    source->addPoint({4605, 0, 5000}, {"Wallisellen"});
    setLayers({source});
    EXPECT_EQ(Names{}, namesFrom(fromAbove()));
    EXPECT_EQ(Names{"Wallisellen"}, namesFrom(fromAbove(4950)));
}

TEST_F(ScreenLabelsTest, EqualNamesOfPartsKeepApart) {
    const auto addRoad = [this](double x, double z, const char * name) {
        source->addLine({{x - 20, 0, z}, {x + 20, 0, z}}, {name});
    };
    addRoad(4800, 5000, "A1");
    addRoad(4900, 5000, "A1");
    addRoad(5010, 5000, "A1");
    addRoad(4900, 5100, "A2");
    setLayers({source});
    EXPECT_EQ((Names{"A1", "A1", "A2"}), namesFrom(fromAbove()));
    EXPECT_EQ(3, labels.placed()[1].feature);
    // Villages may have one name.
    const Source villages = newSource();
    for (const double x : {4800, 4900, 5010})
        villages->addPoint({x, 0, 5000}, {"Buchs"});
    setLayers({villages});
    EXPECT_EQ((Names{"Buchs", "Buchs", "Buchs"}), namesFrom(fromAbove()));
}

TEST_F(ScreenLabelsTest, LabelsAreFoundInThePicture) {
    source->addPoint({5000, 0, 5000}, {"Bern"});
    source->addPoint({5200, 0, 5000}, {"Thun"});
    setLayers({source});
    update(fromAbove());
    const auto & box = labels.placed()[1].box;
    const ScreenLabels::Placed * found = labels.labelAt(box.left + 1, box.top - 1);
    ASSERT_TRUE(found);
    EXPECT_EQ(2, found->feature);
    EXPECT_EQ(nullptr, labels.labelAt(box.left - 1, box.top - 1));
    EXPECT_EQ(nullptr, labels.labelAt(box.left + 1, box.top + 1));
}

TEST_F(ScreenLabelsTest, ChangedGroundIsAskedAgain) {
    source->addPoint({5000, 0, 5000}, {"Bern"});
    setLayers({source});
    update(fromAbove());
    const unsigned asked = heightsAsked;
    update(fromAbove(5010));
    EXPECT_EQ(asked, heightsAsked);
    height = 250.0;
    labels.groundChanged();
    update(fromAbove(5010));
    EXPECT_EQ(asked + 1, heightsAsked);
    EXPECT_NEAR(253.0, labels.placed().front().position.y, 1e-6);
    // Without time for rays the former ones hold for ground that has changed, not for another one.
    ScreenLabels::Effort effort;
    effort.rays = 0;
    height = 240.0;
    labels.groundChanged();
    EXPECT_FALSE(update(fromAbove(5010), effort));
    ASSERT_EQ(Names{"Bern"}, names());
    EXPECT_NEAR(243.0, labels.placed().front().position.y, 1e-6);
    labels.setGround(ground);
    EXPECT_FALSE(update(fromAbove(5010), effort));
    EXPECT_EQ(Names{}, names());
}

TEST_F(ScreenLabelsTest, PlacesAreThoseOfTheScene) {
    GeoTransformation::setNBXOrigin({400'000, 0, 5'600'000});
    source->addPoint({405'010, 0, 5'605'000}, {"Bern"});
    setLayers({source});
    EXPECT_EQ(Names{"Bern"}, namesFrom(fromAbove()));
    EXPECT_EQ(5010.0, labels.placed().front().position.x);
    GeoTransformation::setNBXOrigin({400'100, 0, 5'600'000});
    labels.setGround(ground);
    ScreenLabels::Effort none;
    none.heights = 0;
    EXPECT_FALSE(update(fromAbove(), none)) << "nothing at the former place meanwhile";
    EXPECT_EQ(Names{}, names());
    EXPECT_EQ(Names{"Bern"}, namesFrom(fromAbove()));
    EXPECT_EQ(4910.0, labels.placed().front().position.x);
}

TEST_F(ScreenLabelsTest, AViewAtRestCostsNothing) {
    for (int i = 0; i < 400; ++i)
        source->addPoint({4700.0 + i % 20 * 30, 0, 4750.0 + i / 20 * 25}, {"p" + std::to_string(i)});
    setLayers({source});
    update(fromAbove());
    const Names before = names();
    const auto number = labels.node()->lastTransactionNo();
    std::vector<std::uint64_t> shapes;
    for (unsigned i = 1; i < labels.node()->objects(); ++i)
        shapes.push_back(labels.node()->object(i)->lastTransactionNo());
    const unsigned sent = rays, asked = heightsAsked;
    EXPECT_GT(before.size(), 50U);
    EXPECT_EQ(before, namesFrom(fromAbove()));
    EXPECT_EQ(number, labels.node()->lastTransactionNo());
    for (unsigned i = 1; i < labels.node()->objects(); ++i)
        EXPECT_EQ(shapes[i - 1], labels.node()->object(i)->lastTransactionNo());
    EXPECT_EQ(sent, rays);
    EXPECT_EQ(asked, heightsAsked);
    EXPECT_EQ(1U, source->queries.size());
}

TEST_F(ScreenLabelsTest, EffortIsHeeded) {
    for (int i = 0; i < 60; ++i)
        source->addPoint({4650.0 + i % 10 * 70, 0, 4750.0 + i / 10 * 80}, {"p" + std::to_string(i)});
    setLayers({source});
    ScreenLabels::Effort effort{0, 7, 9, 5};
    EXPECT_FALSE(update(fromAbove(), effort));
    EXPECT_TRUE(source->queries.empty());
    effort.windows = 1;
    bool isComplete = false;
    for (int turn = 0; !isComplete; ++turn) {
        ASSERT_LT(turn, 30);
        const unsigned sent = rays, asked = heightsAsked;
        isComplete = update(fromAbove(), effort);
        EXPECT_LE(rays, sent + 5);
        EXPECT_LE(heightsAsked, asked + 9);
    }
    EXPECT_EQ(60U, labels.placed().size());
    // While the view moves, all rays are sent again in turns.
    std::map<double, int> last;
    ground.isHidden = [&](const Point &, const Point & place) {
        ++last[place.x * 1e5 + place.z];
        return false;
    };
    labels.setGround(ground);
    while (!update(fromAbove(), effort)) {
    }
    last.clear();
    for (int step = 1; step <= 60; ++step)
        update(fromAbove(5000 + step * 0.01), effort);
    EXPECT_EQ(60U, last.size());
    for (const auto & [place, count] : last)
        EXPECT_NEAR(5, count, 1) << place;
}

TEST_F(ScreenLabelsTest, GroundThatChangesAllTheTimeIsAskedInTurns) {
    for (int i = 0; i < 60; ++i)
        source->addPoint({4650.0 + i % 10 * 70, 0, 4750.0 + i / 10 * 80}, {"p" + std::to_string(i)});
    setLayers({source});
    update(fromAbove());
    std::set<std::pair<double, double>> asked;
    ground.heightAt = [&](double x, double z) {
        asked.emplace(x, z);
        return 100.0;
    };
    labels.setGround(ground);
    ScreenLabels::Effort effort;
    effort.heights = 10;
    for (int frame = 0; frame < 6; ++frame) {
        labels.groundChanged();
        EXPECT_FALSE(update(fromAbove(), effort));
    }
    EXPECT_EQ(60U, asked.size());
}

TEST_F(ScreenLabelsTest, MissingGlyphsAreToldOfOnce) {
    source->addPoint({5000, 0, 5000}, {"\xf3\xb0\x80\x80"});
    source->addPoint({5200, 0, 5000}, {"\xf3\xb0\x80\x80\xf3\xb0\x80\x81"});
    setLayers({source});
    update(fromAbove());
    EXPECT_EQ(3U, labels.counts().missingGlyphs);
    ASSERT_EQ(1U, reports.size());
    EXPECT_EQ(2, reports[0].level);
    reports.clear();
}

TEST_F(ScreenLabelsTest, SourcesThatFailLeaveTheOthersAlone) {
    source->addPoint({5000, 0, 5000}, {"Bern"});
    const Source broken = newSource();
    broken->addPoint({5000, 0, 5000}, {"none"});
    broken->fails = true;
    setLayers({broken, source});
    EXPECT_EQ(Names{"Bern"}, namesFrom(fromAbove()));
    EXPECT_EQ(1U, labels.counts().unread);
    EXPECT_EQ(1U, reports.size());
    reports.clear();
    labels.setLayers({ScreenLabels::Layer(), layerOf(source)});
    EXPECT_EQ(1U, reports.size());
    EXPECT_EQ(Names{"Bern"}, namesFrom(fromAbove()));
    labels.setShown(2, false);
    labels.setOpacity(2, 0.5);
    EXPECT_EQ(3U, reports.size());
    reports.clear();
}

TEST_F(ScreenLabelsTest, OverlaysSayWhatIsRead) {
    source->addPoint({5000, 0, 5000}, {"Bern"});
    source->addLine({{5000, 0, 5100}, {5100, 0, 5100}}, {"Aare"});
    const SO<VectorOverlay> overlay(
        new VectorOverlay(source, VectorStyleSheet::parse("label=name, label-size=20, halo=2")));
    labels.setLayers({ScreenLabels::Layer::of(overlay)});
    EXPECT_EQ((Names{"Aare", "Bern"}), namesFrom(fromAbove()));
    EXPECT_EQ(20.0, dynamic_cast<NBX::TextShape &>(*labels.node()->object(1)).getSize());
    overlay->setStyleSheet(VectorStyleSheet::parse("label=name, label-size=20m"));
    labels.setLayers({ScreenLabels::Layer::of(overlay)});
    EXPECT_EQ(Names{}, namesFrom(fromAbove())) << "those lie on the ground";
    overlay->setStyleSheet(VectorStyleSheet());
    overlay->setShown(false);
    labels.setLayers({ScreenLabels::Layer::of(overlay)});
    EXPECT_EQ(Names{}, namesFrom(fromAbove()));
}

TEST_F(ScreenLabelsTest, NoTwoOverlapInAThousandScenes) {
    std::mt19937 random(17);
    std::uniform_real_distribution<double> part(0.0, 1.0);
    std::size_t shown = 0;
    for (int round = 0; round < 1000; ++round) {
        const Source features = newSource();
        const unsigned count = 1 + random() % 60;
        const double spread = std::pow(10.0, part(random) * 3.0);
        for (unsigned i = 0; i < count; ++i) {
            const double x = 5000 + (part(random) - 0.5) * spread, z = 5000 + (part(random) - 0.5) * spread;
            const std::string name(1 + random() % 12, char('a' + i % 26));
            if (random() % 2 == 0)
                features->addPoint({x, 0, z}, {name});
            else
                features->addLine({{x, 0, z}, {x + part(random) * 300, 0, z + 20}}, {name});
        }
        style.size.value = 6.0 + part(random) * 20.0;
        style.haloWidth = round % 3;
        height = part(random) * 900.0;
        setLayers({features});
        labels.groundChanged();
        const Point eye(5000 + (part(random) - 0.5) * 2000, 950 + part(random) * 2000, 3000);
        const auto camera =
            round % 2 == 0 ? oblique(eye, {5000, 500, 5000}) : fromAbove(5000, 5000, 0.5 + part(random));
        const Names first = namesFrom(camera);
        EXPECT_EQ(first.size(), namesFrom(camera).size()) << round;
        shown += first.size();
        if (HasFailure()) FAIL() << round;
    }
    EXPECT_GT(shown, 3000U);
}

/// How often labels come and go while the eye moves on slowly.
TEST_F(ScreenLabelsTest, SlowFlightsDoNotMakeLabelsFlicker) {
    std::mt19937 random(23);
    std::uniform_real_distribution<double> part(0.0, 1.0);
    for (unsigned i = 0; i < 600; ++i) {
        const double x = part(random) * 10'000, z = part(random) * 10'000;
        if (i % 2 == 0)
            source->addPoint({x, 0, z}, {"Place " + std::to_string(i)});
        else
            source->addLine({{x, 0, z}, {x + part(random) * 500, 0, z}}, {"Road " + std::to_string(i)});
    }
    // A ridge from west to east, as rays see it.
    height = 100.0;
    ground.isHidden = [](const Point & eye, const Point & place) {
        const double part = (6000.0 - eye.z) / (place.z - eye.z);
        return part > 0.0 && part < 1.0 &&
               eye.y + (place.y - eye.y) * part < 220.0 + 30.0 * std::sin(place.x * 0.01);
    };
    labels.setGround(ground);
    setLayers({source});
    std::map<std::int64_t, std::vector<int>> changes; // numbers of the pictures
    std::set<std::int64_t> before;
    std::size_t most = 0;
    for (int frame = 0; frame < 200; ++frame) {
        update(
            oblique({5000.0 + frame * 2.0, 700, frame * 4.0}, {5000.0 + frame, 100, 5000.0 + frame * 4.0}));
        std::set<std::int64_t> now;
        for (const auto & label : labels.placed())
            now.insert(label.feature);
        most = std::max(most, now.size());
        std::vector<std::int64_t> changed;
        std::set_symmetric_difference(before.begin(), before.end(), now.begin(), now.end(),
                                      std::back_inserter(changed));
        for (const std::int64_t feature : changed)
            if (frame > 0) changes[feature].push_back(frame);
        if (frame > 0) {
            EXPECT_LT(changed.size(), 8U) << frame;
        }
        before = now;
    }
    EXPECT_GT(most, 30U);
    EXPECT_GT(changes.size(), 5U);
    unsigned flickering = 0;
    for (const auto & [feature, frames] : changes)
        for (std::size_t i = 1; i < frames.size(); ++i)
            flickering += frames[i] - frames[i - 1] < 5 ? 1 : 0;
    EXPECT_LE(flickering, 2U) << "labels that come or go again within five pictures";
}

} // namespace
