#pragma once

#include <string>
#include <vector>

#include <zmt/core/terrain/texture/reliefimage.h>

/// Colours by height, sorted by height.
using HeightTints = std::vector<ZMT::CORE::ReliefImage::Tint>;

/// Tables to choose from, the usual one first.
const std::vector<std::string> & heightTintNames();
/// The table of that name for heights from `low` to `high`; the usual one for a name that is none.
HeightTints namedHeightTints(const std::string & name, double low, double high);

/// Sorts by height, and leaves the order of those for one height.
void sortHeightTints(HeightTints & tints);

/// Stores them as a `ZMT::UTIL::ColorTable`, whose names are heights, in one step. Throws
/// `NBX::IOException`.
void saveHeightTints(const HeightTints & tints, const std::string & path);
/// Reads such a file; there is at least one. Throws `DataError` for another one, and for a table with names
/// that are no heights.
HeightTints loadHeightTints(const std::string & path);
