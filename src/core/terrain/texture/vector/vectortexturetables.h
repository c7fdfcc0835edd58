#pragma once

#include <deque>
#include <utility>
#include <vector>

#include <nbx/container/map/lrumap.h>
#include <zmt/core/terrain/texture/vector/vectortexture.h>

#include "drawnboxes.h"

namespace ZMT::CORE {

/// What all vector textures share: the textures of patches, those to be drawn, and the course of frames.
/// Render thread. The patches in it are alive: they take themselves out when they die.
class VectorTextureTables {
public:
    using Patch = VectorTexture::Patch;
    using Texture = NBX::SO<NBX::Texture2DGL>;

    /// Lives as long as the process; ends without its textures.
    static VectorTextureTables & instance();

    // Values of the class.
    unsigned canvasSize = 1024;
    unsigned textureFormat;
    unsigned maxPatches = 35;
    unsigned samples = 1; ///< of each pixel that is drawn

    // The textures.

    bool hasTexture(Patch * patch) const { return textures_->contains(patch); }
    /// Null without one; counts as a use.
    Texture use(Patch * patch);
    unsigned textureCount() const { return textures_->size(); }
    /// Gives a patch its texture, which was just drawn, and drops the textures that were not used for longest
    /// as long as there are too many. Those drawn since the last frame but one, as far back as the render
    /// order list goes, are kept all the same, so that one picture does not drop what it shows.
    void store(Patch * patch, const Texture & texture);
    /// Takes out a patch and what is wanted of it.
    void forget(Patch * patch);
    /// Takes out the texture of a patch.
    void dropTexture(Patch * patch);
    void dropAllTextures();
    /// Patches drawn, the latest first.
    std::vector<Patch *> renderOrder() const;
    /// There is a place to begin with.
    void beginRenderOrder();

    // Textures that can be drawn into again.

    /// For another patch, unless there is no room for it. Only those of the card's own texels are kept.
    void giveBack(const Texture & texture);
    /// One of this size and format that nobody uses any more; null without one.
    Texture takeFromPool(unsigned size, unsigned format);
    std::size_t poolSize() const { return pool_.size(); }

    // The queue.

    void enqueue(Patch * patch, double priority);
    using Queue = NBX::NonPersistentDictionary<Patch *, double>;
    /// The patches that wait, and their priorities.
    const Queue & queue() const { return *queue_; }
    unsigned queueLength() const { return queue_->size(); }
    void clearQueue() { queue_->clear(); }
    /// The patches that wait, the most wanted first, as many as there is room for besides the textures that
    /// this picture or the last one used. Empties the queue.
    std::vector<NBX::SO<Patch>> takeQueue();
    /// True when there was no room for any patch that waited when the queue was taken last: nothing more
    /// comes as long as the view stays.
    bool isFull() const { return isFull_; }

    // Frames.

    void beginFrame(const TerrainPainterFrameManager::Info & info);
    /// Behind the run of the queue.
    void endFrame(const TerrainPainterFrameManager::Info & info);
    /// What the last picture showed, at the start of this one; undefined if that is not known.
    NBX::Bounds motionBox;
    /// Enters a texture into the set of those drawn as a whole in this picture; false when it was there.
    bool activate(const VectorTexture * texture) { return active_->insert(texture); }

    /// All objects of the class, for the end of frames.
    void enter(VectorTexture * texture, VectorTexture::Mapper * mapper);
    void leave(VectorTexture * texture);

private:
    struct Rendered {
        Patch * patch;
        unsigned long picture;
    };

    using Waiting = std::vector<std::pair<double, NBX::SO<Patch>>>; ///< with their priorities

    VectorTextureTables();
    void dropSurplus();
    /// Whether other patches wait than those that did when this was asked last.
    bool isNewWish(const Waiting & waiting);

    NBX::SO<NBX::LRUMap<Patch *, Texture>> textures_;
    NBX::SO<Queue> queue_;
    NBX::SO<NBX::NonPersistentHashTable<const VectorTexture *>> active_;
    NBX::SO<NBX::NonPersistentDictionary<VectorTexture *, NBX::SO<VectorTexture::Mapper>>> mappers_;
    std::deque<Rendered> renderOrder_;
    std::vector<Texture> pool_;
    std::vector<const Patch *> lastWishes_; ///< in the order of their addresses; those that live
    DrawnBoxes drawnBoxes_;
    unsigned long picture_ = 1;
    bool isFull_ = false;
};

} // namespace ZMT::CORE
