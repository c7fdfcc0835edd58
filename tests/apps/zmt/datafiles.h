#pragma once

#include <string>

// The data that several tests of the program read.
inline const std::string s_data = ZMT_DATA_DIR "/../tests/data/";
inline const std::string s_everestHeights = s_data + "everest_heights.tif";
inline const std::string s_everestImage = s_data + "everest_image.tif";
inline const std::string s_jacksboroHeights = s_data + "jacksboro_heights.tif";
inline const std::string s_glaciers = ZMT_DATA_DIR "/everest_glaciers.geojson";
