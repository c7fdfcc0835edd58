#include "mapmenu.h"

#include <cmath>

#include <QAction>
#include <QDateEdit>
#include <QInputDialog>
#include <QLabel>
#include <QTableWidget>
#include <QTimeEdit>
#include <QTimer>

#include "groundtest.h"
#include "map/northarrow.h"
#include "map/scalebar.h"
#include "map/sunpanel.h"
#include "map/tintpanel.h"
#include "measuretool.h"
#include "scenekeeper.h"

#include <zmt/core/terrain/frame/terrainpainterglsettings.h>
#include <zmt/util/solarposition.h>

namespace {

class MapMenuTest : public GroundTest {
protected:
    ScaleBar & bar() const { return *view->findChild<ScaleBar *>("scaleBar"); }
    NorthArrow & arrow() const { return *view->findChild<NorthArrow *>("northArrow"); }
    QAction * entry(const QString & words) const {
        for (QAction * action : window->findChildren<QAction *>())
            if (action->text().remove('&').startsWith(words)) return action;
        return nullptr;
    }
    /// From the corner of the slope, in metres; heights of the ground count from 0.
    void look(double eastEye, double northEye, double up, double east, double north) const {
        view->setViewCoordinates(
            {west + eastEye, south + northEye, up, west + east, south + north, 100.0 + east / 10.0}, false);
        ASSERT_TRUE(settle());
    }
    /// Metres on the map between both ends of a line in the middle of the picture that is as long as the bar.
    double barOnMap() const {
        const double half = bar().barLength() / 2.0;
        const QPointF centre(view->width() / 2.0, view->height() / 2.0);
        const auto a = view->groundAt(centre - QPointF(half, 0.0));
        const auto b = view->groundAt(centre + QPointF(half, 0.0));
        return a && b ? std::hypot(b->x - a->x, b->z - a->z) : NAN;
    }
};

TEST_F(MapMenuTest, TheBarIsTrueInTheMiddleOfThePicture) {
    open();
    EXPECT_TRUE(bar().isVisible());
    // On its central meridian a metre of the system is longer than one.
    EXPECT_NEAR(barOnMap(), bar().metres() * 0.9996, bar().metres() * 2e-3);
    const double before = bar().metres();
    look(320.0, 240.0, 190.0, 320.0, 240.1);
    EXPECT_LT(bar().metres(), before);
    EXPECT_NEAR(barOnMap(), bar().metres(), bar().metres() * 4e-3);
    EXPECT_EQ(bar().geometry().left(), 12);
    EXPECT_EQ(bar().geometry().bottom(), view->height() - 13);
}

TEST_F(MapMenuTest, TheBarIsTrueWhereTheMapIsNot) {
    SmallGeoTiff tiff{columns, rows};
    tiff.system = 3857;
    tiff.west = 0.0;
    tiff.north = 8'399'738.0; // 60 degrees
    tiff.cell = cell;
    tiff.heights.assign(std::size_t(columns) * rows, 100.0F);
    LandscapeOptions options;
    options.terrain = files.write("mercator.tif", tiff.encode());
    makeWindow(options, parseView("north"), 900, 460);
    window->open({});
    ASSERT_TRUE(settle()) << window->lastError().toStdString();
    EXPECT_NEAR(barOnMap(), bar().metres() * 2.0, bar().metres() * 0.02);
}

TEST_F(MapMenuTest, FiguresLeaveTheArrowItsPlace) {
    open();
    const auto * figures = view->findChild<QLabel *>("overlay");
    for (const int width : {900, 640, 480}) {
        window->resize(width, 460);
        ASSERT_TRUE(settle());
        EXPECT_FALSE(figures->geometry().intersects(arrow().geometry())) << width;
    }
}

TEST_F(MapMenuTest, PanelsDoNotMakeASmallWindowLarger) {
    open();
    window->resize(800, 600);
    ASSERT_TRUE(settle());
    for (const char * words : {"Sun", "Colours of heights", "Add this view"})
        entry(words)->trigger();
    press(Qt::Key_M);
    EXPECT_EQ(window->size(), QSize(800, 600));
    for (const char * name : {"sunPosition", "sunOn", "tintSave"})
        EXPECT_TRUE(window->findChild<QWidget *>(name)->isVisible()) << name;
    const auto * position = window->findChild<QLabel *>("sunPosition");
    EXPECT_LE(position->heightForWidth(position->width()), position->height()) << "all lines of it";
}

TEST_F(MapMenuTest, TheSkyHasNoScale) {
    open();
    look(320.0, -200.0, 300.0, 320.0, 240.0);
    EXPECT_TRUE(bar().isVisible());
    view->setViewCoordinates({west + 320.0, south - 200.0, 300.0, west + 320.0, south + 240.0, 500.0}, false);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(bar().isVisible());
    EXPECT_TRUE(arrow().isVisible());
}

TEST_F(MapMenuTest, TheArrowFollowsTheViewAndTurnsItNorth) {
    open();
    const auto turnedNorth = [&](const auto & turn) {
        look(20.0, 240.0, 300.0, 320.0, 240.0);
        EXPECT_NEAR(arrow().heading(), M_PI / 2.0, 1e-6);
        const QPointF centre(view->width() / 2.0, view->height() / 2.0);
        const auto before = view->groundAt(centre);
        turn();
        ASSERT_TRUE(settle());
        EXPECT_NEAR(arrow().heading(), 0.0, 1e-12);
        const auto after = view->groundAt(centre);
        ASSERT_TRUE(before && after);
        EXPECT_NEAR((*before - *after).length(), 0.0, 1e-3);
        EXPECT_LT(view->viewCoordinates()[1], after->z) << "the eye lies in the south";
    };
    turnedNorth([&] { QTest::mouseClick(&arrow(), Qt::LeftButton); });
    turnedNorth([&] { QTest::keyClick(view, Qt::Key_R, Qt::ShiftModifier); });
    EXPECT_EQ(arrow().geometry().right(), view->width() - 13);
}

TEST_F(MapMenuTest, SignsAreSwitchedOffAndInNoSavedPicture) {
    open();
    const auto with = picture();
    entry("Scale bar")->trigger();
    ASSERT_TRUE(settle());
    EXPECT_FALSE(bar().isVisible() || arrow().isVisible());
    EXPECT_EQ(difference(with, picture()), 0.0);
    entry("Scale bar")->trigger();
    EXPECT_TRUE(bar().isVisible() && arrow().isVisible());
}

TEST_F(MapMenuTest, WithoutALandscapeThereIsNothing) {
    makeWindow(LandscapeOptions(), View(), 700, 480);
    EXPECT_FALSE(bar().isVisible() || arrow().isVisible());
    EXPECT_FALSE(entry("North up")->isEnabled());
}

TEST_F(MapMenuTest, AtRestTheSignsAskForNoFrame) {
    open();
    QTest::qWait(100);
    const unsigned before = view->frames().count;
    QTest::qWait(200);
    EXPECT_EQ(before, view->frames().count);
}

class SunTest : public GroundTest {
protected:
    SunPanel & sun() const { return *window->map()->sun(); }
    /// By the clock of the panel, in the zone of the place.
    void setClock(int hour, int minute = 0) const {
        sun().findChild<QDateEdit *>("sunDate")->setDate(QDate(2024, 3, 20));
        sun().findChild<QTimeEdit *>("sunTime")->setTime(QTime(hour, minute));
        ASSERT_TRUE(settle());
    }
    /// Mean brightness of the ground in the middle of the picture.
    double brightness() const {
        const QColor c = color();
        return (c.red() + c.green() + c.blue()) / 3.0;
    }
};

TEST_F(SunTest, ShinesFromWhereItStands) {
    LandscapeOptions plain;
    plain.plain = true;
    open(plain);
    QTest::keyClick(view, Qt::Key_T);
    EXPECT_TRUE(sun().isVisible());
    ASSERT_TRUE(settle());
    const auto before = picture();
    sun().toggle();
    // The slope looks to the west: one in ten, 5.7 degrees.
    const double tilt = std::atan(0.1), ambient = 0.35;
    for (const int hour : {7, 9, 12, 15, 17}) {
        setClock(hour);
        const SunMoment moment = *sun().moment();
        EXPECT_NEAR(moment.longitude, 87.0, 0.1);
        const auto place = ZMT::UTIL::SolarPosition::at(moment.time, moment.longitude, moment.latitude);
        const double up = place.apparentElevation * M_PI / 180.0, azimuth = place.azimuth * M_PI / 180.0;
        const double cosine =
            std::sin(up) * std::cos(tilt) - std::cos(up) * std::sin(azimuth) * std::sin(tilt);
        EXPECT_NEAR(brightness() / 255.0, ambient + (1.0 - ambient) * std::max(cosine, 0.0), 0.02) << hour;
    }
    setClock(22);
    EXPECT_NEAR(brightness() / 255.0, ambient, 0.01);
    EXPECT_TRUE(sun().findChild<QLabel *>("sunPosition")->text().contains("below the horizon"));
    sun().toggle();
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(before, picture()), 1e-4) << "the light of before";
}

TEST_F(SunTest, IsUndoneAndComesBackWithTheScene) {
    open();
    const auto before = picture();
    sun().toggle();
    setClock(8);
    const SunMoment moment = *sun().moment();
    ASSERT_TRUE(settle());
    const auto lit = picture();
    EXPECT_GT(difference(before, lit), 0.3);
    ASSERT_TRUE(window->scenes()->saveIn(files.out("sunny.zmt")));
    while (window->scenes()->edits().canUndo())
        window->scenes()->edits().undo();
    ASSERT_TRUE(settle());
    EXPECT_FALSE(sun().moment());
    EXPECT_LT(difference(before, picture()), 1e-4);
    window->scenes()->edits().redo();
    EXPECT_TRUE(sun().moment());

    makeWindow(LandscapeOptions(), View(), 900, 460);
    window->open({files.out("sunny.zmt")});
    ASSERT_TRUE(settle()) << window->lastError().toStdString();
    EXPECT_EQ(sun().moment(), moment);
    EXPECT_LT(difference(lit, picture()), 1e-3);
    window->reload();
    ASSERT_TRUE(settle());
    EXPECT_EQ(sun().moment(), moment);
    EXPECT_LT(difference(lit, picture()), 1e-3);
}

TEST_F(SunTest, LightsTreesAndTheirVertices) {
    LandscapeOptions options;
    options.terrain = terrain;
    options.lighting = Lighting::Vertex;
    options.plain = true;
    const double before = ZMT::CORE::TerrainPainterGLSettings::getGeometryError();
    makeWindow(options, parseView("north"), 900, 460);
    window->open({});
    ASSERT_TRUE(settle()) << window->lastError().toStdString();
    sun().toggle();
    setClock(9);
    const double morning = brightness();
    setClock(15);
    EXPECT_GT(brightness(), morning + 10.0) << "the slope looks to the west";
    // Such light needs full detail, which the next window would begin with.
    ZMT::CORE::TerrainPainterGLSettings::setGeometryError(before);
}

TEST_F(SunTest, ShinesOnStreamingTerrainsThatHaveNoBakedLight) {
    for (const char * light : {"static", "normals", "none"}) {
        const std::string built = files.out(std::string(light) + ".ztt");
        ASSERT_EQ(0,
                  runProcess(ZMT_EXECUTABLE,
                             {"build", "terrain", terrain, built, "--level", "4", "--lighting", light}, files)
                      .status);
        makeWindow(LandscapeOptions(), parseView("north"), 900, 460);
        window->open({built});
        ASSERT_TRUE(settle()) << window->lastError().toStdString();
        sun().toggle();
        setClock(9);
        const double morning = brightness();
        setClock(15);
        const bool isBaked = light == std::string("static");
        EXPECT_EQ(sun().findChild<QLabel *>("sunProblem")->isHidden(), !isBaked) << light;
        EXPECT_EQ(view->landscape()->sun().has_value(), !isBaked) << light;
        if (isBaked)
            EXPECT_EQ(brightness(), morning);
        else
            EXPECT_GT(brightness(), morning + 5.0) << light;
    }
}

/// Light of cells with shapes of their own is drawn, not computed.
TEST_F(SunTest, ShinesOnBreakLines) {
    LandscapeOptions options;
    options.terrain = s_everest;
    options.breakLines = {ZMT_DATA_DIR "/everest_glaciers.geojson"};
    options.tree.maxVertices = 200;
    makeWindow(options, parseView("north"), 700, 480);
    window->open({});
    ASSERT_TRUE(settle()) << window->lastError().toStdString();
    sun().toggle();
    setClock(8);
    const auto morning = picture();
    setClock(16);
    EXPECT_GT(difference(morning, picture()), 0.3);
    EXPECT_EQ(window->lastError().toStdString(), "");
    setClock(8);
    EXPECT_LT(difference(morning, picture()), 1e-3);
}

class GridsAndContoursTest : public GroundTest {
protected:
    const Overlays & overlays() const { return std::as_const(*view->landscape()).overlays(); }
    std::string overlayName() const {
        return overlays().list().size() == 1 ? overlays().list()[0]->name() : "";
    }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) const {
        QTest::keyClick(view, key, modifiers);
        ASSERT_TRUE(settle());
    }
    /// The column of the picture's middle line that shows the ground so far in the east, in metres.
    int columnOf(double east) const {
        for (int x = 0; x < view->width(); ++x) {
            const auto ground = view->groundAt(QPointF(x + 0.5, middle().y()));
            if (ground && ground->x >= west + east) return x;
        }
        return -1;
    }
    void openWhite() {
        open();
        window->map()->tints()->choose("white");
        ASSERT_TRUE(settle());
    }
    /// As the scene was saved.
    void openScene(const std::string & path) const {
        window->open({path});
        ASSERT_TRUE(settle());
        ASSERT_EQ(window->lastError().toStdString(), "");
    }
    /// Darkest blue in a line of the picture around a column, from 0 to 255.
    int darkest(int column) const {
        const auto image = picture();
        int least = 255;
        for (int x = column - 2; x <= column + 2; ++x)
            least = std::min<int>(least, image->pixelComponentsU8(x, image->height() / 2 + 7)[2]);
        return least;
    }
};

TEST_F(GridsAndContoursTest, OtherContoursLookAsThoseBefore) {
    open();
    window->setContours(10.0);
    ASSERT_TRUE(settle());
    auto & list = view->landscape()->overlays();
    list.list()[0]->setOpacity(0.5);
    list.setStyle(*list.list()[0], ZMT::CORE::VectorStyleSheet::parse("color=#ff0000"));
    window->setContours(20.0);
    ASSERT_TRUE(settle());
    const auto looks = overlays().looks();
    ASSERT_EQ(looks.size(), 1U);
    EXPECT_EQ(looks[0].name, "contour lines, 20 m");
    EXPECT_EQ(looks[0].opacity, 0.5);
    EXPECT_EQ(looks[0].style, "color=#ff0000");
    list.list()[0]->setShown(false);
    window->setContours(5.0);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(overlays().looks()[0].isShown);
}

TEST_F(GridsAndContoursTest, AMapGridLiesAtRoundCoordinates) {
    openWhite();
    const auto bare = picture();
    press(Qt::Key_G, Qt::ShiftModifier);
    EXPECT_EQ(overlayName(), "map grid, 100 m");
    const auto lined = picture();
    EXPECT_GT(difference(bare, lined), 0.003);
    EXPECT_LT(darkest(columnOf(300.0)), darkest(columnOf(350.0)) - 40);
    window->reload();
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(lined, picture()), 1e-3) << "names are drawn from the start";
    press(Qt::Key_L, Qt::ShiftModifier);
    EXPECT_EQ(overlayName(), "map grid, 0.001°");
    EXPECT_GT(difference(lined, picture()), 0.003);
    ASSERT_TRUE(window->scenes()->saveIn(files.out("grid.zmt")));
    press(Qt::Key_L, Qt::ShiftModifier);
    EXPECT_TRUE(overlays().list().empty());
    EXPECT_LT(difference(bare, picture()), 1e-4);
    window->scenes()->edits().undo();
    EXPECT_EQ(overlayName(), "map grid, 0.001°");
    window->scenes()->edits().undo();
    EXPECT_EQ(overlayName(), "map grid, 100 m");
    window->scenes()->edits().setClean();
    openScene(files.out("grid.zmt"));
    EXPECT_EQ(overlayName(), "map grid, 0.001°");
}

TEST_F(GridsAndContoursTest, ContourLinesLieAtTheirHeights) {
    openWhite();
    const auto bare = picture();
    QTimer::singleShot(50, [] {
        auto * dialog = qobject_cast<QInputDialog *>(QApplication::activeModalWidget());
        ASSERT_TRUE(dialog);
        EXPECT_EQ(dialog->doubleValue(), 2.0) << "some forty lines";
        dialog->setDoubleValue(10.0);
        dialog->accept();
    });
    QTest::keyClick(view, Qt::Key_C);
    ASSERT_TRUE(settle());
    EXPECT_EQ(overlayName(), "contour lines, 10 m");
    // Cells have their heights in their middles: 130 m in the thirty-first.
    EXPECT_LT(darkest(columnOf(305.0)), darkest(columnOf(355.0)) - 40);
    const auto lined = picture();
    ASSERT_TRUE(window->scenes()->saveIn(files.out("lines.zmt")));
    window->setContours(20.0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(overlayName(), "contour lines, 20 m") << "in the place of those before";
    EXPECT_TRUE(window->scenes()->isModified());
    window->reload();
    ASSERT_TRUE(settle());
    EXPECT_EQ(overlayName(), "contour lines, 20 m");
    window->setContours({});
    ASSERT_TRUE(settle());
    EXPECT_TRUE(overlays().list().empty());
    EXPECT_LT(difference(bare, picture()), 1e-4);
    ASSERT_TRUE(window->scenes()->saveIn(files.out("none.zmt")));
    openScene(files.out("lines.zmt"));
    EXPECT_EQ(overlayName(), "contour lines, 10 m");
    EXPECT_LT(difference(lined, picture()), 1e-3);
}

TEST_F(GridsAndContoursTest, ContourLinesThatFailOrAreCancelledLeaveWhatWasThere) {
    open();
    window->setContours(10.0);
    ASSERT_TRUE(settle());
    window->setContours(1000.0);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->lastError().contains("would be none"); }))
        << window->lastError().toStdString();
    EXPECT_EQ(overlayName(), "contour lines, 10 m");
    EXPECT_EQ(window->scene().landscape.contours, 10.0);
    window->setContours(20.0);
    window->loader()->cancel();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !window->loader()->isRunning(); }));
    EXPECT_EQ(window->scene().landscape.contours, 10.0);
    EXPECT_EQ(overlayName(), "contour lines, 10 m");
    window->map()->sun()->toggle();
    EXPECT_TRUE(view->landscape()->sun()) << "what comes later is not cancelled";
}

TEST_F(GridsAndContoursTest, HeightsHaveTheColoursOfATable) {
    open();
    const auto usual = picture();
    TintPanel & panel = *window->map()->tints();
    panel.choose("grey");
    ASSERT_TRUE(settle());
    const QColor grey = color();
    EXPECT_NEAR(grey.red(), grey.blue(), 1);
    QTest::keyClick(view, Qt::Key_C, Qt::ShiftModifier);
    auto * rows = panel.findChild<QTableWidget *>("tintRows");
    EXPECT_TRUE(QTest::qWaitFor([&] { return rows->hasFocus(); }));
    rows->setCurrentCell(0, 0);
    QTest::keyClick(rows, Qt::Key_Insert);
    EXPECT_EQ(panel.tints().size(), 3U);
    EXPECT_TRUE(window->measuring()->line().empty()) << "the key of the window is another one";
    window->scenes()->edits().undo();
    EXPECT_EQ(panel.tints().size(), 2U);
    QTest::keyClick(view, Qt::Key_C, Qt::ShiftModifier);
    ASSERT_TRUE(settle());
    ASSERT_TRUE(window->scenes()->saveIn(files.out("grey.zmt")));
    const auto greyPicture = picture();
    window->scenes()->edits().undo();
    ASSERT_TRUE(settle());
    EXPECT_LT(difference(usual, picture()), 1e-4);
    EXPECT_TRUE(panel.tints().empty());
    window->scenes()->edits().setClean();
    openScene(files.out("grey.zmt"));
    EXPECT_EQ(panel.tints().size(), 2U);
    EXPECT_LT(difference(greyPicture, picture()), 1e-4);
}

} // namespace
