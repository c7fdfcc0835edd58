#include <zmt/core/texturedtriangles/rendernode.h>

#include <algorithm>

#include <nbx/container/sequence/serializevalues.h>
#include <nbx/object/errorhandler.h>

namespace ZMT::CORE {

namespace {

constexpr int s_nodeVersion = 2;
/// Set in keys that are no place in a file.
constexpr std::uint64_t s_noPlace = std::uint64_t(1) << 63U;

/// A sequence that is missing is empty.
template <class T>
void serializeArray(NBX::SerializationManager & m, const char * name, std::vector<T> & values) {
    if (!NBX::serializeValue(m, name, values) && m.isReading()) values.clear();
}

/// Blocks of size 0 have the place of another one.
std::uint64_t keyOf(const RenderTree::NodePointer & node, const std::vector<std::uint64_t> & places,
                    const std::vector<std::uint64_t> & sizes, std::size_t i) {
    const bool hasBlock = i < places.size() && i < sizes.size() && sizes[i] > 0;
    return hasBlock ? places[i] : s_noPlace | node.identifier();
}

} // namespace

NBX::SO<NBX::SharedObj> RenderNode::texture(unsigned layer) const {
    return layer < textures.size() ? textures[layer].lock() : nullptr;
}

auto RenderNode::originalTextureWrap(unsigned i) const
    -> std::pair<NBX::TextureGL::WrapMode, NBX::TextureGL::WrapMode> {
    const auto mode = [this](std::size_t place) {
        const int number = place < originalTexturesWrapModes.size() ? originalTexturesWrapModes[place] : 0;
        const bool isMode =
            number >= NBX::TextureGL::WM_Repeat && number <= NBX::TextureGL::WM_MirroredRepeat;
        return isMode ? NBX::TextureGL::WrapMode(number) : NBX::TextureGL::WM_Repeat;
    };
    return {mode(2 * std::size_t(i)), mode(2 * std::size_t(i) + 1)};
}

bool RenderNode::originalTexturesLoaded() const {
    if (!originalTextures) NBX_REPORT(0, L"originalTextures!=0", L"no texture array");
    if (!originalTextures) return true;
    const auto & all = originalTextures->stl();
    return std::all_of(all.begin(), all.end(), [](const auto & texture) { return bool(texture); });
}

bool RenderNode::originalTexturesUploaded() const {
    if (!originalTexturesLoaded()) return false;
    const std::size_t count = originalTextures ? originalTextures->size() : 0;
    return textureStates.size() >= count && std::all_of(textureStates.begin(), textureStates.end(),
                                                        [](bool isUploaded) { return isUploaded; });
}

void RenderNode::serialize(NBX::SerializationManager & m) {
    int version = s_nodeVersion;
    if (!m.attribute("version", version) && m.isReading()) version = 0;
    serializeArray(m, "blockPositions", blockPositions);
    serializeArray(m, "blockSizes", blockSizes);
    NBX::attributeWithDefault(m, "textureScaleFactor", textureScaleFactor, 0.0);
    NBX::attributeWithDefault(m, "triangles", triangles, nullptr);
    NBX::attributeWithDefault(m, "minDistance", minDistance, 0.0);
    if (!m.attribute("bounds", bounds) && m.isReading()) bounds = NBX::Bounds();
    NBX::SO<NBX::MappedVertexAttributeShapeGL> again = triangles;
    NBX::attributeWithDefault(m, "triangles", again, nullptr);
    if (m.isReading() && again) triangles = again;
    serializeOriginals(m);
    NBX::attributeWithDefault(m, "vertexData", vertexData, nullptr);
    NBX::attributeWithDefault(m, "numVertices", numVertices, -1);
    NBX::attributeWithDefault(m, "vertexRangeStart", vertexRangeStart, -1);
    if (m.isReading() || !originalTexturesWrapModes.empty())
        serializeArray(m, "originalTexturesWrapModes", originalTexturesWrapModes);
    if (m.isReading() && version == 1) {
        std::wstring imageFile; // of no use any more
        m.attribute("imageFile", imageFile);
    }
}

/// A texture that is loaded is read again from the paging file, and its own object may no longer have its
/// bytes: the stored ones are null.
void RenderNode::serializeOriginals(NBX::SerializationManager & m) {
    serializeArray(m, "originalGeometry", originalGeometry);
    serializeArray(m, "originalTexturesBlockPositions", originalTexturesBlockPositions);
    serializeArray(m, "originalTexturesBlockSizes", originalTexturesBlockSizes);
    NBX::SO<Textures> stored;
    if (originalTextures) stored = new Textures(originalTextures->size());
    if (!m.attribute("originalTextures", stored) && m.isReading()) stored = nullptr;
    if (!m.isReading()) return;
    originalTextures = stored;
    forgetTextures();
}

void RenderNode::forgetTextures() {
    if (originalTextures) originalTextures = new Textures(originalTextures->size());
    textures.clear();
    textureStates.assign(originalTextures ? originalTextures->size() : 0, false);
}

std::uint64_t visibilityKey(const RenderTree::NodePointer & node) {
    const RenderNode & content = node->content;
    return keyOf(node, content.blockPositions, content.blockSizes, 0);
}

std::uint64_t visibilityKey(const RenderTree::NodePointer & node, unsigned i) {
    const RenderNode & content = node->content;
    return keyOf(node, content.originalTexturesBlockPositions, content.originalTexturesBlockSizes, i);
}

} // namespace ZMT::CORE
