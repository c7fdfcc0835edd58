#pragma once

#include <string>
#include <vector>

#include <zmt/raster/imagecolors.h>

/// How one image is shown.
struct ImageLook {
    ZMT::RASTER::ImageColors colors;
    double opacity = 1.0; ///< from 0 to 1
    bool cache = true;    ///< coarse levels that had to be made are kept for the next time
};

/// What was told of the images. Of each list the only entry holds for all images, several ones for one image
/// each, in their order.
struct ImageOptions {
    using Colors = ZMT::RASTER::ImageColors;

    std::vector<Colors> bands, stretches, gammas; ///< that member alone
    std::vector<double> opacities;
    bool cache = true;

    /// Of the image with this number; what is usual for those beyond the lists.
    ImageLook lookOf(std::size_t image) const;
};

// Each throws `UsageError`.
ZMT::RASTER::ImageColors parseBands(const std::string & text);
ZMT::RASTER::ImageColors parseStretch(const std::string & text);
ZMT::RASTER::ImageColors parseGamma(const std::string & text);
double parseOpacity(const std::string & text);

/// Throws `UsageError` where more was told, or less, than there are images.
void checkImageOptions(const ImageOptions & options, std::size_t images);
