#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace NBX {

/// What the program that reads models says about one: the model as its file has it, in its own axes and
/// units. Made of the standard library alone, since that program knows nothing else of ours.
///
/// Written and read on one machine, in its own byte order; numbers in front of the bytes that they count.
/// Reading trusts nothing: every count is held against the bytes that are left, every index against what it
/// points into.
struct ModelAnswer {
    enum Up : std::uint32_t { U_Unknown, U_X, U_Y, U_Z };
    /// The numbers of `TextureGL::WrapMode` that models know.
    enum Wrap : std::uint32_t { W_Repeat = 0, W_ClampToEdge = 2, W_MirroredRepeat = 4 };

    struct Texture {
        std::string name;                ///< for people
        std::uint32_t width = 0;         ///< of pixels in the place of a file: red, green, blue and alpha
        std::uint32_t height = 0;        ///< of these, the first line at the top
        std::vector<std::uint8_t> bytes; ///< an image file, or pixels
        bool operator==(const Texture &) const = default;
    };
    struct Material {
        std::string name;
        std::array<float, 4> color = {0.8F, 0.8F, 0.8F, 1.0F}; ///< alpha is the opacity
        std::array<float, 3> specular = {};
        float shininess = 0.0F;
        std::string texture;        ///< as the file names it, or empty
        std::int32_t embedded = -1; ///< number of one of `textures`, before `texture`
        std::uint32_t wrapS = W_Repeat, wrapT = W_Repeat;
        std::uint32_t isOpaque = 0; ///< 1 where the alpha of the texture means nothing
        bool operator==(const Material &) const = default;
    };
    struct Mesh {
        std::string name;
        std::uint32_t material = 0;
        std::vector<float> positions;         ///< three a vertex
        std::vector<float> normals;           ///< three a vertex, or none
        std::vector<float> colors;            ///< four a vertex, or none
        std::vector<float> coordinates;       ///< two a vertex, or none
        std::vector<std::uint32_t> triangles; ///< three vertices each
        bool operator==(const Mesh &) const = default;
    };
    struct Node {
        std::int32_t parent = -1; ///< stands before it; -1 for the first alone
        std::string name;
        std::array<double, 16> matrix = {}; ///< row by row, from the node to its parent
        std::vector<std::uint32_t> meshes;
        std::uint32_t isExact = 0; ///< 1 where the matrix has not gone through single precision
        bool operator==(const Node &) const = default;
    };

    std::string failure; ///< why there is no model; then the rest is empty
    std::uint32_t up = U_Unknown;
    double unit = 0.0; ///< metres; 0 where the file does not say
    std::vector<Texture> textures;
    std::vector<Material> materials;
    std::vector<Mesh> meshes;
    std::vector<Node> nodes;
    std::vector<std::string> leftOut; ///< what the model has and the answer has not, for people

    bool operator==(const ModelAnswer &) const = default;

    std::vector<std::uint8_t> bytes() const;
    /// False where `data` is no whole answer or contradicts itself; `answer` is then of no use.
    static bool read(const std::vector<std::uint8_t> & data, ModelAnswer & answer);
};

} // namespace NBX
