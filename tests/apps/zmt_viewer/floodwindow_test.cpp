// The flood in the window: switched on and moved by the panel and by keys.

#include <QSlider>

#include "groundtest.h"
#include "valueslider.h"

namespace {

class FloodWindowTest : public GroundTest {
protected:
    bool isOn() const { return item("Flood")->checkState(0) == Qt::Checked; }
    ValueSlider * height() const { return layers().findChild<ValueSlider *>("floodHeight"); }
    QSlider * handle() const { return height()->findChild<QSlider *>(); }
    static bool isWater(const QColor & color) { return color.red() > 200 && color.green() < 30; }
    /// Height of the ground at the eastern end of the water in the middle of the picture; 0 without any.
    double shore() const {
        int column = -1;
        for (const QPoint & p : placesOf(isWater))
            if (p.y() == view->height() / 2) column = std::max(column, p.x());
        const auto ground = column < 0 ? std::nullopt : view->groundAt(QPointF(column + 1.0, middle().y()));
        return ground ? ground->y : 0.0;
    }
    /// Of a colour that nothing else has.
    static LandscapeOptions flooded(double height) {
        LandscapeOptions options;
        options.flood = FloodOptions{height, NBX::Color::red};
        return options;
    }
};

TEST_F(FloodWindowTest, IsSwitchedOnAndMoved) {
    open(flooded(99.0));
    EXPECT_TRUE(isOn());
    EXPECT_EQ(0.0, shore());
    for (const int position : {60, 120, 180}) {
        handle()->setValue(position);
        ASSERT_TRUE(settle());
        EXPECT_NEAR(height()->value(), 100.0 + 63.0 * position / 200.0, 0.2);
        EXPECT_NEAR(shore(), height()->value(), 0.4) << position;
    }
    const double before = height()->value();
    press(Qt::Key_PageDown);
    EXPECT_LT(height()->value(), before);
    press(Qt::Key_PageUp);
    EXPECT_EQ(height()->value(), before);
    press(Qt::Key_G);
    EXPECT_FALSE(isOn());
    EXPECT_TRUE(placesOf(isWater).empty());
    press(Qt::Key_PageUp);
    EXPECT_EQ(height()->value(), before) << "what is off is not moved";
}

TEST_F(FloodWindowTest, IsOffAtFirst) {
    open();
    EXPECT_FALSE(isOn());
    EXPECT_NEAR(height()->value(), 100.0, 1e-6) << "the lowest ground";
    const auto dry = picture();
    handle()->setValue(100);
    ASSERT_TRUE(settle());
    EXPECT_EQ(0.0, difference(dry, picture()));
    press(Qt::Key_G);
    EXPECT_TRUE(isOn());
    EXPECT_GT(difference(dry, picture()), 0.1);
}

TEST_F(FloodWindowTest, OfTheCommandLineIsOnAndOutlivesAReload) {
    open(flooded(120.0));
    EXPECT_TRUE(isOn());
    EXPECT_DOUBLE_EQ(height()->value(), 120.0);
    EXPECT_NEAR(shore(), 120.0, 0.4);
    handle()->setValue(150);
    const double moved = height()->value();
    window->reload();
    ASSERT_TRUE(settle());
    EXPECT_TRUE(isOn());
    EXPECT_DOUBLE_EQ(height()->value(), moved);
    EXPECT_NEAR(shore(), moved, 0.4);
    drop({s_everest});
    ASSERT_TRUE(settle());
    EXPECT_FALSE(isOn()) << "that of another terrain";
}

TEST_F(FloodWindowTest, ItsOpacityIsSet) {
    open(flooded(120.0));
    ASSERT_TRUE(item("Flood"));
    QPoint west(0, view->height() / 2);
    while (!view->groundAt(west) && west.x() < view->width())
        west += QPoint(1, 0);
    west += QPoint(20, 0);
    const auto colorThere = [&] {
        const auto image = picture();
        const auto * rgb = image->pixelComponentsU8(west.x(), image->height() - 1 - west.y());
        return QColor(rgb[0], rgb[1], rgb[2]);
    };
    auto * opacity = layers().findChild<QWidget *>("layerOpacity")->findChild<QSlider *>();
    EXPECT_EQ(opacity->value(), opacity->maximum());
    opacity->setValue(opacity->maximum() / 2);
    ASSERT_TRUE(settle());
    const QColor half = colorThere();
    opacity->setValue(0);
    ASSERT_TRUE(settle());
    const QColor dry = colorThere();
    EXPECT_TRUE(isOn());
    EXPECT_FALSE(isWater(dry));
    EXPECT_NEAR(half.red(), (dry.red() + 255) / 2, 3);
    EXPECT_NEAR(half.green(), dry.green() / 2, 3);
}

TEST_F(FloodWindowTest, AtRestNoFrameIsAskedFor) {
    open(flooded(120.0));
    QTest::qWait(100);
    const unsigned before = view->frames().count;
    QTest::qWait(200);
    EXPECT_EQ(before, view->frames().count);
}

} // namespace
