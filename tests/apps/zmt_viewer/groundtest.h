#pragma once

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include <QColor>
#include <QLabel>

#include <zmt/raster/gdal/coordinatesystem.h>

#include "support/smallgeotiff.h"
#include "support/zmtrun.h"
#include "viewertest.h"

/// A window that looks straight down on a small slope, which rises to the east by one in ten from 100 on. A
/// pixel shows less than two metres.
class GroundTest : public ViewerTest {
protected:
    static constexpr double west = 500'000.0, south = 3'100'000.0;
    static constexpr int columns = 64, rows = 48;
    static constexpr double cell = 10.0;

    /// The window comes with `open`.
    void SetUp() override {}

    static std::string slope() {
        SmallGeoTiff tiff{columns, rows};
        tiff.west = west;
        tiff.north = south + rows * cell;
        tiff.cell = cell;
        for (int i = 0; i < columns * rows; ++i)
            tiff.heights.push_back(100.0F + float(i % columns));
        return tiff.encode();
    }
    /// As the command line opens it.
    void open(LandscapeOptions options = {}) {
        options.terrain = terrain;
        options.method = TerrainMethod::Chunked;
        makeWindow(options, parseView("north"), 900, 460);
        window->open({});
        ASSERT_TRUE(settle()) << window->lastError().toStdString();
        activate();
    }
    void press(Qt::Key key) const {
        QTest::keyClick(view, key);
        ASSERT_TRUE(settle());
    }
    /// Longitude and latitude of a place, from the corner in the south-west.
    static std::string place(double x, double y, const char * format) {
        static const ZMT::RASTER::CoordinateSystem system(
            ZMT::RASTER::CoordinateSystem::parse("EPSG:32645").wkt);
        const auto at = system.toLonLat({west + x, south + y});
        char text[100];
        std::snprintf(text, sizeof text, format, at->longitude, at->latitude);
        return text;
    }

    /// Places of the widget whose colour is such a one, in a picture of its size.
    std::vector<QPoint> placesOf(bool (*isOne)(const QColor &)) const {
        const auto image = picture();
        std::vector<QPoint> places;
        for (int y = 0; y < image->height(); ++y)
            for (int x = 0; x < image->width(); ++x) {
                const auto * rgb = image->pixelComponentsU8(x, image->height() - 1 - y);
                if (isOne({rgb[0], rgb[1], rgb[2]})) places.emplace_back(x, y);
            }
        return places;
    }
    /// Of the picture's middle.
    QColor color() const {
        const auto image = picture();
        const auto * rgb = image->pixelComponentsU8(image->width() / 2, image->height() / 2);
        return {rgb[0], rgb[1], rgb[2]};
    }
    static bool isRed(const QColor & color) { return color.red() > color.blue() + 60 && color.green() < 60; }
    static bool isBlue(const QColor & color) { return color.blue() > color.red() + 60; }

    RunFolder files;
    const std::string terrain = files.write("slope.tif", slope());
};
