#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include <nbx/image/memoryimage.h>
#include <zmt/raster/relief/morphologicalparameters.h>
#include <zmt/util/hachures/hachuresettings.h>

#include "util/hachures/brush.h"

/// Hachures step by step, as slow as plain: what the fast ones are held against.
class PlainHachures {
public:
    using Raster = ZMT::RASTER::SimpleRasterData<float>;
    using Settings = ZMT::UTIL::HachureSettings;
    PlainHachures(const Raster & heights, unsigned columns, unsigned lines, const Settings & how,
                  const NBX::SO<NBX::Image> & with)
        : raster(heights), width(columns), height(lines), settings(how), brushes{with} {}
    /// With brushes by the values of another raster.
    PlainHachures(const Raster & heights, unsigned columns, unsigned lines, const Settings & how,
                  const Raster & by, unsigned maxStrokeSize, double blackValue, double whiteValue)
        : raster(heights), width(columns), height(lines), settings(how), reference(&by), black(blackValue),
          white(whiteValue) {
        for (unsigned s = 3; s <= maxStrokeSize; ++s)
            brushes.push_back(ZMT::UTIL::Brush::createRound(s, s - 2));
    }

    NBX::SO<NBX::Image> draw() {
        picture = whiteImage();
        mask = whiteImage();
        const NBX::SO<NBX::Image> brush = brushes.back();
        NBX::SO<NBX::Image> maskBrush;
        if (!settings.overlapping)
            maskBrush = ZMT::UTIL::Brush::createRound(brush->width() * settings.spacingFactor,
                                                      brush->height() * settings.spacingFactor);
        parameters = new ZMT::RASTER::MorphologicalParameters(&raster, float(settings.scaling),
                                                              settings.windowSize, float(settings.tolerance));
        ratio = double(width) / raster.cellsX() * raster.cellsY() / height;
        std::vector<Pixel> seeds;
        for (unsigned y = 0; y < raster.cellsY(); ++y)
            for (unsigned x = 0; x < raster.cellsX(); ++x)
                if (!raster.isUndefValue(raster.value(x, y))) seeds.push_back({int(x), int(y)});
        std::stable_sort(seeds.begin(), seeds.end(),
                         [&](Pixel a, Pixel b) { return heightOf(a) > heightOf(b); });
        for (std::size_t i = 0; i < seeds.size(); i += settings.seedStep)
            drawFrom(seeds[i], maskBrush);
        return picture;
    }

private:
    struct Pixel {
        int x, y;
    };

    NBX::SO<NBX::Image> whiteImage() const {
        NBX::SO<NBX::Image> image(new NBX::MemoryImage(int(width), int(height), NBX::LS_Luminance));
        for (unsigned y = 0; y < height; ++y)
            std::memset(image->lineComponentsU8(int(y)), 255, width);
        return image;
    }
    double heightOf(Pixel cell) const { return raster.value(unsigned(cell.x), unsigned(cell.y)); }
    /// NaN where it is nothing.
    double valueAt(const Raster & values, double px, double py) const {
        const double x = px * (raster.cellsX() - 1.0) / (width - 1.0);
        const double y = py * (raster.cellsY() - 1.0) / (height - 1.0);
        return values.value(values.minX() + x * values.cellSizeX(), values.minY() + y * values.cellSizeY());
    }
    double bandOf(double value) const {
        return std::floor((value * settings.scaling - settings.baseHeight) / settings.heightInterval);
    }

    std::vector<Pixel> walk(double & x, double & y, double band, bool isFirst) {
        std::vector<Pixel> points;
        for (unsigned counter = 0;
             counter < settings.maxNSteps / 2 && x >= 0 && y >= 0 && x < width - 1.5 && y < height - 1.5;
             ++counter) {
            double dx = valueAt(*parameters->coefficientX(), x, y);
            double dy = valueAt(*parameters->coefficientY(), x, y);
            const double slope = valueAt(*parameters->slope(), x, y);
            const double curvature = valueAt(*parameters->crossSectionCurvature(), x, y);
            const double value = valueAt(raster, x, y);
            if (std::isnan(dx) || std::isnan(dy) || std::isnan(slope) || std::isnan(curvature)) break;
            if (!(slope > settings.minSlope)) break;
            if (!(curvature > settings.minCurvature && curvature < settings.maxCurvature)) break;
            if (raster.isUndefValue(value) || bandOf(value) != band) break;
            dx *= ratio;
            if (dx != 0.0 && dy != 0.0) {
                const double length = std::hypot(dx, dy);
                dx /= length;
                dy /= length;
            }
            int px = int(std::floor(x + 0.5)), py = int(std::floor(y + 0.5));
            x -= dx;
            y -= dy;
            if (isFirst && x - px > 0.5) ++px;
            if (isFirst && y - py > 0.5) ++py;
            if (!settings.overlapping && *mask->pixelComponentsU8(px, py) != 255) break;
            points.push_back({px, py});
        }
        return points;
    }

    const NBX::Image & brushAt(Pixel point) const {
        if (!reference) return *brushes[0];
        const double value =
            reference->value(raster.minX() + (raster.maxX() - raster.minX()) / (width - 1.0) * point.x,
                             raster.minY() + (raster.maxY() - raster.minY()) / (height - 1.0) * point.y);
        const double t = (value - black) / (white - black);
        if (reference->isUndefValue(value) || t > 1.0) return *brushes.front();
        if (t < 0.0) return *brushes.back();
        const int count = int(brushes.size());
        int k = int(std::floor(t * (count - 1)));
        if (t * (count - 1) - k > 0.5) ++k;
        return *brushes[std::size_t(count - 1 - k)];
    }

    void drawFrom(Pixel seed, const NBX::SO<NBX::Image> & maskBrush) {
        double x = seed.x * (width - 1.0) / (raster.cellsX() - 1.0);
        double y = seed.y * (height - 1.0) / (raster.cellsY() - 1.0);
        const double band = bandOf(heightOf(seed));
        const std::vector<Pixel> first = walk(x, y, band, true), second = walk(x, y, band, false);
        std::vector<Pixel> points;
        for (std::size_t i = first.size(); i-- > 1;)
            points.push_back(first[i]);
        points.insert(points.end(), second.begin(), second.end());
        if (points.size() < settings.minNSteps) return;
        const int cut = settings.fullLength ? 0 : brushes.back()->width() / 2 + 1;
        for (int i = cut; i < int(points.size()) - cut; ++i) {
            const Pixel point = points[std::size_t(i)];
            ZMT::UTIL::Brush::stamp(brushAt(point), point.x, point.y, *picture);
        }
        if (settings.overlapping) return;
        for (const Pixel & point : points)
            ZMT::UTIL::Brush::stamp(*maskBrush, point.x, point.y, *mask);
    }

    const Raster & raster;
    unsigned width, height;
    Settings settings;
    std::vector<NBX::SO<NBX::Image>> brushes; ///< the thickest one last
    const Raster * reference = nullptr;
    double black = 0.0, white = 0.0;
    NBX::SO<NBX::Image> picture, mask;
    NBX::SO<ZMT::RASTER::MorphologicalParameters> parameters;
    double ratio = 1.0;
};
