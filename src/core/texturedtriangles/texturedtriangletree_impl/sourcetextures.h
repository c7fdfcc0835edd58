#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include <nbx/image/image.h>

#include "trianglecontainer.h"

namespace ZMT::CORE {

/// The source textures of all meshes that are being built into a tree, numbered in the order in which the
/// meshes have them, and as many of their images as may be decoded at once.
class SourceTextures {
public:
    /// Images that are kept, and the bytes of their pixels; those that were loaded first make room.
    static constexpr std::size_t s_mostImages = 50;
    static constexpr std::uint64_t s_mostBytes = std::uint64_t{512} << 20;

    explicit SourceTextures(const TriangleContainer & container, std::uint64_t mostBytes = s_mostBytes);

    unsigned size() const { return static_cast<unsigned>(textures_.size()); }
    /// The texture of a mesh; meshes share textures. -1 for a mesh without one.
    int numberOf(unsigned mesh) const { return numbers_[mesh]; }
    const TextureWrapper & wrapper(unsigned number) const { return *textures_[number]; }
    /// The first texture that shows the same picture, whatever the wrap modes; all of them have its image.
    unsigned pictureOf(unsigned number) const { return pictures_[number]; }
    /// Decoded now unless it is kept. Null where there is none, which is reported the first time under
    /// "texData" with "no texture". Valid until the next call. Who still uses the image that was loaded last
    /// lets it go when `letGo` is called, if that makes room too.
    NBX::SO<NBX::Image> image(unsigned number, const std::function<void()> & letGo = {});
    /// What stands in for an image that cannot be had: 4 by 4 texels of light grey, RGBA.
    static NBX::SO<NBX::Image> standIn();
    /// Images that were decoded so far.
    unsigned loads() const { return loads_; }
    /// Of the pixels of all that are kept: more than they may take for a single image only.
    std::uint64_t bytes() const { return bytes_; }

private:
    struct Kept {
        unsigned number;
        NBX::SO<NBX::Image> image;
        std::uint64_t bytes;
    };
    std::uint64_t bytesToCome(const TextureWrapper & wrapper) const;
    void makeRoom(std::uint64_t bytes, const std::function<void()> & letGo);

    std::vector<NBX::SO<TextureWrapper>> textures_;
    std::vector<unsigned> pictures_; ///< by number, as is what follows
    std::vector<bool> isReported_;
    std::vector<int> numbers_; ///< by mesh
    std::deque<Kept> kept_;    ///< the oldest first
    const std::uint64_t mostBytes_;
    std::uint64_t bytes_ = 0; ///< of those that are kept
    unsigned loads_ = 0;
};

} // namespace ZMT::CORE
