#include "imageoptions.h"

#include <charconv>

#include "errors.h"

using ZMT::RASTER::ImageColors;

namespace {

template <class Value> Value entryOf(const std::vector<Value> & list, std::size_t image, Value usual) {
    if (list.size() == 1) return list.front();
    return image < list.size() ? list[image] : usual;
}

void checkCount(const char * option, std::size_t given, std::size_t images) {
    if (given <= 1 || given == images) return;
    throw UsageError(std::string(option) + " was given " + std::to_string(given) + " times, and there are " +
                     std::to_string(images) + " images; give it once, or once for each image");
}

} // namespace

ImageLook ImageOptions::lookOf(std::size_t image) const {
    ImageLook look;
    look.colors = entryOf(stretches, image, {});
    look.colors.bands = entryOf(bands, image, {}).bands;
    look.colors.gamma = entryOf(gammas, image, {}).gamma;
    look.opacity = entryOf(opacities, image, 1.0);
    look.cache = cache;
    return look;
}

ImageColors parseBands(const std::string & text) {
    ImageColors colors;
    if (!colors.setBands(text))
        throw UsageError("--bands must be three numbers of bands, R,G,B, or one, from 1 on: " + text);
    return colors;
}

ImageColors parseStretch(const std::string & text) {
    ImageColors colors;
    if (!colors.setStretch(text))
        throw UsageError("--stretch must be auto, none or two numbers MIN,MAX, the smaller one first: " +
                         text);
    return colors;
}

ImageColors parseGamma(const std::string & text) {
    ImageColors colors;
    if (!colors.setGamma(text)) throw UsageError("--gamma must be a number above 0, at most 100: " + text);
    return colors;
}

double parseOpacity(const std::string & text) {
    double value = -1.0;
    const char * end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || !(value >= 0.0 && value <= 1.0))
        throw UsageError("--opacity must be a number from 0 to 1: " + text);
    return value;
}

void checkImageOptions(const ImageOptions & options, std::size_t images) {
    checkCount("--bands", options.bands.size(), images);
    checkCount("--stretch", options.stretches.size(), images);
    checkCount("--gamma", options.gammas.size(), images);
    checkCount("--opacity", options.opacities.size(), images);
}
