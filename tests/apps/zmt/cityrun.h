#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <nbx/data/memorydataresource.h>
#include <nbx/image/imagereader.h>
#include <nbx/math/color.h>

#include "support/zmtrun.h"

/// Runs of the program with cities.
namespace CityRun {

inline const std::string s_models = ZMT_DATA_DIR "/../tests/data/models";
inline const std::string s_railway = ZMT_DATA_DIR "/../tests/data/railway/railway.kml";
inline const std::string s_heights = ZMT_DATA_DIR "/../tests/data/jacksboro_heights.tif";

inline RunResult zmt(const RunFolder & folder, std::vector<std::string> arguments) {
    return runProcess(ZMT_EXECUTABLE, arguments, folder);
}

/// A prism with a letter on it, upright, with its origin at X,Y,Z of a system.
inline RunResult buildPrismAt(const std::string & place, const std::string & system, const RunFolder & folder,
                              const std::string & out, const std::vector<std::string> & more = {}) {
    std::vector<std::string> arguments = {
        "build",    "city", s_models + "/prism.obj", "--up", "z",     "--at",         place,
        "--system", system, "--atlas-size",          "64",   "--out", folder.out(out)};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return zmt(folder, arguments);
}

/// In zone 33.
inline RunResult buildPrism(const RunFolder & folder, const std::string & out,
                            const std::vector<std::string> & more = {}) {
    return buildPrismAt("370000.25,5800000.5,40", "EPSG:32633", folder, out, more);
}

inline nlohmann::json infoOf(const RunFolder & folder, const std::string & path) {
    const RunResult run = zmt(folder, {"info", path, "--json"});
    EXPECT_EQ(run.status, 0) << run.errors;
    return nlohmann::json::parse(run.output);
}

inline void expectFailure(const RunResult & run, int status, const std::vector<std::string> & words) {
    EXPECT_EQ(run.status, status) << run.errors;
    for (const std::string & word : words)
        EXPECT_NE(run.errors.find(word), std::string::npos) << word << " is missing in " << run.errors;
}

/// Null for what is no picture.
inline NBX::SO<NBX::Image> pictureIn(const std::string & path) {
    const std::string bytes = readWhole(path);
    const NBX::SO<NBX::MemoryDataResource> data(
        new NBX::MemoryDataResource(static_cast<unsigned>(bytes.size()), true));
    std::copy(bytes.begin(), bytes.end(), static_cast<char *>(data->pointer()));
    return NBX::ImageReader::read(data.get(), NBX::ID());
}

/// The share of pixels that are not of the colour in the corner, the sky's.
inline double shownShare(const std::string & path) {
    const NBX::SO<NBX::Image> image = pictureIn(path);
    if (!image) return -1.0;
    const NBX::Color sky = image->getColor(0, 0);
    int shown = 0;
    for (int y = 0; y < image->height(); ++y)
        for (int x = 0; x < image->width(); ++x)
            shown += image->getColor(x, y) == sky ? 0 : 1;
    return double(shown) / (double(image->width()) * image->height());
}

inline std::string kmlOf(const std::string & model, const std::string & place) {
    return "<kml><Placemark><name>a house</name><Model>" + place + "<Link><href>" + model +
           "</href></Link></Model></Placemark></kml>";
}

} // namespace CityRun
