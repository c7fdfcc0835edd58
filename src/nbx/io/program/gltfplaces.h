#pragma once

#include <array>
#include <memory>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace NBX {

/// The transformations of the nodes of a glTF file as its text has them, in double precision: coordinates of
/// maps stand there, and single precision would lose up to half a metre of them.
class GltfPlaces {
public:
    /// A node of the file, or what stands above several outermost ones.
    class Node {
    public:
        std::size_t children() const;
        Node child(std::size_t i) const;
        /// Row by row; nothing of value where the file says something else than numbers, so compare it.
        std::array<double, 16> matrix() const;

    private:
        friend class GltfPlaces;
        const nlohmann::json * nodes = nullptr;
        const nlohmann::json * outermost = nullptr; ///< their numbers; null for a node of the file
        const nlohmann::json * node = nullptr;      ///< null where the file has none
    };

    /// `bytes` of a text, or of a binary file. What is not understood has a root without children.
    explicit GltfPlaces(const std::string & bytes);
    ~GltfPlaces();
    GltfPlaces(const GltfPlaces &) = delete;
    GltfPlaces & operator=(const GltfPlaces &) = delete;

    /// The only outermost node of the scene that is shown, or what holds all of them. Borrows the object.
    Node root() const;

private:
    std::unique_ptr<const nlohmann::json> document_;
};

} // namespace NBX
