#pragma once

#include <string>

// Round numbers, for marks and scales: 1, 2 or 5 times a power of ten.

/// The least one that is not below `least`, which is above 0.
double roundNumberFrom(double least);
/// The largest one that is not above `most`, which is above 0.
double roundNumberTo(double most);

/// A round length as people write it: "500 m", from 1000 m on "2 km".
std::string roundLengthText(double metres);
