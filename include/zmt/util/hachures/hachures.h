#pragma once

#include <vector>

#include <nbx/image/image.h>
#include <nbx/object/so.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/vector/strokeline.h>
#include <zmt/util/hachures/hachuresettings.h>

namespace ZMT::RASTER {
class RasterData;
}

namespace ZMT::UTIL {

/// Hachures as a picture and as the lines of its strokes.
struct HachureDrawing {
    NBX::SO<RASTER::GeoImage> image; ///< null where there is no drawing
    /// From where a stroke begins down to its end, in the order in which they were drawn. Parts of a stroke
    /// that are not drawn divide it into several lines.
    std::vector<RASTER::StrokeLine> strokes;
};

/// Draws the relief of a height raster as hachures: short strokes that follow the line of steepest slope, in
/// rows between contours, thick or thin as another raster wishes.
///
/// Pictures have one layer of 8 bits, black on white; their corner pixels lie on the corner cells of the
/// raster. Cells are square in map units, or else the strokes are off the line of steepest slope; pixels need
/// not be. Strokes begin at the cells from the highest to the lowest, of equal ones row by row from the
/// south-western one; the same input gives the same picture. Where there is no data, strokes end. Arguments
/// that cannot be used are reported, and the result is null; also when a `Progress` was cancelled. Takes
/// about 50 bytes for each cell and 2 for each pixel.
class Hachures {
public:
    /// With a round brush, which is black up to the diameter `innerStrokeSize` and white from `strokeSize`
    /// on, in pixels, with even steps between; at least 1.5.
    static RASTER::GeoImage * createHachures(RASTER::RasterData * raster, unsigned width, unsigned height,
                                             double strokeSize, double innerStrokeSize, double scaling,
                                             unsigned windowSize, double tolerance, double minSlope,
                                             double minCurvature, double maxCurvature, double baseHeight,
                                             double heightInterval, bool fullLength, bool overlapping,
                                             unsigned spacingFactor, unsigned seedStep, unsigned minNSteps,
                                             unsigned maxNSteps);
    /// With any brush of one layer of 8 bits, white on its outside.
    static RASTER::GeoImage *
    createHachuresWithBrush(RASTER::RasterData * raster, unsigned width, unsigned height,
                            NBX::SO<NBX::Image> brush, double scaling, unsigned windowSize, double tolerance,
                            double minSlope, double minCurvature, double maxCurvature, double baseHeight,
                            double heightInterval, bool fullLength, bool overlapping, unsigned spacingFactor,
                            unsigned seedStep, unsigned minNSteps, unsigned maxNSteps);
    /// With round brushes of 3 to `maxStrokeSize` pixels, at least 5: the thickest where `reference` is
    /// `blackValue` or beyond, the thinnest where it is `whiteValue` or beyond, and where it holds no data.
    /// The corners of both rasters are the same; their numbers of cells may differ.
    static RASTER::GeoImage *
    createDependentHachures(RASTER::RasterData * raster, unsigned width, unsigned height,
                            RASTER::RasterData * reference, unsigned maxStrokeSize, double blackValue,
                            double whiteValue, double scaling, unsigned windowSize, double tolerance,
                            double minSlope, double minCurvature, double maxCurvature, double baseHeight,
                            double heightInterval, bool fullLength, bool overlapping, unsigned spacingFactor,
                            unsigned seedStep, unsigned minNSteps, unsigned maxNSteps);

    /// The same with the lines of the strokes: through the positions between pixels that a stroke went
    /// through, as wide as half of the brush is dark.
    static HachureDrawing draw(const RASTER::RasterData * raster, unsigned width, unsigned height,
                               double strokeSize, double innerStrokeSize, const HachureSettings & settings);
    static HachureDrawing drawWithBrush(const RASTER::RasterData * raster, unsigned width, unsigned height,
                                        NBX::SO<NBX::Image> brush, const HachureSettings & settings);
    static HachureDrawing drawDependent(const RASTER::RasterData * raster, unsigned width, unsigned height,
                                        const RASTER::RasterData * reference, unsigned maxStrokeSize,
                                        double blackValue, double whiteValue,
                                        const HachureSettings & settings);
};

} // namespace ZMT::UTIL
