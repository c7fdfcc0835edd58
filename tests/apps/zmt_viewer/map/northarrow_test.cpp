#include "map/northarrow.h"

#include <cmath>

#include <QImage>
#include <QPixmap>
#include <QTest>

#include <gtest/gtest.h>

namespace {

/// Which way the red of the needle lies thickest from its sharp end, in degrees clockwise from up: the sharp
/// end points the other way.
double needleAngle(NorthArrow & arrow) {
    const QImage image = arrow.grab().toImage();
    double x = 0.0, y = 0.0, sum = 0.0;
    for (int row = 0; row < image.height(); ++row)
        for (int column = 0; column < image.width(); ++column) {
            const QColor color = image.pixelColor(column, row);
            if (color.red() < color.blue() + 50) continue;
            x += column + 0.5 - image.width() / 2.0;
            y += row + 0.5 - image.height() / 2.0;
            sum += 1.0;
        }
    EXPECT_GT(sum, 50.0);
    // The needle is broad at its tail.
    return std::atan2(-x / sum, y / sum) * 180.0 / M_PI;
}

TEST(NorthArrow, PointsToTheNorth) {
    NorthArrow arrow;
    for (const int heading : {0, 45, 90, 180, 225, 270}) {
        arrow.setHeading(heading * M_PI / 180.0);
        EXPECT_NEAR(std::remainder(needleAngle(arrow) + heading, 360.0), 0.0, 4.0) << heading;
    }
}

TEST(NorthArrow, IsClickedWithoutTakingTheKeys) {
    NorthArrow arrow;
    int clicks = 0;
    QObject::connect(&arrow, &NorthArrow::clicked, [&] { ++clicks; });
    QTest::mouseClick(&arrow, Qt::LeftButton);
    EXPECT_EQ(clicks, 1);
    EXPECT_EQ(arrow.focusPolicy(), Qt::NoFocus);
}

} // namespace
