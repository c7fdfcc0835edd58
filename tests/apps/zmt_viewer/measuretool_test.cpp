#include "measuretool.h"

#include <cmath>

#include <QLabel>
#include <QStatusBar>

#include "map/profileplot.h"
#include "support/zmtrun.h"
#include "viewertest.h"

namespace {

class MeasureToolTest : public ViewerTest {
protected:
    MeasureTool & tool() const { return *window->measuring(); }
    std::string words() const { return window->findChild<QLabel *>("measured")->text().toStdString(); }
    void click(const QPoint & place) const { QTest::mouseClick(view, Qt::LeftButton, {}, place); }
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) const {
        QTest::keyClick(view, key, modifiers);
    }
    /// From the middle of the ground, in metres.
    MeasureTool::Point at(double east, double north) const {
        const auto & raster = *view->landscape()->grid().rasterData();
        return {(raster.minX() + raster.maxX()) / 2.0 + east, 0.0,
                (raster.minY() + raster.maxY()) / 2.0 + north};
    }

    RunFolder folder_;
};

TEST_F(MeasureToolTest, ClicksMakeALineWhileItIsOn) {
    load({s_everest});
    click(middle());
    EXPECT_TRUE(tool().line().empty());
    press(Qt::Key_M);
    const QString before = view->viewArguments();
    click(middle());
    click(middle() + QPoint(60, 30));
    ASSERT_EQ(tool().line().size(), 2U);
    EXPECT_EQ(tool().line()[0], *view->groundAt(middle()));
    EXPECT_EQ(view->viewArguments(), before) << "a click moves nothing";
    QTest::mousePress(view, Qt::LeftButton, {}, middle());
    QTest::mouseMove(view, middle() + QPoint(40, 0));
    QTest::mouseRelease(view, Qt::LeftButton, {}, middle() + QPoint(40, 0));
    EXPECT_EQ(tool().line().size(), 2U) << "a drag is no click";
    EXPECT_NE(view->viewArguments(), before);
    QTest::mouseMove(view, middle() + QPoint(-30, 40));
    press(Qt::Key_Insert);
    EXPECT_EQ(tool().line().size(), 3U);
    press(Qt::Key_Backspace);
    EXPECT_EQ(tool().line().size(), 2U);
    press(Qt::Key_M, Qt::ShiftModifier);
    EXPECT_TRUE(tool().line().empty());
    press(Qt::Key_M);
    click(middle());
    EXPECT_TRUE(tool().line().empty());
}

TEST_F(MeasureToolTest, TellsLengthsHeightsAndAreas) {
    load({s_everest});
    tool().add(at(-3000.0, 0.0));
    EXPECT_TRUE(words().find("Click on the ground") == 0) << words();
    tool().add(at(3000.0, 0.0));
    EXPECT_NE(words().find("6000.0 m on the map"), std::string::npos) << words();
    EXPECT_EQ(words().find("closed"), std::string::npos);
    const GroundProfile & profile = tool().plot()->profile();
    EXPECT_GT(profile.groundLength, 1.02 * profile.length);
    EXPECT_NEAR(profile.ascent - profile.descent,
                profile.samples.back().height - profile.samples.front().height, 1e-6);
    tool().add(at(3000.0, 2000.0));
    EXPECT_NE(words().find("closed: 6.0000 km² on the map"), std::string::npos) << words();
    view->setExaggeration(3.0);
    const std::string before = words();
    tool().removeLast();
    tool().add(at(3000.0, 2000.0));
    EXPECT_EQ(words(), before) << "true heights are measured";
}

TEST_F(MeasureToolTest, TheLineLiesOnTheGroundAndGoes) {
    load({s_everest});
    const auto bare = picture();
    tool().add(at(-3000.0, -3000.0));
    tool().add(at(3000.0, 3000.0));
    ASSERT_TRUE(settle());
    EXPECT_GT(difference(bare, picture()), 5e-4);
    tool().clear();
    ASSERT_TRUE(settle());
    EXPECT_EQ(difference(bare, picture()), 0.0);
    tool().add(at(0.0, 0.0));
    load({s_jacksboro});
    EXPECT_TRUE(tool().line().empty());
}

TEST_F(MeasureToolTest, TheProfileIsSaved) {
    load({s_everest});
    tool().add(at(-3000.0, 0.0));
    tool().add(at(3000.0, 0.0));
    ASSERT_TRUE(tool().saveProfile(folder_.out("p.csv")));
    const std::string table = readWhole(folder_.out("p.csv"));
    EXPECT_EQ(table, profileText(tool().plot()->profile()));
    ASSERT_TRUE(tool().saveProfile(folder_.out("p.png")));
    const QImage picture(QString::fromStdString(folder_.out("p.png")));
    EXPECT_EQ(picture.size(), QSize(1600, 500));
    EXPECT_EQ(picture.pixelColor(1500, 6), QColor(Qt::white));
    EXPECT_NE(picture.pixelColor(800, 470), QColor(Qt::white)) << "ground below the curve";
    EXPECT_FALSE(tool().saveProfile(folder_.out("p.xyz")));
    EXPECT_FALSE(tool().saveProfile(folder_.out("missing/p.csv")));
    EXPECT_EQ(folder_.results(), (std::vector<std::string>{"p.csv", "p.png"}));
}

TEST_F(MeasureToolTest, ThePlotTellsThePlaceUnderTheMouse) {
    load({s_everest});
    tool().add(at(-3000.0, 0.0));
    tool().add(at(3000.0, 0.0));
    ASSERT_TRUE(QTest::qWaitFor([&] { return tool().plot()->width() > 200; }) || true);
    std::vector<int> told;
    QObject::connect(tool().plot(), &ProfilePlot::pointed, window.get(),
                     [&](int sample) { told.push_back(sample); });
    auto * plot = tool().plot();
    const auto point = [&](double x) {
        QMouseEvent move(QEvent::MouseMove, QPointF(x, 40.0), plot->mapToGlobal(QPointF(x, 40.0)),
                         Qt::NoButton, {}, {});
        QApplication::sendEvent(plot, &move);
    };
    point(0.0);
    point(plot->width() - 1.0);
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0], 0);
    EXPECT_EQ(told[1], int(plot->profile().samples.size()) - 1);
    EXPECT_TRUE(window->statusBar()->currentMessage().startsWith("6000.0 m along the line"));
}

} // namespace
