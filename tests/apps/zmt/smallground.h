#pragma once

// Of the rasters that several tests of the program make: cells, and in metres a cell and the north-western
// corner.
inline constexpr unsigned s_width = 41, s_height = 29;
inline constexpr double s_cell = 32.0, s_west = 500000.0, s_north = 3100000.0;
