#include "map/scalebar.h"

#include <cmath>

#include <QImage>
#include <QPixmap>

#include <gtest/gtest.h>

namespace {

TEST(ScaleBar, IsARoundNumberOfMetresLong) {
    ScaleBar bar;
    for (int i = -30; i < 60; ++i) {
        const double scale = std::pow(10.0, i / 10.0);
        bar.setScale(scale);
        EXPECT_NEAR(bar.barLength() * scale, bar.metres(), bar.metres() * 1e-12);
        EXPECT_LE(bar.barLength(), 150.0 + 1e-6) << scale;
        EXPECT_GE(bar.barLength(), 59.9) << scale;
        EXPECT_GE(bar.width(), bar.barLength());
    }
    bar.setScale(10.0);
    EXPECT_EQ(bar.text(), "1 km");
    EXPECT_DOUBLE_EQ(bar.barLength(), 100.0);
}

TEST(ScaleBar, WithoutAScaleItIsHidden) {
    QWidget parent;
    ScaleBar bar(&parent);
    EXPECT_TRUE(bar.isHidden());
    bar.setScale(2.0);
    EXPECT_FALSE(bar.isHidden());
    for (const double scale : {0.0, -1.0, double(NAN), double(INFINITY)}) {
        bar.setScale(scale);
        EXPECT_TRUE(bar.isHidden()) << scale;
        EXPECT_EQ(bar.metres(), 0.0);
        bar.setScale(2.0);
    }
    bar.setScale({});
    EXPECT_TRUE(bar.isHidden());
}

TEST(ScaleBar, DrawsTheBarAsLongAsItSays) {
    ScaleBar bar;
    bar.setScale(1.0);
    const QImage image = bar.grab().toImage();
    // The longest white line.
    int longest = 0;
    for (int y = 0; y < image.height(); ++y) {
        int white = 0;
        for (int x = 0; x < image.width(); ++x)
            white += image.pixelColor(x, y).lightness() > 200;
        longest = std::max(longest, white);
    }
    EXPECT_NEAR(longest, bar.barLength(), 3.0);
}

} // namespace
