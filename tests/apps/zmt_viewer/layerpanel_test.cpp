// The window with layers of all kinds, vector files above all: what its panel lists, and what that does to
// the picture.

#include "layerpanel.h"

#include <map>

#include <QLabel>
#include <QLineEdit>
#include <QSlider>
#include <QTreeWidget>

#include "groundtest.h"
#include "scenekeeper.h"
#include "trackbar.h"

namespace {

/// A square around the middle of the view, which leaves room on all sides.
constexpr const char * s_square =
    R"({"type": "FeatureCollection",
        "crs": {"type": "name", "properties": {"name": "urn:ogc:def:crs:EPSG::32645"}},
        "features": [{"type": "Feature", "properties": {"name": "NAME", "area": 9},
                      "geometry": {"type": "Polygon", "coordinates": [[[500160, 3100120], [500480, 3100120],
                                   [500480, 3100360], [500160, 3100360], [500160, 3100120]]]}}]})";

class LayerPanelTest : public GroundTest {
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
    QTreeWidget * list() const { return layers().list(); }
    int overlays() const { return int(std::as_const(*view->landscape()).overlays().list().size()); }
    /// Of the overlays, which lie below the flood.
    QTreeWidgetItem * row(int number) const { return list()->topLevelItem(1 + number); }
    QTreeWidgetItem * takeRow(int number) const { return list()->takeTopLevelItem(1 + number); }
    QSlider * opacity() const {
        return layers().findChild<QWidget *>("layerOpacity")->findChild<QSlider *>();
    }
    QLabel * label(const char * name) const { return layers().findChild<QLabel *>(name); }
    /// An image of one colour all over the ground.
    std::string image(const std::string & name, const QColor & color) const {
        SmallGeoTiff tiff{columns, rows};
        tiff.pixels = SmallGeoTiff::Pixels::Colors;
        tiff.west = west;
        tiff.north = south + rows * cell;
        tiff.cell = cell;
        for (int i = 0; i < columns * rows; ++i)
            for (const int value : {color.red(), color.green(), color.blue()})
                tiff.colors.push_back(std::uint8_t(value));
        return files.write(name, tiff.encode());
    }
    void openImages() {
        LandscapeOptions options;
        options.images = {image("black.tif", Qt::black), image("white.tif", Qt::white)};
        GroundTest::open(options);
    }
    /// From the top, of those on the ground.
    std::string groundNames() const {
        std::string names;
        for (const LayerEntry & entry : layers().entries())
            if (entry.kind == LayerEntry::Kind::Ground) names.append(entry.name).append(" ");
        return names;
    }
    void pressInList(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) const {
        QTest::keyClick(list(), key, modifiers);
        ASSERT_TRUE(settle());
    }
    void enterStyle(const QString & text) const {
        auto * field = layers().findChild<QLineEdit *>("layerStyle");
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

TEST_F(LayerPanelTest, ListsAllFromTheTop) {
    LandscapeOptions options;
    options.overlays = {overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")};
    options.tracks.files = {ZMT_DATA_DIR "/everest_way.gpx"};
    options.images = {image("image.tif", Qt::green)};
    GroundTest::open(options);
    QStringList names;
    for (int i = 0; i < list()->topLevelItemCount(); ++i)
        names.append(list()->topLevelItem(i)->text(0));
    EXPECT_EQ(names.join(", ").toStdString(), "everest_way.gpx, Flood, blue.geojson, red.geojson, image.tif, "
                                              "shading, colours by height, slope.tif");
}

TEST_F(LayerPanelTest, DroppedFilesBecomeOverlaysOnTheSameLandscape) {
    open({});
    const auto shown = view->landscape();
    const auto bare = picture();
    dropped({paths_.at("red")});
    EXPECT_EQ(shown, view->landscape()) << "nothing is built anew";
    ASSERT_EQ(1, overlays());
    EXPECT_GT(difference(bare, picture()), 1e-3) << "the first one of all is drawn";
    enterStyle("fill=#ff0000");
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
    dropped({paths_.at("blue"), paths_.at("green")});
    EXPECT_EQ(shown, view->landscape());
    ASSERT_EQ(3, overlays());
    EXPECT_EQ("green.geojson", row(0)->text(0)) << "the last one on top";
    EXPECT_EQ("red.geojson", row(2)->text(0));
    enterStyle("fill=#0000ff");
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
}

TEST_F(LayerPanelTest, AFileThatIsNoneLeavesTheOthers) {
    open({overlay("red", "fill=#ff0000")});
    drop({files.write("bad.geojson", "{\"type\": \"nothing\"}")});
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->lastError().isEmpty(); }));
    ASSERT_TRUE(settle());
    EXPECT_EQ(1, overlays());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
}

TEST_F(LayerPanelTest, AReloadKeepsDroppedFilesAndTheirLooks) {
    open({overlay("blue", "fill=#0000ff")});
    dropped({paths_.at("green"), paths_.at("red")});
    enterStyle("fill=#ff0000");
    opacity()->setValue(opacity()->maximum() - 10);
    const int share = opacity()->value();
    list()->addTopLevelItem(takeRow(1)); // green
    ASSERT_TRUE(QTest::qWaitFor([&] { return row(2)->text(0) == "green.geojson"; }));
    row(2)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    const auto shown = view->landscape();
    window->reload();
    ASSERT_TRUE(settle());
    activate();
    EXPECT_NE(shown, view->landscape());
    ASSERT_EQ(3, overlays());
    EXPECT_EQ("red.geojson", row(0)->text(0));
    EXPECT_EQ("green.geojson", row(2)->text(0));
    EXPECT_EQ(Qt::Unchecked, row(2)->checkState(0));
    EXPECT_EQ(share, opacity()->value());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
}

TEST_F(LayerPanelTest, ThoseOfTheCommandLineAreListedAndDrawnTheLastOnTop) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    ASSERT_EQ(2, overlays());
    EXPECT_TRUE(row(0)->text(0).contains("blue"));
    EXPECT_TRUE(row(1)->text(0).contains("red"));
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
}

TEST_F(LayerPanelTest, ASwitchHidesOne) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    row(0)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
    row(1)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(isRed(color())) << color().name().toStdString();
    row(0)->setCheckState(0, Qt::Checked);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
}

TEST_F(LayerPanelTest, OpacityIsThatOfTheSelectedOne) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    opacity()->setValue(opacity()->maximum() / 2);
    ASSERT_TRUE(settle());
    EXPECT_NEAR(color().blue(), 127.5, 3.0);
    EXPECT_NEAR(color().red(), 127.5, 3.0);
    list()->setCurrentItem(row(1));
    EXPECT_EQ(opacity()->maximum(), opacity()->value());
    opacity()->setValue(opacity()->minimum());
    ASSERT_TRUE(settle());
    EXPECT_LT(color().red(), 200) << "that of the lower one";
    list()->setCurrentItem(row(0));
    EXPECT_EQ(opacity()->maximum() / 2, opacity()->value());
}

TEST_F(LayerPanelTest, MovingAnItemChangesWhatIsOnTop) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    list()->addTopLevelItem(takeRow(0));
    ASSERT_TRUE(QTest::qWaitFor([&] { return settle() && isRed(color()); })) << color().name().toStdString();
    EXPECT_TRUE(row(0)->text(0).contains("red"));
    row(0)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << "switches know the new order";
}

TEST_F(LayerPanelTest, AStyleIsTakenAndAWrongOneChangesNothing) {
    open({overlay("red", "fill=#ff0000")});
    enterStyle("fill=#0000ff");
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
    EXPECT_FALSE(label("layerStyleProblem")->isVisible());
    enterStyle("fill=nonsense");
    EXPECT_TRUE(label("layerStyleProblem")->isVisible());
    EXPECT_TRUE(label("layerStyleProblem")->text().contains("nonsense"))
        << label("layerStyleProblem")->text().toStdString();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isBlue(color())) << color().name().toStdString();
    enterStyle("fill=#ff0000");
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isRed(color())) << color().name().toStdString();
    EXPECT_FALSE(label("layerStyleProblem")->isVisible());
}

TEST_F(LayerPanelTest, TheLegendHasALineForEachRule) {
    const std::string rulesFile =
        files.write("rules.style", "area > 5: fill=#ff0000\ndefault: fill=#0000ff\n");
    open({overlay("red", rulesFile), overlay("blue", "fill=#0000ff")});
    ASSERT_EQ(2, overlays());
    const QTreeWidgetItem * one = row(0);
    ASSERT_EQ(1, one->childCount());
    EXPECT_EQ("areas", one->child(0)->text(0));
    const QTreeWidgetItem * rules = row(1);
    ASSERT_EQ(rules->childCount(), 2);
    EXPECT_TRUE(rules->child(0)->text(0).contains("area > 5")) << rules->child(0)->text(0).toStdString();
    const auto swatch = [&](int rule) {
        const QImage icon = rules->child(rule)->icon(0).pixmap(26, 14).toImage();
        return icon.pixelColor(icon.width() / 2, icon.height() / 2);
    };
    EXPECT_TRUE(isRed(swatch(0))) << swatch(0).name().toStdString();
    EXPECT_TRUE(isBlue(swatch(1))) << swatch(1).name().toStdString();
    row(0)->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isRed(color())) << "the first rule that fits";
}

TEST_F(LayerPanelTest, WhatIsUnderTheMouseShowsItsAttributes) {
    open({overlay("red", "fill=#ff0000")});
    point();
    ASSERT_TRUE(QTest::qWaitFor([&] { return label("layerAttributes")->text().contains("name: NAME"); }))
        << label("layerAttributes")->text().toStdString();
    EXPECT_TRUE(label("layerAttributes")->text().contains("area: 9"));
    QTest::mouseMove(view, {5, 5});
    EXPECT_TRUE(QTest::qWaitFor([&] { return label("layerAttributes")->text().isEmpty(); }));
}

TEST_F(LayerPanelTest, WhatIsUnderTheMouseStandsOut) {
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
    EXPECT_EQ("", label("layerAttributes")->text());
    ASSERT_TRUE(settle());
    EXPECT_EQ(0U, placesOf(isYellow).size());
}

TEST_F(LayerPanelTest, AKeyShowsTheNextOfThoseUnderTheMouse) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    point();
    ASSERT_TRUE(QTest::qWaitFor([&] { return label("layerAttributes")->text().contains("blue"); }));
    EXPECT_TRUE(label("layerAttributes")->text().contains("1 of 2"));
    QTest::keyClick(view, Qt::Key_N);
    EXPECT_TRUE(label("layerAttributes")->text().contains("red"));
    EXPECT_TRUE(label("layerAttributes")->text().contains("2 of 2"));
    point();
    QTest::qWait(50);
    EXPECT_TRUE(label("layerAttributes")->text().contains("red")) << "it stays";
    QTest::keyClick(view, Qt::Key_N);
    EXPECT_TRUE(label("layerAttributes")->text().contains("blue")) << "round about";
}

TEST_F(LayerPanelTest, ThreeWithNamesAskForNoFramesAtRest) {
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

TEST_F(LayerPanelTest, ImagesHaveAnOpacity) {
    openImages();
    EXPECT_GT(color().red(), 250);
    ASSERT_TRUE(item("white.tif"));
    opacity()->setValue(opacity()->maximum() / 2);
    ASSERT_TRUE(settle());
    EXPECT_NEAR(color().red(), 127.5, 3.0) << "half of it, above black";
    opacity()->setValue(0);
    ASSERT_TRUE(settle());
    EXPECT_LT(color().red(), 3);
    ASSERT_TRUE(item("colours by height"));
    EXPECT_FALSE(opacity()->isVisible()) << "what colours all has none";
}

TEST_F(LayerPanelTest, KeysMoveImagesAndTheLight) {
    openImages();
    EXPECT_EQ(groundNames(), "white.tif black.tif shading colours by height ");
    ASSERT_TRUE(item("white.tif"));
    list()->setFocus();
    pressInList(Qt::Key_Down, Qt::ControlModifier);
    EXPECT_EQ(groundNames(), "black.tif white.tif shading colours by height ");
    EXPECT_EQ(list()->currentItem()->text(0), "white.tif") << "it may go on";
    EXPECT_LT(color().red(), 3);
    pressInList(Qt::Key_Down, Qt::ControlModifier);
    EXPECT_EQ(groundNames(), "black.tif shading white.tif colours by height ");
    pressInList(Qt::Key_Down, Qt::ControlModifier);
    EXPECT_EQ(groundNames(), "black.tif shading white.tif colours by height ")
        << "colours stay at the bottom";
    ASSERT_TRUE(item("black.tif"));
    pressInList(Qt::Key_Space);
    EXPECT_EQ(layersOn(), (std::vector<bool>{true, true, true, false}));
    const int lit = color().red();
    EXPECT_LT(lit, 252) << "the light falls on the image now";
    EXPECT_GT(lit, 100);
    dropped({image("last.tif", Qt::green)});
    EXPECT_EQ(groundNames(), "last.tif black.tif shading white.tif colours by height ");
    ASSERT_TRUE(item("shading"));
    list()->setFocus();
    pressInList(Qt::Key_Up, Qt::ControlModifier);
    pressInList(Qt::Key_Up, Qt::ControlModifier);
    dropped({image("lit.tif", Qt::green)});
    EXPECT_EQ(groundNames(), "shading lit.tif last.tif black.tif white.tif colours by height ")
        << "light on all images falls on the next as well";
}

TEST_F(LayerPanelTest, OrderAndOpacityAreUndoneAndStored) {
    openImages();
    const LandscapeLook first = window->look();
    ASSERT_TRUE(item("white.tif"));
    opacity()->setValue(opacity()->maximum() / 2);
    list()->setFocus();
    pressInList(Qt::Key_Down, Qt::ControlModifier);
    item("black.tif")->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    const LandscapeLook last = window->look();
    const auto shown = picture();
    ASSERT_TRUE(window->scenes()->saveIn(files.out("mine.zmt")));
    for (int i = 0; i < 3; ++i)
        window->scenes()->edits().undo();
    EXPECT_TRUE(window->look() == first);
    EXPECT_EQ(groundNames(), "white.tif black.tif shading colours by height ");
    for (int i = 0; i < 3; ++i)
        window->scenes()->edits().redo(); // as it is stored, so that nobody asks
    for (int i = 0; i < 3; ++i)
        window->scenes()->edits().redo(); // as it is stored, so that nobody asks
    window->open({files.out("mine.zmt")});
    ASSERT_TRUE(settle());
    EXPECT_TRUE(window->look() == last);
    EXPECT_EQ(groundNames(), "black.tif white.tif shading colours by height ");
    EXPECT_EQ(item("black.tif")->checkState(0), Qt::Unchecked);
    EXPECT_LT(difference(shown, picture()), 1e-4);
    window->reload();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(window->look() == last);
    dropped({image("black.tif", Qt::green)});
    EXPECT_EQ(groundNames(), "black.tif black.tif white.tif shading colours by height ");
    EXPECT_EQ(layersOn(), (std::vector<bool>{true, true, true, false, true}))
        << "one of the same name is another";
    ASSERT_TRUE(item("black.tif"));
    list()->setFocus();
    pressInList(Qt::Key_Down, Qt::ControlModifier);
    const LandscapeLook moved = window->look();
    window->reload();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(window->look() == moved) << "also in another order";
}

TEST_F(LayerPanelTest, WhatIsDraggedAmongOthersComesBack) {
    open({overlay("red", "fill=#ff0000"), overlay("blue", "fill=#0000ff")});
    QTreeWidgetItem * red = takeRow(1);
    list()->addTopLevelItem(red); // below the terrain
    QTest::qWait(30);
    EXPECT_EQ(row(1)->text(0), "red.geojson");
    EXPECT_EQ(list()->topLevelItem(list()->topLevelItemCount() - 1)->text(0), "slope.tif");
    EXPECT_FALSE(window->scenes()->edits().canUndo());
}

TEST_F(LayerPanelTest, AKeyGivesTheListTheKeysAndTakesThemBack) {
    open({overlay("red", "fill=#ff0000")});
    QTest::keyClick(view, Qt::Key_L);
    ASSERT_TRUE(list()->hasFocus());
    pressInList(Qt::Key_Space);
    EXPECT_EQ(row(0)->checkState(0), Qt::Unchecked);
    QTest::keyClick(list(), Qt::Key_L);
    EXPECT_TRUE(view->hasFocus());
}

TEST_F(LayerPanelTest, TracksAreSwitchedAndTellWhatTheyLack) {
    const auto point = [](double x, const char * time) {
        return place(x, 240.0, R"(<trkpt lon="%.9f" lat="%.9f">)") + time + "</trkpt>";
    };
    LandscapeOptions options;
    options.tracks.files = {files.write(
        "way.gpx", R"(<gpx version="1.1"><trk><trkseg>)" + point(100.0, "<time>2024-05-01T12:00:00Z</time>") +
                       point(320.0, "") + point(540.0, "<time>2024-05-01T12:01:00Z</time>") +
                       "</trkseg></trk></gpx>")};
    GroundTest::open(options);
    QTreeWidgetItem * way = item("way.gpx");
    ASSERT_TRUE(way);
    EXPECT_EQ(label("layerProblem")->text(), "1 points have no time and are left out");
    EXPECT_FALSE(way->icon(0).isNull()) << "a mark in the list";
    const auto isWay = [](const QColor & c) { return c.red() > 180 && c.green() < 90 && c.blue() < 90; };
    EXPECT_GT(placesOf(isWay).size(), 100U);
    const auto whole = picture();
    opacity()->setValue(opacity()->maximum() / 4);
    ASSERT_TRUE(settle());
    EXPECT_EQ(placesOf(isWay).size(), 0U);
    EXPECT_GT(difference(whole, picture()), 1e-3);
    opacity()->setValue(opacity()->maximum());
    way->setCheckState(0, Qt::Unchecked);
    ASSERT_TRUE(settle());
    EXPECT_EQ(placesOf(isWay).size(), 0U);
    window->scenes()->edits().undo();
    ASSERT_TRUE(settle());
    EXPECT_GT(placesOf(isWay).size(), 100U);
    list()->setFocus();
    for (const Qt::CheckState state : {Qt::Unchecked, Qt::Checked}) {
        pressInList(Qt::Key_Space);
        EXPECT_EQ(item("way.gpx")->checkState(0), state);
        EXPECT_FALSE(window->tracks()->player()->isPlaying()) << "the list has the key";
    }
    ASSERT_TRUE(item("slope.tif"));
    EXPECT_FALSE(label("layerProblem")->isVisible()) << "that of the selected one";
}

} // namespace
