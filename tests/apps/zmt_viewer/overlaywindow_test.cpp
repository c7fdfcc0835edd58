// The window with vector files on the ground: what its panel lists, and what that does to the picture.

#include "viewerwindow.h"

#include <map>

#include <QLabel>
#include <QLineEdit>
#include <QSlider>
#include <QTreeWidget>

#include "controlpanel.h"
#include "groundtest.h"
#include "overlaypanel.h"

namespace {

/// A square around the middle of the view, which leaves room on all sides.
constexpr const char * s_square =
    R"({"type": "FeatureCollection",
        "crs": {"type": "name", "properties": {"name": "urn:ogc:def:crs:EPSG::32645"}},
        "features": [{"type": "Feature", "properties": {"name": "NAME", "area": 9},
                      "geometry": {"type": "Polygon", "coordinates": [[[500160, 3100120], [500480, 3100120],
                                   [500480, 3100360], [500160, 3100360], [500160, 3100120]]]}}]})";

class OverlayWindowTest : public GroundTest {
protected:
    void SetUp() override {
        for (const char * name : {"red", "blue", "green"})
            paths_[name] = files.write(std::string(name) + ".geojson", s_square);
    }
    OverlayOptions overlay(const std::string & name, const std::string & style) const {
        return {paths_.at(name), "", style};
    }
    void open(std::vector<OverlayOptions> overlays) {
        LandscapeOptions options;
        options.overlays = std::move(overlays);
        GroundTest::open(options);
    }
    void dropped(const std::vector<std::string> & paths) const {
        drop(paths);
        ASSERT_TRUE(settle()) << window->lastError().toStdString();
        activate();
    }
    OverlayPanel * panel() const { return window->panel()->overlays(); }
    QTreeWidget * list() const { return panel()->list(); }
    QSlider * opacity() const {
        return panel()->findChild<QWidget *>("overlayOpacity")->findChild<QSlider *>();
    }
    QLabel * label(const char * name) const { return panel()->findChild<QLabel *>(name); }
    void enterStyle(const QString & text) const {
        auto * field = panel()->findChild<QLineEdit *>("overlayStyle");
        field->setText(text);
        QTest::keyClick(field, Qt::Key_Return);
    }
    void point() const {
        QTest::mouseMove(view, middle() + QPoint(3, 3));
        QTest::mouseMove(view, middle());
    }
    static bool isYellow(const QColor & color) {
        return color.red() > 220 && color.green() > 190 && color.blue() < 90;
    }

    std::map<std::string, std::string> paths_;
};

TEST_F(OverlayWindowTest, ThePanelIsHiddenWithoutOverlays) {
    open({});
    EXPECT_FALSE(panel()->isVisible());
    EXPECT_EQ(0, list()->topLevelItemCount());
}

TEST_F(OverlayWindowTest, DroppedFilesBecomeOverlaysOnTheSameLandscape) {
    open({});
    const auto shown = view->landscape();
    const auto bare = picture();
    dropped({paths_.at("red")});
    EXPECT_EQ(shown, view->landscape()) << "nothing is built anew";
    EXPECT_TRUE(panel()->isVisible());
    ASSERT_EQ(1, list()->topLevelItemCount());
    EXPECT_GT(difference(bare, picture()), 1e-3) << "the first one of all is drawn";
    enterStyle("fill=#ff0000");
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
    dropped({paths_.at("blue"), paths_.at("green")});
    EXPECT_EQ(shown, view->landscape());
    ASSERT_EQ(3, list()->topLevelItemCount());
    EXPECT_EQ("green.geojson", list()->topLevelItem(0)->text(0)) << "the last one on top";
    EXPECT_EQ("red.geojson", list()->topLevelItem(2)->text(0));
    enterStyle("fill=#0000ff");
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
}

TEST_F(OverlayWindowTest, AFileThatIsNoneLeavesTheOthers) {
    open({overlay("red", "fill=#ff0000")});
    drop({files.write("bad.geojson", "{\"type\": \"nothing\"}")});
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->lastError().isEmpty(); }));
    ASSERT_TRUE(settle());
    EXPECT_EQ(1, list()->topLevelItemCount());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
}

TEST_F(OverlayWindowTest, AReloadKeepsDroppedFilesAndTheirLooks) {
    open({overlay("blue", "fill=#0000ff")});
    dropped({paths_.at("green"), paths_.at("red")});
    enterStyle("fill=#ff0000");
    opacity()->setValue(opacity()->maximum() - 10);
    const int share = opacity()->value();
    list()->addTopLevelItem(list()->takeTopLevelItem(1)); // green
    list()->topLevelItem(2)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return settle() && list()->topLevelItem(2)->text(0) == "green.geojson"; }));
    const auto shown = view->landscape();
    window->reload();
    ASSERT_TRUE(settle());
    activate();
    EXPECT_NE(shown, view->landscape());
    ASSERT_EQ(3, list()->topLevelItemCount());
    EXPECT_EQ("red.geojson", list()->topLevelItem(0)->text(0));
    EXPECT_EQ("green.geojson", list()->topLevelItem(2)->text(0));
    EXPECT_EQ(Qt::Unchecked, list()->topLevelItem(2)->checkState(0));
    EXPECT_EQ(share, opacity()->value());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
}

TEST_F(OverlayWindowTest, ThoseOfTheCommandLineAreListedAndDrawnTheLastOnTop) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    EXPECT_TRUE(panel()->isVisible());
    ASSERT_EQ(2, list()->topLevelItemCount());
    EXPECT_TRUE(list()->topLevelItem(0)->text(0).contains("blue"));
    EXPECT_TRUE(list()->topLevelItem(1)->text(0).contains("red"));
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
}

TEST_F(OverlayWindowTest, ASwitchHidesOne) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    list()->topLevelItem(0)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
    list()->topLevelItem(1)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(isRed(color())) << color().name().toStdString();
    list()->topLevelItem(0)->setCheckState(0, Qt::Checked);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
}

TEST_F(OverlayWindowTest, OpacityIsThatOfTheSelectedOne) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    opacity()->setValue(opacity()->maximum() / 2); // over the decades from 1 to 100 percent
    ASSERT_TRUE(settle());
    EXPECT_NEAR(color().blue(), 25.5, 3.0);
    EXPECT_NEAR(color().red(), 229.5, 3.0);
    list()->setCurrentItem(list()->topLevelItem(1));
    EXPECT_EQ(opacity()->maximum(), opacity()->value());
    opacity()->setValue(opacity()->minimum());
    ASSERT_TRUE(settle());
    EXPECT_LT(color().red(), 200) << "that of the lower one";
    list()->setCurrentItem(list()->topLevelItem(0));
    EXPECT_EQ(opacity()->maximum() / 2, opacity()->value());
}

TEST_F(OverlayWindowTest, MovingAnItemChangesWhatIsOnTop) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    list()->addTopLevelItem(list()->takeTopLevelItem(0));
    ASSERT_TRUE(QTest::qWaitFor([&] { return settle() && isRed(color()); })) << color().name().toStdString();
    EXPECT_TRUE(list()->topLevelItem(0)->text(0).contains("red"));
    list()->topLevelItem(0)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << "switches know the new order";
}

TEST_F(OverlayWindowTest, AStyleIsTakenAndAWrongOneChangesNothing) {
    open({overlay("red", "fill=#ff0000")});
    enterStyle("fill=#0000ff");
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
    EXPECT_FALSE(label("overlayProblem")->isVisible());
    enterStyle("fill=nonsense");
    EXPECT_TRUE(label("overlayProblem")->isVisible());
    EXPECT_TRUE(label("overlayProblem")->text().contains("nonsense"))
        << label("overlayProblem")->text().toStdString();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
    enterStyle("fill=#ff0000");
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
    EXPECT_FALSE(label("overlayProblem")->isVisible());
}

TEST_F(OverlayWindowTest, TheLegendHasALineForEachRule) {
    const std::string rulesFile =
        files.write("rules.style", "area > 5: fill=#ff0000\ndefault: fill=#0000ff\n");
    open({overlay("red", rulesFile), overlay("blue", "fill=#0000ff")});
    ASSERT_EQ(2, list()->topLevelItemCount());
    const QTreeWidgetItem * one = list()->topLevelItem(0);
    ASSERT_EQ(1, one->childCount());
    EXPECT_EQ("areas", one->child(0)->text(0));
    const QTreeWidgetItem * rules = list()->topLevelItem(1);
    ASSERT_EQ(rules->childCount(), 2);
    EXPECT_TRUE(rules->child(0)->text(0).contains("area > 5")) << rules->child(0)->text(0).toStdString();
    const auto swatch = [&](int rule) {
        const QImage icon = rules->child(rule)->icon(0).pixmap(26, 14).toImage();
        return icon.pixelColor(icon.width() / 2, icon.height() / 2);
    };
    EXPECT_TRUE(isRed(swatch(0))) << swatch(0).name().toStdString();
    EXPECT_TRUE(isBlue(swatch(1))) << swatch(1).name().toStdString();
    list()->topLevelItem(0)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isRed(color())) << "the first rule that fits";
}

TEST_F(OverlayWindowTest, WhatIsUnderTheMouseShowsItsAttributes) {
    open({overlay("red", "fill=#ff0000")});
    point();
    ASSERT_TRUE(QTest::qWaitFor([&] { return label("overlayAttributes")->text().contains("name: NAME"); }))
        << label("overlayAttributes")->text().toStdString();
    EXPECT_TRUE(label("overlayAttributes")->text().contains("area: 9"));
    QTest::mouseMove(view, {5, 5});
    EXPECT_TRUE(QTest::qWaitFor([&] { return label("overlayAttributes")->text().isEmpty(); }));
}

TEST_F(OverlayWindowTest, WhatIsUnderTheMouseStandsOut) {
    open({overlay("red", "fill=#ff0000,width=0")});
    QTest::mouseMove(view, {5, 5});
    ASSERT_TRUE(settle());
    EXPECT_EQ(0U, placesOf(isYellow).size());
    point();
    ASSERT_TRUE(QTest::qWaitFor([&] { return settle() && placesOf(isYellow).size() > 0; }));
    const std::size_t outline = placesOf(isYellow).size();
    EXPECT_GT(outline, 800U) << "all around the square";
    EXPECT_LT(outline, 20000U);
    EXPECT_TRUE(isRed(color())) << "its inside stays as it is";
    QTest::qWait(100);
    ASSERT_TRUE(settle());
    const unsigned before = view->frames().count;
    QTest::mouseMove(view, middle() + QPoint(4, 4));
    QTest::qWait(50);
    EXPECT_EQ(before, view->frames().count) << "the same one again is nothing new";
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(view, &leave);
    EXPECT_EQ("", label("overlayAttributes")->text());
    ASSERT_TRUE(settle());
    EXPECT_EQ(0U, placesOf(isYellow).size());
}

TEST_F(OverlayWindowTest, AKeyShowsTheNextOfThoseUnderTheMouse) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    point();
    ASSERT_TRUE(QTest::qWaitFor([&] { return label("overlayAttributes")->text().contains("blue"); }));
    EXPECT_TRUE(label("overlayAttributes")->text().contains("1 of 2"));
    QTest::keyClick(view, Qt::Key_N);
    EXPECT_TRUE(label("overlayAttributes")->text().contains("red"));
    EXPECT_TRUE(label("overlayAttributes")->text().contains("2 of 2"));
    point();
    QTest::qWait(50);
    EXPECT_TRUE(label("overlayAttributes")->text().contains("red")) << "it stays";
    QTest::keyClick(view, Qt::Key_N);
    EXPECT_TRUE(label("overlayAttributes")->text().contains("blue")) << "round about";
}

TEST_F(OverlayWindowTest, ThreeWithNamesAskForNoFramesAtRest) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff"), overlay("green", "fill=#00ff00")});
    const auto unnamed = picture();
    enterStyle("fill=#00ff00,label=name,label-size=24");
    ASSERT_TRUE(settle());
    EXPECT_GT(difference(unnamed, picture()), 0.0) << "the name is drawn";
    QTest::qWait(100);
    const unsigned before = view->frames().count;
    QTest::qWait(200);
    EXPECT_EQ(before, view->frames().count);
}

} // namespace
