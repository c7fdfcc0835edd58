#pragma once

#include <array>
#include <optional>
#include <string>

namespace NBX {

/// A model that was brought near its origin: what follows in single precision would lose half a metre of
/// coordinates such as those of maps.
struct NearModel {
    std::string text;
    std::array<double, 3> origin; ///< of the text's coordinates, in those of the file
};

/// Coordinates below this are left as they are.
inline constexpr double s_far = 10000.0;

/// The text of an OBJ file; nothing where it is near already, or is written in a way that is not understood.
std::optional<NearModel> nearObj(const std::string & text);
/// The text of a COLLADA file, where the outermost nodes are far away, or, where none of the nodes has a
/// transformation, the vertices.
std::optional<NearModel> nearCollada(const std::string & text);
/// The bytes of a PLY file of any of its three formats, where the positions of its vertices are text, or
/// numbers of double precision.
std::optional<NearModel> nearPly(const std::string & bytes);

} // namespace NBX
