// What goes to the card: as much in a frame as its time allows, and only what is drawn.

#include <algorithm>

#include <nbx/engine/engine.h>
#include <nbx/gl/mesh/mappedvertexattributeshapegl.h>
#include <nbx/object/errorhandler.h>

#include "tttmemorycontrollerparts.h"

namespace ZMT::CORE {

namespace {

/// Drawn with a texture it makes the driver take that.
const NBX::MappedVertexAttributeShapeGL * emptyShape() {
    static const NBX::SO<NBX::MappedVertexAttributeShapeGL> & shape =
        *new NBX::SO<NBX::MappedVertexAttributeShapeGL>(new NBX::MappedVertexAttributeShapeGL);
    return shape.get();
}

} // namespace

void TTTMemoryController::queueForUpload(const NodeRef & ref) {
    NodeRef name = ref;
    name.data = nullptr; // who waits does not hold it
    if (queued_.emplace(std::move(name), true).second) uploadQueue_.push_back(ref);
}

/// How many textures went to the card.
std::size_t TTTMemoryController::continueTextureUpload(const NBX::SO<NBX::Engine> & engine) {
    std::erase_if(uploadQueue_, [this](const NodeRef & ref) {
        const bool isGone = !loadedNodes_->contains(ref);
        if (isGone) queued_.erase(ref);
        return isGone;
    });
    DistanceSortedNodeList::sort(uploadQueue_);
    if (!engine) return 0;
    const double begin = now();
    std::size_t done = 0;
    for (; done < uploadQueue_.size() && done < s_mostUploads; ++done) {
        const NodeRef & ref = uploadQueue_[done];
        if (ref.urgency > 0 || now() - begin > s_timeLimit) break;
        queued_.erase(ref);
        const auto texture = NBX::soCast<NBX::ImageTexture2DGL>(ref.data);
        const auto streamTex = NBX::soCast<StreamTexture>(ref.data);
        NBX_CHECK(texture || streamTex, L"noderef should contain a texture reference");
        if (streamTex) {
            streamTex->apply(true);
            engine->paint(emptyShape());
            streamTex->apply(false);
        } else if (texture) {
            const NBX::AttributeScope scope(engine.get(), texture.get());
            engine->paint(emptyShape());
        }
        if (ref.original && !ref.node->content.originalTextures) NBX_FAILURE(L"texture is missing");
        if (isUploaded(ref.data)) setState(ref);
    }
    uploadQueue_.erase(uploadQueue_.begin(), uploadQueue_.begin() + static_cast<std::ptrdiff_t>(done));
    return done;
}

/// What is only kept in case of need lets a view settle.
bool TTTMemoryController::isUrgent(const Block & block) const {
    const auto found = wantedBlocks_.find(block);
    return found != wantedBlocks_.end() &&
           std::any_of(found->second.begin(), found->second.end(),
                       [this](std::size_t i) { return wanted_[i].urgency == 0; });
}

bool TTTMemoryController::isUploadWaiting() const {
    return std::any_of(uploadQueue_.begin(), uploadQueue_.end(),
                       [](const NodeRef & ref) { return ref.urgency == 0; });
}

} // namespace ZMT::CORE
