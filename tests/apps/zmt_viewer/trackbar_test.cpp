#include "trackbar.h"

#include <QComboBox>
#include <QSlider>

#include "bookmarkmenu.h"
#include "flightrecorder.h"
#include "groundtest.h"
#include "theme.h"

#include <zmt/raster/vector/isotime.h>

namespace {

constexpr double s_length = 720.0; ///< of which nobody knows 600 seconds in the middle

class TrackBarTest : public GroundTest {
protected:
    /// East along the middle: 200 m in a minute, ten minutes without points, the next 200 m in a minute.
    std::string way() const {
        std::string text = R"(<gpx version="1.1"><trk>)";
        const auto add = [&](double x, int second) {
            char time[80];
            std::snprintf(time, sizeof time, "<time>2024-05-01T12:%02d:00Z</time></trkpt>", second / 60);
            text += place(x, 240.0, R"(<trkpt lon="%.9f" lat="%.9f">)") + time;
        };
        text += "<trkseg>";
        add(60.0, 0);
        add(260.0, 60);
        add(380.0, 660);
        add(580.0, 720);
        return text + "</trkseg></trk></gpx>";
    }
    /// Of the opaque pixels of the sign that plays.
    int signLightness() const {
        const auto * play = bar()->actions().value(0);
        const QImage sign = play->icon().pixmap(16, 16).toImage();
        int lightness = -1;
        for (int y = 0; y < sign.height(); ++y)
            for (int x = 0; x < sign.width(); ++x)
                if (sign.pixelColor(x, y).alpha() > 250) lightness = sign.pixelColor(x, y).lightness();
        return lightness;
    }
    void openTrack(const std::string & time = "") {
        LandscapeOptions options;
        options.tracks = {{files.write("way.gpx", way())}, time};
        open(options);
    }
    TrackBar * bar() const { return window->tracks(); }
    double time() const { return bar()->player()->time() - bar()->player()->track()->start(); }
    QSlider * slider() const { return bar()->findChild<QSlider *>("trackTime"); }
    QString text() const { return bar()->findChild<QLabel *>("trackTimeText")->text(); }
    double speed() const { return bar()->player()->speed(); }
    static bool isWay(const QColor & color) {
        return color.red() > 180 && color.green() < 90 && color.blue() < 90;
    }
    /// First and last column of it, in metres from the west; no range for none.
    std::pair<double, double> drawn() const {
        std::pair range(1e9, -1e9);
        for (const QPoint & p : placesOf(isWay)) {
            const auto ground = view->groundAt(p);
            if (!ground) continue;
            range = {std::min(range.first, ground->x - west), std::max(range.second, ground->x - west)};
        }
        return range;
    }
};

TEST_F(TrackBarTest, TheSignThatPlaysHasTheColourOfTheTheme) {
    openTrack();
    for (const auto & [theme, low, high] : {std::tuple("light", 0, 60), std::tuple("dark", 200, 255)}) {
        window->theme()->set(theme);
        QCoreApplication::processEvents();
        EXPECT_GE(signLightness(), low) << theme;
        EXPECT_LE(signLightness(), high) << theme;
    }
    window->theme()->set("system");
}

TEST_F(TrackBarTest, ADroppedTrackIsPlayedAndDrawn) {
    open();
    const auto shown = view->landscape();
    drop({files.write("way.gpx", way())});
    ASSERT_TRUE(settle());
    EXPECT_EQ(shown, view->landscape()) << "nothing is built anew";
    EXPECT_FALSE(std::as_const(*shown).overlays().empty());
    ASSERT_TRUE(bar()->isVisible());
    EXPECT_EQ(time(), s_length);
    EXPECT_NEAR(drawn().second, 580.0, 8.0);
    press(Qt::Key_Home);
    EXPECT_EQ(time(), 0.0);
}

TEST_F(TrackBarTest, IsThereForATrackAlone) {
    open();
    EXPECT_FALSE(bar()->isVisible());
    EXPECT_FALSE(bar()->player());
    for (const Qt::Key key : {Qt::Key_Space, Qt::Key_Comma, Qt::Key_J, Qt::Key_Home})
        QTest::keyClick(view, key);
    EXPECT_FALSE(bar()->isVisible());
}

TEST_F(TrackBarTest, TheSliderMovesTheMark) {
    openTrack();
    EXPECT_TRUE(bar()->isVisible());
    EXPECT_EQ(slider()->maximum(), slider()->value()) << "all of it at first";
    EXPECT_EQ("2024-05-01 12:12:00 UTC", text());
    EXPECT_NEAR(drawn().first, 60.0, 8.0);
    EXPECT_NEAR(drawn().second, 580.0, 12.0);
    slider()->setValue(slider()->maximum() / 24); // after 30 seconds
    ASSERT_TRUE(settle());
    EXPECT_NEAR(time(), 30.0, 0.1);
    EXPECT_NEAR(drawn().first, 60.0, 8.0);
    EXPECT_NEAR(drawn().second, 160.0, 14.0);
    slider()->setValue(slider()->maximum() / 2);
    ASSERT_TRUE(settle());
    EXPECT_NEAR(time(), 360.0, 0.1) << "a gap may be looked into";
    EXPECT_EQ("2024-05-01 12:06:00 UTC, nobody knows where", text());
    EXPECT_NEAR(drawn().second, 260.0, 8.0) << "no mark, and no way across it";
}

TEST_F(TrackBarTest, KeysMoveTheTime) {
    openTrack("+30");
    EXPECT_NEAR(time(), 30.0, 1e-6) << "as the command line says";
    QTest::keyClick(view, Qt::Key_K);
    EXPECT_NEAR(time(), 30.0 + s_length / 100.0, 1e-6);
    QTest::keyClick(view, Qt::Key_J);
    QTest::keyClick(view, Qt::Key_J);
    EXPECT_NEAR(time(), 30.0 - s_length / 100.0, 1e-6);
    QTest::keyClick(view, Qt::Key_End);
    EXPECT_EQ(s_length, time());
    EXPECT_EQ(slider()->maximum(), slider()->value());
    press(Qt::Key_Home);
    EXPECT_EQ(0.0, time());
    EXPECT_NEAR(drawn().second, 60.0, 12.0);
}

TEST_F(TrackBarTest, SpeedsAreChosenByKeysAndBegunWithOneThatFits) {
    openTrack();
    auto * choice = bar()->findChild<QComboBox *>("trackSpeed");
    EXPECT_EQ(30.0, speed()) << "twelve minutes in less than one";
    EXPECT_EQ("30 ×", choice->currentText());
    QTest::keyClick(view, Qt::Key_Period);
    EXPECT_EQ(60.0, speed());
    QTest::keyClick(view, Qt::Key_Comma);
    QTest::keyClick(view, Qt::Key_Comma);
    EXPECT_EQ(10.0, speed());
    for (int i = 0; i < 20; ++i)
        QTest::keyClick(view, Qt::Key_Comma);
    EXPECT_EQ(1.0, speed());
}

TEST_F(TrackBarTest, PlaysToTheEndWithoutTheGap) {
    openTrack("+0");
    bar()->findChild<QComboBox *>("trackSpeed")->setCurrentIndex(8); // 600 times
    ASSERT_EQ(600.0, speed());
    std::vector<double> times;
    QObject::connect(bar(), &TrackBar::moved, bar(), [&] { times.push_back(time()); });
    const unsigned frames = view->frames().count;
    QTest::keyClick(view, Qt::Key_Space);
    EXPECT_TRUE(bar()->player()->isPlaying());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !bar()->player()->isPlaying(); }));
    ASSERT_TRUE(settle());
    EXPECT_EQ(s_length, time());
    EXPECT_GE(times.size(), 3U);
    EXPECT_TRUE(std::is_sorted(times.begin(), times.end()));
    for (const double one : times)
        EXPECT_TRUE(one <= 60.0 || one >= 660.0) << one;
    EXPECT_GT(view->frames().count, frames + 1) << "and is drawn meanwhile";
    EXPECT_NEAR(drawn().second, 580.0, 12.0);
}

TEST_F(TrackBarTest, PausesAndAsksForNoFramesThen) {
    openTrack("+0");
    QTest::keyClick(view, Qt::Key_Comma);
    QTest::keyClick(view, Qt::Key_Space);
    ASSERT_TRUE(QTest::qWaitFor([&] { return time() > 0.5; }));
    QTest::keyClick(view, Qt::Key_Space);
    EXPECT_FALSE(bar()->player()->isPlaying());
    ASSERT_TRUE(settle());
    const double paused = time();
    EXPECT_LT(paused, 60.0);
    const unsigned before = view->frames().count;
    QTest::qWait(200);
    EXPECT_EQ(before, view->frames().count);
    EXPECT_EQ(paused, time());
}

/// Otherwise what they show would depend on how long they take.
TEST_F(TrackBarTest, StandsStillInSavedFlights) {
    openTrack("+0");
    window->bookmarks()->add();
    QTest::keyClick(view, Qt::Key_Space);
    ASSERT_TRUE(bar()->player()->isPlaying());
    window->bookmarks()->saveFlight(files.out("flight"));
    EXPECT_FALSE(bar()->player()->isPlaying());
    EXPECT_TRUE(window->bookmarks()->recorder()->isRunning());
    window->bookmarks()->recorder()->cancel();
    bar()->pause();
    EXPECT_FALSE(bar()->player()->isPlaying());
}

TEST_F(TrackBarTest, TimeAndSpeedOutliveWhatIsOpenedBesideIt) {
    openTrack("+30");
    QTest::keyClick(view, Qt::Key_Period);
    drop({files.write(
        "area.geojson",
        R"({"type":"Polygon","coordinates":[[[87,28.02],[87.001,28.02],[87.001,28.021],[87,28.02]]]})")});
    ASSERT_TRUE(settle());
    EXPECT_NEAR(time(), 30.0, 1e-6);
    window->reload();
    ASSERT_TRUE(settle());
    EXPECT_NEAR(time(), 30.0, 1e-6);
    EXPECT_EQ(60.0, speed());
    drop({s_everest});
    ASSERT_TRUE(settle());
    EXPECT_FALSE(bar()->isVisible()) << "it goes with its terrain";
}

} // namespace
