// Checks first, then the raster's shape is computed once, and all cells are walked from in the order of their
// heights. What a stroke has covered, and the distance that others keep from it, stands in a mask, so that
// the higher one wins. Each stroke goes into the picture at once, and its line into the list where one is
// wanted.

#include <zmt/util/hachures/hachures.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include <nbx/image/memoryimage.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/progress.h>
#include <zmt/raster/relief/morphologicalparameters.h>

#include "util/hachures/brush.h"
#include "util/hachures/strokefield.h"
#include "util/hachures/strokewalk.h"

namespace ZMT::UTIL {

namespace {

using NBX::Image;
using RASTER::RasterData;
using Stroke = StrokeWalk::Stroke;

/// Seeds from one look at the user's wish to cancel to the next.
constexpr std::size_t s_seedsAtOnce = 256;
/// Seeds that lie ahead are fetched from memory while others are walked from.
constexpr std::size_t s_ahead = 12;

/// The size of the picture.
struct PictureSize {
    unsigned width, height;
};

NBX::SO<Image> newWhite(const PictureSize & size) {
    NBX::SO<Image> image(
        new NBX::MemoryImage(static_cast<int>(size.width), static_cast<int>(size.height), NBX::LS_Luminance));
    for (int y = 0; y < image->height(); ++y)
        std::memset(image->lineComponentsU8(y), 255, size.width);
    return image;
}

// --- brushes

/// The brushes of a drawing, from the thinnest to the thickest, and which of them draws what.
class Brushes {
public:
    virtual ~Brushes() = default;
    /// Edge of the thickest one.
    virtual int width() const = 0;
    /// White outside of what others may not touch around a stroke; null for sizes that were reported.
    virtual NBX::SO<Image> createMask(unsigned spacingFactor) const = 0;
    virtual const Image & at(const StrokeWalk::Point & point) const = 0;

protected:
    Brushes() = default;
    Brushes(const Brushes &) = default;
    Brushes & operator=(const Brushes &) = default;
};

class OneBrush : public Brushes {
public:
    explicit OneBrush(NBX::SO<Image> brush) : brush_(std::move(brush)) {}

    int width() const override { return brush_->width(); }
    NBX::SO<Image> createMask(unsigned spacingFactor) const override {
        // Of a brush that is higher than wide, too, the longer edge is that of the outer circle.
        const double a = double(brush_->width()) * spacingFactor,
                     b = double(brush_->height()) * spacingFactor;
        return Brush::createRound(std::max(a, b), std::min(a, b));
    }
    const Image & at(const StrokeWalk::Point &) const override { return *brush_; }

private:
    NBX::SO<Image> brush_;
};

/// By the values of another raster.
class DependentBrushes : public Brushes {
public:
    DependentBrushes(const RasterData & reference, const PictureSize & size, unsigned maxStrokeSize,
                     double blackValue, double whiteValue)
        : reference_(reference), size_(size), black_(blackValue), white_(whiteValue) {
        constexpr unsigned thinnest = 3;
        brushes_.reserve(maxStrokeSize);
        for (unsigned s = thinnest; s <= maxStrokeSize; ++s)
            brushes_.push_back(Brush::createRound(s, s - 2));
    }

    int width() const override { return brushes_.back()->width(); }
    NBX::SO<Image> createMask(unsigned spacingFactor) const override {
        const double edge = double(width()) * spacingFactor;
        return Brush::createRound(edge, edge);
    }
    const Image & at(const StrokeWalk::Point & point) const override {
        const double x = position(point.column, size_.width, reference_.minX(), reference_.maxX());
        const double y = position(point.line, size_.height, reference_.minY(), reference_.maxY());
        return *brushes_[numberFor(reference_.value(x, y))];
    }

private:
    static double position(int pixel, unsigned pixels, double low, double high) {
        return low + (high - low) * pixel / (pixels - 1.0);
    }
    std::size_t numberFor(double value) const {
        const std::size_t last = brushes_.size() - 1;
        const double t = (value - black_) / (white_ - black_);
        if (t > 1.0 || reference_.isUndefValue(value)) return 0;
        if (t < 0.0) return last;
        const double place = t * double(last), k = std::floor(place);
        return last - static_cast<std::size_t>(k) - (place - k > 0.5 ? 1 : 0);
    }

    const RasterData & reference_;
    PictureSize size_;
    double black_, white_;
    std::vector<NBX::SO<Image>> brushes_;
};

// --- the drawing

/// Points of a stroke, by their numbers.
struct Range {
    std::ptrdiff_t begin, end;
    bool contains(std::ptrdiff_t i) const { return i >= begin && i < end; }
};

Range drawnRange(const Stroke & stroke, int brushWidth, bool fullLength) {
    const auto count = static_cast<std::ptrdiff_t>(stroke.size());
    if (fullLength) return {0, count};
    return {brushWidth / 2 + 1, count - brushWidth / 2 - 1};
}

/// Where the lines of strokes are wanted.
class LineCollector {
public:
    LineCollector(const RASTER::GeoImage & place, std::vector<RASTER::StrokeLine> & lines)
        : place_(place), lines_(lines) {}

    void add(const Stroke & stroke, const Range & drawn, const Brushes & brushes) {
        isOpen_ = false;
        const auto above = stroke.first.empty() ? 0 : static_cast<std::ptrdiff_t>(stroke.first.size()) - 1;
        const auto count = static_cast<std::ptrdiff_t>(stroke.size());
        for (std::ptrdiff_t i = above; i-- > 0;)
            addPoint(stroke[static_cast<std::size_t>(i)], drawn.contains(i), brushes);
        for (std::ptrdiff_t i = above; i < count; ++i)
            addPoint(stroke[static_cast<std::size_t>(i)], drawn.contains(i), brushes);
    }

private:
    void addPoint(const StrokeWalk::Point & point, bool isDrawn, const Brushes & brushes) {
        if (isDrawn && !isOpen_) lines_.emplace_back();
        isOpen_ = isDrawn;
        if (!isDrawn) return;
        const double pixel = std::sqrt(place_.pixelSizeX() * place_.pixelSizeY());
        lines_.back().points.push_back({place_.minX() + point.x * place_.pixelSizeX(),
                                        place_.minY() + point.y * place_.pixelSizeY(),
                                        Brush::inkWidth(brushes.at(point)) * pixel});
    }

    const RASTER::GeoImage & place_;
    std::vector<RASTER::StrokeLine> & lines_;
    bool isOpen_ = false;
};

/// One picture that is drawn.
class Drawing {
public:
    Drawing(const RasterData & raster, const PictureSize & size, const Brushes & brushes,
            const HachureSettings & settings)
        : raster_(raster), size_(size), brushes_(brushes), settings_(settings), picture_(newWhite(size)) {}

    /// False for a mask that cannot be.
    bool prepareMask() {
        if (settings_.overlapping) return true;
        maskBrush_ = brushes_.createMask(settings_.spacingFactor);
        if (maskBrush_) mask_ = newWhite(size_);
        return static_cast<bool>(maskBrush_);
    }
    /// False when it was cancelled. `lines` may be null.
    bool run(std::vector<RASTER::StrokeLine> * lines);

    RASTER::GeoImage * takeImage() const {
        return new RASTER::GeoImage(picture_.get(), raster_.minX(), raster_.maxX(), raster_.minY(),
                                    raster_.maxY());
    }

private:
    void draw(const Stroke & stroke, const Range & range);

    const RasterData & raster_;
    PictureSize size_;
    const Brushes & brushes_;
    const HachureSettings & settings_;
    NBX::SO<Image> picture_, mask_, maskBrush_;
};

void Drawing::draw(const Stroke & stroke, const Range & range) {
    for (std::size_t i = 0; i < stroke.size(); ++i) {
        const StrokeWalk::Point & point = stroke[i];
        if (range.contains(static_cast<std::ptrdiff_t>(i)))
            Brush::stamp(brushes_.at(point), point.column, point.line, *picture_);
        if (mask_) Brush::stamp(*maskBrush_, point.column, point.line, *mask_);
    }
}

bool Drawing::run(std::vector<RASTER::StrokeLine> * lines) {
    NBX::Progress precomputing("Precomputing Hachures");
    const NBX::SO<RASTER::MorphologicalParameters> parameters(new RASTER::MorphologicalParameters(
        &raster_, static_cast<float>(settings_.scaling), settings_.windowSize,
        static_cast<float>(settings_.tolerance), &precomputing));
    if (precomputing.isCanceled()) return false;
    const StrokeField field(raster_, *parameters, size_.width, size_.height);
    const std::vector<std::uint32_t> seeds = field.cellsByHeight();
    precomputing.finish();

    const double ratio = double(size_.width) / raster_.cellsX() * raster_.cellsY() / double(size_.height);
    const StrokeWalk walk(field, settings_, *picture_, mask_.get(), ratio);
    const NBX::SO<RASTER::GeoImage> place(takeImage());
    Stroke stroke;
    NBX::Progress computing("Computing Hachures", double(seeds.size()));
    const std::size_t step = std::max(1U, settings_.seedStep);
    std::size_t untilLook = 0;
    for (std::size_t i = 0; i < seeds.size(); i += step) {
        if (untilLook-- == 0) {
            if (!computing.update(double(i))) return false;
            untilLook = s_seedsAtOnce;
        }
        if (i + s_ahead * step < seeds.size()) field.prefetch(seeds[i + s_ahead * step]);
        walk.run(seeds[i], stroke);
        if (stroke.size() < settings_.minNSteps || stroke.size() == 0) continue;
        const Range range = drawnRange(stroke, brushes_.width(), settings_.fullLength);
        draw(stroke, range);
        if (lines) LineCollector(*place, *lines).add(stroke, range, brushes_);
    }
    computing.finish();
    return true;
}

// --- what may be asked for

bool checkInput(const RasterData * rasterData, const PictureSize & size, const HachureSettings & settings) {
    const auto [width, height] = size;
    const double scaling = settings.scaling;
    const unsigned windowSize = settings.windowSize;
    const unsigned minNSteps = settings.minNSteps, maxNSteps = settings.maxNSteps;
    NBX_CHECK(rasterData, L"no raster data");
    NBX_CHECK(scaling > 0.0, L"scaling not positive");
    NBX_CHECK(windowSize > 1, L"windowSize not greater than 1");
    NBX_CHECK(minNSteps < maxNSteps, L"minimum number of steps is not less than maximum");
    NBX_CHECK(width > 1, L"width <= 1");
    NBX_CHECK(height > 1, L"height <= 1");
    return rasterData && scaling > 0.0 && windowSize > 1 && minNSteps < maxNSteps && width > 1 && height > 1;
}

bool checkReference(const RasterData * rasterData, const RasterData * referenceData, unsigned maxStrokeSize,
                    double blackValue, double whiteValue) {
    NBX_CHECK(referenceData, L"no reference data");
    NBX_CHECK(maxStrokeSize >= 5, L"max. stroke size < 5");
    NBX_CHECK(blackValue != whiteValue, L"black != white");
    if (!rasterData || !referenceData) return false;
    NBX_CHECK(rasterData->minX() == referenceData->minX(), L"unequal minX not supported");
    NBX_CHECK(rasterData->minY() == referenceData->minY(), L"unequal minY not supported");
    NBX_CHECK(rasterData->maxX() == referenceData->maxX(), L"unequal maxX not supported");
    NBX_CHECK(rasterData->maxY() == referenceData->maxY(), L"unequal maxY not supported");
    return maxStrokeSize >= 5 && blackValue != whiteValue && rasterData->minX() == referenceData->minX() &&
           rasterData->minY() == referenceData->minY() && rasterData->maxX() == referenceData->maxX() &&
           rasterData->maxY() == referenceData->maxY();
}

bool checkBrush(const Image * brush) {
    NBX_CHECK(brush, L"no brush");
    if (!brush) return false;
    const bool isBrush = brush->width() > 0 && brush->height() > 0 && brush->bitsPerPixel() == 8 &&
                         brush->numberOfLayers() == 1;
    NBX_CHECK(isBrush, L"a brush has one layer of 8 bits");
    return isBrush;
}

HachureDrawing drawn(const RasterData & raster, const PictureSize & size, const Brushes & brushes,
                     const HachureSettings & settings, bool wantsLines) {
    HachureDrawing result;
    Drawing drawing(raster, size, brushes, settings);
    if (drawing.prepareMask() && drawing.run(wantsLines ? &result.strokes : nullptr))
        result.image = drawing.takeImage();
    else
        result.strokes.clear();
    return result;
}

HachureDrawing drawnWith(const RasterData * raster, const PictureSize & size, const NBX::SO<Image> & brush,
                         const HachureSettings & settings, bool wantsLines) {
    if (!checkInput(raster, size, settings) || !brush) return {};
    return drawn(*raster, size, OneBrush(brush), settings, wantsLines);
}

HachureDrawing drawnBy(const RasterData * raster, const PictureSize & size, const RasterData * reference,
                       unsigned maxStrokeSize, double blackValue, double whiteValue,
                       const HachureSettings & settings, bool wantsLines) {
    const bool isUsable = checkInput(raster, size, settings);
    if (!checkReference(raster, reference, maxStrokeSize, blackValue, whiteValue) || !isUsable) return {};
    return drawn(*raster, size, DependentBrushes(*reference, size, maxStrokeSize, blackValue, whiteValue),
                 settings, wantsLines);
}

/// The same pixels for a caller who holds them by an `SO`.
RASTER::GeoImage * released(const HachureDrawing & drawing) {
    const RASTER::GeoImage * image = drawing.image.get();
    return image ? new RASTER::GeoImage(image->image().get(), image->minX(), image->maxX(), image->minY(),
                                        image->maxY())
                 : nullptr;
}

} // namespace

RASTER::GeoImage * Hachures::createHachures(RasterData * raster, unsigned width, unsigned height,
                                            double strokeSize, double innerStrokeSize, double scaling,
                                            unsigned windowSize, double tolerance, double minSlope,
                                            double minCurvature, double maxCurvature, double baseHeight,
                                            double heightInterval, bool fullLength, bool overlapping,
                                            unsigned spacingFactor, unsigned seedStep, unsigned minNSteps,
                                            unsigned maxNSteps) {
    return released(
        drawnWith(raster, {width, height}, Brush::createRound(strokeSize, innerStrokeSize),
                  {scaling, windowSize, tolerance, minSlope, minCurvature, maxCurvature, baseHeight,
                   heightInterval, fullLength, overlapping, spacingFactor, seedStep, minNSteps, maxNSteps},
                  false));
}

RASTER::GeoImage * Hachures::createHachuresWithBrush(
    RasterData * raster, unsigned width, unsigned height, NBX::SO<Image> brush, double scaling,
    unsigned windowSize, double tolerance, double minSlope, double minCurvature, double maxCurvature,
    double baseHeight, double heightInterval, bool fullLength, bool overlapping, unsigned spacingFactor,
    unsigned seedStep, unsigned minNSteps, unsigned maxNSteps) {
    if (!checkBrush(brush.get())) brush = nullptr;
    return released(
        drawnWith(raster, {width, height}, brush,
                  {scaling, windowSize, tolerance, minSlope, minCurvature, maxCurvature, baseHeight,
                   heightInterval, fullLength, overlapping, spacingFactor, seedStep, minNSteps, maxNSteps},
                  false));
}

RASTER::GeoImage * Hachures::createDependentHachures(
    RasterData * raster, unsigned width, unsigned height, RasterData * reference, unsigned maxStrokeSize,
    double blackValue, double whiteValue, double scaling, unsigned windowSize, double tolerance,
    double minSlope, double minCurvature, double maxCurvature, double baseHeight, double heightInterval,
    bool fullLength, bool overlapping, unsigned spacingFactor, unsigned seedStep, unsigned minNSteps,
    unsigned maxNSteps) {
    return released(
        drawnBy(raster, {width, height}, reference, maxStrokeSize, blackValue, whiteValue,
                {scaling, windowSize, tolerance, minSlope, minCurvature, maxCurvature, baseHeight,
                 heightInterval, fullLength, overlapping, spacingFactor, seedStep, minNSteps, maxNSteps},
                false));
}

HachureDrawing Hachures::draw(const RasterData * raster, unsigned width, unsigned height, double strokeSize,
                              double innerStrokeSize, const HachureSettings & settings) {
    return drawnWith(raster, {width, height}, Brush::createRound(strokeSize, innerStrokeSize), settings,
                     true);
}

HachureDrawing Hachures::drawWithBrush(const RasterData * raster, unsigned width, unsigned height,
                                       NBX::SO<Image> brush, const HachureSettings & settings) {
    if (!checkBrush(brush.get())) brush = nullptr;
    return drawnWith(raster, {width, height}, brush, settings, true);
}

HachureDrawing Hachures::drawDependent(const RasterData * raster, unsigned width, unsigned height,
                                       const RasterData * reference, unsigned maxStrokeSize,
                                       double blackValue, double whiteValue,
                                       const HachureSettings & settings) {
    return drawnBy(raster, {width, height}, reference, maxStrokeSize, blackValue, whiteValue, settings, true);
}

} // namespace ZMT::UTIL
