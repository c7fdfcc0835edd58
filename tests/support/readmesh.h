#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

/// A mesh as a file has it, read by rules of its own.
struct ReadMesh {
    using Vector = std::array<double, 3>;

    std::vector<Vector> positions; ///< as in the file
    std::vector<std::array<unsigned, 3>> triangles;
    std::vector<std::array<double, 2>> coordinates; ///< of the picture, from its lower left corner
    std::vector<Vector> normals;                    ///< of the triangles of an STL file
    bool isYUp = false;                             ///< by the format
    // What the file tells.
    Vector origin{};
    double scale = 0.0, error = -1.0;
    std::string system;
    std::string picture;   ///< the bytes that it holds
    std::string materials; ///< the file that it names

    /// By the suffix. Whatever is not as the format has it is a failure of the test.
    static ReadMesh read(const std::string & path);

    /// Easting, northing and height of a position.
    Vector onMap(const Vector & position) const;
    std::vector<Vector> mapPositions() const;
    /// Positive where it is closed and its triangles turn left as seen from outside.
    double volume() const;
    /// Edges, told by the positions of their ends, that do not have just one triangle for each direction.
    std::size_t openEdges() const;
};
