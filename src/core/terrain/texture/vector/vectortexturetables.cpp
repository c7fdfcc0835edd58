// The order of use is that of the table of textures; the render order list, behind it, keeps what was drawn
// last from being dropped by what is drawn next. Frames are those of terrains, pictures those of canvases:
// what holds for a view holds for the picture, in which several terrains may be painted.

#include "vectortexturetables.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "vectortexturecanvasgl.h"
#include "vectortextureimagegl.h"

namespace ZMT::CORE {

namespace {

constexpr std::size_t s_mostRendered = 9;

} // namespace

VectorTextureTables::VectorTextureTables()
    : textureFormat(VectorTextureImageGL::usualFormat()), textures_(new NBX::LRUMap<Patch *, Texture>),
      queue_(new NBX::NonPersistentDictionary<Patch *, double>),
      active_(new NBX::NonPersistentHashTable<const VectorTexture *>),
      mappers_(new NBX::NonPersistentDictionary<VectorTexture *, NBX::SO<VectorTexture::Mapper>>) {}

VectorTextureTables & VectorTextureTables::instance() {
    // Never destroyed, since textures may go while libraries unload.
    static auto & tables = *new VectorTextureTables;
    return tables;
}

VectorTextureTables::Texture VectorTextureTables::use(Patch * patch) {
    const Texture * texture = textures_->find(patch);
    if (!texture) return nullptr;
    patch->lastPicture = picture_;
    return *texture;
}

void VectorTextureTables::store(Patch * patch, const Texture & texture) {
    textures_->insert(patch, texture);
    patch->lastPicture = picture_;
    std::erase_if(renderOrder_, [patch](const Rendered & rendered) { return rendered.patch == patch; });
    renderOrder_.push_front({patch, picture_});
    queue_->remove(patch);
    dropSurplus();
}

void VectorTextureTables::dropSurplus() {
    while (textures_->size() > maxPatches) {
        Patch * oldest = textures_->oldest()->first;
        if (!renderOrder_.empty() && oldest == renderOrder_.back().patch) return;
        dropTexture(oldest);
    }
}

void VectorTextureTables::dropTexture(Patch * patch) {
    const Texture * known = textures_->peek(patch);
    if (!known) return;
    const Texture texture = *known;
    textures_->remove(patch);
    giveBack(texture);
}

void VectorTextureTables::forget(Patch * patch) {
    isFull_ = false;
    dropTexture(patch);
    queue_->remove(patch);
    // The next one may be made at its address.
    std::erase(lastWishes_, patch);
    std::erase_if(renderOrder_, [patch](const Rendered & rendered) { return rendered.patch == patch; });
}

void VectorTextureTables::dropAllTextures() {
    textures_->clear();
    pool_.clear();
}

std::vector<VectorTextureTables::Patch *> VectorTextureTables::renderOrder() const {
    std::vector<Patch *> patches;
    patches.reserve(renderOrder_.size());
    for (const Rendered & rendered : renderOrder_)
        patches.push_back(rendered.patch);
    return patches;
}

void VectorTextureTables::beginRenderOrder() {
    if (renderOrder_.empty()) renderOrder_.push_back({nullptr, 0});
}

void VectorTextureTables::giveBack(const Texture & texture) {
    const bool hasRoom = textures_->size() + pool_.size() <= maxPatches;
    if (hasRoom && VectorTextureImageGL::canBeDrawnAgain(texture.get())) pool_.push_back(texture);
}

VectorTextureTables::Texture VectorTextureTables::takeFromPool(unsigned size, unsigned format) {
    std::erase_if(pool_, [&](const Texture & texture) {
        return texture->getWidth() != size || texture->getInternalFormat() != format;
    });
    // Who still holds one may show it in this picture.
    const auto unused = std::find_if(pool_.begin(), pool_.end(),
                                     [](const Texture & texture) { return texture->references() == 1; });
    if (unused == pool_.end()) return nullptr;
    const Texture texture = *unused;
    pool_.erase(unused);
    return texture;
}

void VectorTextureTables::enqueue(Patch * patch, double priority) {
    if (double * known = queue_->find(patch))
        *known += priority;
    else
        queue_->insert(patch, priority);
}

bool VectorTextureTables::isNewWish(const Waiting & waiting) {
    std::vector<const Patch *> wishes;
    wishes.reserve(waiting.size());
    for (const auto & [priority, patch] : waiting)
        wishes.push_back(patch.get());
    std::sort(wishes.begin(), wishes.end(), std::less<>());
    return std::exchange(lastWishes_, wishes) != wishes;
}

std::vector<NBX::SO<VectorTextureTables::Patch>> VectorTextureTables::takeQueue() {
    Waiting waiting;
    waiting.reserve(queue_->size());
    for (unsigned i = 0; i < queue_->size(); ++i)
        if (Patch * patch = queue_->key(i); patch->boundingBox().isDefined())
            waiting.emplace_back(queue_->value(i), patch);
    queue_->clear();
    std::stable_sort(waiting.begin(), waiting.end(),
                     [](const auto & a, const auto & b) { return a.first > b.first; });

    const auto & entries = textures_->entries();
    const auto used =
        static_cast<std::size_t>(std::count_if(entries.begin(), entries.end(), [&](const auto & e) {
            return e.first->lastPicture + 1 >= picture_;
        }));
    const std::size_t room = used < maxPatches ? maxPatches - used : 0;
    // Another view may have room in the next picture, when that before has gone.
    isFull_ = room == 0 && !waiting.empty() && !isNewWish(waiting);
    std::vector<NBX::SO<Patch>> patches;
    patches.reserve(std::min(room, waiting.size()));
    for (std::size_t i = 0; i < waiting.size() && i < room; ++i)
        patches.push_back(waiting[i].second);
    return patches;
}

void VectorTextureTables::beginFrame(const TerrainPainterFrameManager::Info & info) {
    const bool isNewPicture = drawnBoxes_.begin(info.engine);
    if (isNewPicture) ++picture_;
    if (!info.inMotion || !isNewPicture) return;
    active_->clear();
    // What was wanted of views that have gone by would come before what is wanted of this one.
    queue_->clear();
    isFull_ = false;
    // Painters begin their frame with an empty box.
    const NBX::Bounds & present = TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches();
    motionBox = present.isDefined() ? present : drawnBoxes_.lastPicture(info.engine);
}

void VectorTextureTables::endFrame(const TerrainPainterFrameManager::Info & info) {
    drawnBoxes_.end(info.engine, TerrainPainterFrameManager::bboxOfLastRenderedGeometryPatches());
    // In motion as at rest, since the last entry of the list holds all textures that came behind it.
    if (renderOrder_.size() > s_mostRendered) renderOrder_.resize(s_mostRendered);
    while (!renderOrder_.empty() && renderOrder_.back().picture < picture_)
        renderOrder_.pop_back();
    while (textures_->size() > maxPatches && textures_->oldest()->first->lastPicture + 1 < picture_)
        dropTexture(textures_->oldest()->first);
    for (unsigned i = 0; i < mappers_->size(); ++i)
        mappers_->value(i)->dropUnused();
}

void VectorTextureTables::enter(VectorTexture * texture, VectorTexture::Mapper * mapper) {
    mappers_->insert(texture, mapper);
}

void VectorTextureTables::leave(VectorTexture * texture) {
    mappers_->remove(texture);
    active_->remove(texture);
}

} // namespace ZMT::CORE
