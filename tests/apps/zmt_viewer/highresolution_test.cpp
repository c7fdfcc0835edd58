// Windows on displays with two pixels of the screen for one of a window. The factor holds for a whole
// process, so the first test runs the others in one of their own.

#include <cmath>

#include <QImage>

#include "groundtest.h"
#include "support/environmentvariable.h"

namespace {

class HighResolution : public GroundTest {};

TEST(HighResolutionRun, TwoPixelsForOne) {
    const RunFolder folder;
    const EnvironmentVariable factor("QT_SCALE_FACTOR", "2");
    const RunResult run = runProcess(
        "/proc/self/exe",
        {"--gtest_filter=HighResolution.DISABLED_*", "--gtest_also_run_disabled_tests", "--gtest_color=no"},
        folder);
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_NE(run.output.find("[  PASSED  ] 3 tests"), std::string::npos) << run.output;
}

TEST_F(HighResolution, DISABLED_ThePictureIsDrawnInRealPixels) {
    open();
    ASSERT_EQ(view->devicePixelRatioF(), 2.0);
    EXPECT_EQ(int(view->canvas()->getWidth()), 2 * view->width());
    EXPECT_EQ(int(view->canvas()->getHeight()), 2 * view->height());
    EXPECT_EQ(picture()->width(), 2 * view->width());
    ASSERT_TRUE(window->savePicture(files.out("view.png")));
    const QImage saved(QString::fromStdString(files.out("view.png")));
    EXPECT_EQ(saved.size(), 2 * view->size());
    // What the window shows is that picture, and not a coarse one made larger.
    const QImage shown = view->grab().toImage();
    ASSERT_EQ(shown.size(), saved.size());
    unsigned different = 0;
    for (int y = saved.height() / 4; y < saved.height() * 3 / 4; y += 3) // without the signs over it
        for (int x = 0; x < saved.width(); x += 3) {
            const QColor a = shown.pixelColor(x, y), b = saved.pixelColor(x, y);
            different += std::abs(a.red() - b.red()) > 2 || std::abs(a.green() - b.green()) > 2;
        }
    EXPECT_EQ(different, 0U);
    window->resize(window->width() - 100, window->height() - 60);
    ASSERT_TRUE(QTest::qWaitFor([&] { return picture() && picture()->width() == 2 * view->width(); }));
}

/// The slope rises by one in ten, so that a height is a place.
TEST_F(HighResolution, DISABLED_PlacesUnderTheMouseAreThose) {
    open();
    const QPoint mouse(view->width() / 4, middle().y());
    const auto left = view->groundAt(mouse);
    const auto right = view->groundAt(QPointF(view->width() * 0.75, middle().y()));
    const auto center = view->groundAt(QPointF(view->width() * 0.5, view->height() * 0.5));
    ASSERT_TRUE(left && right && center);
    EXPECT_NEAR(center->x, west + columns * cell / 2.0, 3.0);
    EXPECT_NEAR(center->z, south + rows * cell / 2.0, 3.0);
    EXPECT_NEAR((left->x + right->x) / 2.0, center->x, 12.0) << "but for the slope";
    EXPECT_GT(right->x - left->x, 200.0);
    const QString height = QString("height %1").arg(left->y, 0, 'f', 1);
    EXPECT_TRUE(QTest::qWaitFor([&] {
        QTest::mouseMove(view, mouse + QPoint(3, 3));
        QTest::mouseMove(view, mouse);
        for (const QLabel * label : window->findChildren<QLabel *>())
            if (label->text().contains(height)) return true;
        return false;
    })) << height.toStdString();
}

TEST_F(HighResolution, DISABLED_FeaturesArePickedWhereTheyAreSeen) {
    const std::string line = files.write("line.geojson",
                                         R"({"type": "FeatureCollection",
            "crs": {"type": "name", "properties": {"name": "urn:ogc:def:crs:EPSG::32645"}},
            "features": [{"type": "Feature", "properties": {"name": "NAME"}, "geometry": {"type": "LineString",
                          "coordinates": [[500320, 3100020], [500320, 3100460]]}}]})");
    LandscapeOptions options;
    options.overlays = {{line, "", "color=#ff0000,width=4"}};
    open(options);
    std::vector<int> seen; // columns of the line in the picture's middle
    for (const QPoint & place : placesOf(isRed))
        if (place.y() == picture()->height() / 2) seen.push_back(place.x());
    ASSERT_FALSE(seen.empty());
    const double x = (seen.front() + seen.back()) / 2.0 / 2.0;
    const auto isFound = [&](double offset) {
        const auto at = view->seenAt(QPointF(x + offset, view->height() / 2.0));
        return at && !at->features.empty();
    };
    EXPECT_TRUE(isFound(0.0));
    EXPECT_TRUE(isFound(3.5)) << "the hand is as steady as on other displays";
    EXPECT_FALSE(isFound(9.0));
}

} // namespace
