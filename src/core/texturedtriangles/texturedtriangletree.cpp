// Stored trees carry their version as an attribute of their own. What has come from a file is held against
// what can be before it is kept: formats, sizes, and that root atlases are textures.

#include <zmt/core/texturedtriangles/texturedtriangletree.h>

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include <nbx/container/sequence/serializevalues.h>
#include <nbx/gl/texture/imagetexture2dgl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>
#include <zmt/core/texturedtriangles/streamtexturegl.h>

#include "rayleaves.h"

namespace ZMT::CORE {

NBX_STORED_CLASS_IMPL(TexturedTriangleTree, NBX::Shape)

TexturedTriangleTree::TextureFormat TexturedTriangleTree::s_defaultTextureFormat = TextureFormatRGBA5551;
bool TexturedTriangleTree::s_enforceUniqueTextureParameterization = false;
bool TexturedTriangleTree::s_verbose = false;

namespace {

constexpr int s_treeVersion = 2;

bool isFormat(int format) {
    return format >= TexturedTriangleTree::TextureFormatRGBA8 &&
           format <= TexturedTriangleTree::TextureFormatJPEG;
}

/// Other objects may hold the tree that would hold them.
bool isTexture(const NBX::SharedObj * object) {
    return dynamic_cast<const NBX::ImageTexture2DGL *>(object) ||
           dynamic_cast<const TTTMemoryController::StreamTexture *>(object);
}

/// What stands in for all others is never read again, and is stored with the tree.
void keepData(NBX::SharedObj * atlas) {
    if (auto * stream = dynamic_cast<TTTMemoryController::StreamTexture *>(atlas))
        stream->enableUnrefAfterBinding(false);
}

/// The same nodes with the same meshes, and with no texture: those that are loaded are of one tree.
NBX::SO<RenderTree> unloadedCopy(const NBX::SO<RenderTree> & tree) {
    if (!tree) return nullptr;
    NBX::SO<RenderTree> copy(new RenderTree({tree->minimum(0), tree->minimum(1)},
                                            {tree->maximum(0), tree->maximum(1)},
                                            {tree->axis(0), tree->axis(1)}));
    std::vector<std::pair<RenderTree::NodePointer, RenderTree::NodePointer>> waiting{
        {tree->root(), copy->root()}};
    while (!waiting.empty()) {
        const auto [from, to] = waiting.back();
        waiting.pop_back();
        to->content = from->content;
        to->content.forgetTextures();
        if (!tree->hasChildren(from)) continue;
        copy->createChildren(to);
        for (unsigned i = 0; i < RenderTree::s_childrenOfNode; ++i)
            waiting.emplace_back(tree->child(from, i), copy->child(to, i));
    }
    return copy;
}

[[noreturn]] void throwDamaged(const wchar_t * detail) {
    throw NBX::IOError(L"stored textured triangle tree is damaged", detail);
}

} // namespace

struct TexturedTriangleTree::LazyRayLeaves {
    std::mutex mutex; ///< guards what follows
    std::shared_ptr<const RayLeaves> leaves;
};

TexturedTriangleTree::TexturedTriangleTree() : Shape(true), rayLeaves_(std::make_unique<LazyRayLeaves>()) {}

TexturedTriangleTree::TexturedTriangleTree(const TexturedTriangleTree & other)
    : Shape(other), untexturedGeometry_(other.untexturedGeometry_),
      maxDistanceEnabled_(other.maxDistanceEnabled_), maxDistance_(other.maxDistance_),
      pagingFiles_(other.pagingFiles_), atlasSize_(other.atlasSize_), rootAtlases_(other.rootAtlases_),
      layerEnabled_(other.layerEnabled_), qualityFactor_(other.qualityFactor_),
      blendingMode_(other.blendingMode_), renderTree_(unloadedCopy(other.renderTree_)),
      rayLeaves_(std::make_unique<LazyRayLeaves>()), layerFormats_(other.layerFormats_) {
    takeRootAtlases();
}

TexturedTriangleTree::~TexturedTriangleTree() {
    if (const auto controller = memoryController_.lock()) controller->notifyTreeDestruction(this);
}

void TexturedTriangleTree::setMemoryController(TTTMemoryController * controller) {
    memoryController_ = NBX::WO<TTTMemoryController>(controller);
}

void TexturedTriangleTree::setRenderTree(NBX::SO<RenderTree> tree) {
    renderTree_.swap(tree);
    takeRootAtlases();
    geometryChanged();
}

std::shared_ptr<const RayLeaves> TexturedTriangleTree::rayLeaves() const {
    if (!renderTree_) return nullptr;
    const std::lock_guard lock(rayLeaves_->mutex);
    if (!rayLeaves_->leaves) rayLeaves_->leaves = std::make_shared<const RayLeaves>(*renderTree_);
    return rayLeaves_->leaves;
}

std::size_t TexturedTriangleTree::rayBytes() const {
    const std::lock_guard lock(rayLeaves_->mutex);
    return rayLeaves_->leaves ? rayLeaves_->leaves->bytes() : 0;
}

void TexturedTriangleTree::geometryChanged() {
    std::shared_ptr<const RayLeaves> held;
    {
        const std::lock_guard lock(rayLeaves_->mutex);
        held.swap(rayLeaves_->leaves);
    }
    modified();
}

void TexturedTriangleTree::setUntexturedGeometry(NBX::SO<NBX::MappedVertexAttributeShapeGL> geometry) {
    untexturedGeometry_.swap(geometry);
    modified();
}

void TexturedTriangleTree::setAtlasSize(int atlasSize) {
    atlasSize_ = atlasSize;
    modified();
}

bool TexturedTriangleTree::hasLayer(int layer, std::size_t layers) const {
    const bool isThere = layer >= 0 && std::size_t(layer) < layers;
    if (!isThere) NBX_REPORT(2, L"false", L"invalid layer number");
    return isThere;
}

std::wstring TexturedTriangleTree::getPagingFile(int layer) const {
    return layer >= 0 && layer < getNumberOfLayers() ? pagingFiles_[std::size_t(layer)] : std::wstring();
}

void TexturedTriangleTree::changePagingFileName(const std::wstring & pagingFile, int layer) {
    if (!hasLayer(layer, pagingFiles_.size())) return;
    pagingFiles_[std::size_t(layer)] = pagingFile;
    modified();
}

NBX::SO<NBX::SharedObj> TexturedTriangleTree::getRootAtlas(int layer) const {
    return layer >= 0 && std::size_t(layer) < rootAtlases_.size() ? rootAtlases_[std::size_t(layer)]
                                                                  : nullptr;
}

TexturedTriangleTree::TextureFormat TexturedTriangleTree::getLayerFormat(int layer) const {
    return hasLayer(layer, layerFormats_.size()) ? layerFormats_[std::size_t(layer)] : TextureFormatRGBA5551;
}

void TexturedTriangleTree::setLayerEnabled(int layer, bool enabled) {
    if (!hasLayer(layer, layerEnabled_.size())) return;
    layerEnabled_[std::size_t(layer)] = enabled;
    modified();
}

bool TexturedTriangleTree::getLayerEnabled(int layer) const {
    return hasLayer(layer, layerEnabled_.size()) && layerEnabled_[std::size_t(layer)];
}

void TexturedTriangleTree::registerTextureLayer(int layer, const std::wstring & pagingFile,
                                                NBX::SO<NBX::SharedObj> rootTexture, TextureFormat format) {
    NBX_CHECK(layer >= 0, L"invalid layer number");
    if (layer < 0) return;
    const auto index = std::size_t(layer);
    const std::size_t layers = std::max(pagingFiles_.size(), index + 1);
    pagingFiles_.resize(layers);
    rootAtlases_.resize(layers);
    layerFormats_.resize(layers, TextureFormatRGBA8);
    layerEnabled_.resize(layers, false);
    pagingFiles_[index] = pagingFile;
    rootAtlases_[index] = rootTexture;
    layerFormats_[index] = format;
    layerEnabled_[index] = true;
    keepData(rootTexture.get());
    takeRootAtlases();
    modified();
}

bool TexturedTriangleTree::useAlphaTextures() const {
    if (layerFormats_.empty()) return false;
    return layerFormats_.front() == TextureFormatRGBA8 || layerFormats_.front() == TextureFormatRGBA5551;
}

void TexturedTriangleTree::setBlendingMode(bool blend) {
    blendingMode_ = blend;
    modified();
}

void TexturedTriangleTree::setQualityFactor(double factor) {
    qualityFactor_ = factor;
    modified();
}

void TexturedTriangleTree::enableMaxDistance(double distance) {
    maxDistanceEnabled_ = true;
    maxDistance_ = distance;
    modified();
}

void TexturedTriangleTree::disableMaxDistance() {
    maxDistanceEnabled_ = false;
    modified();
}

NBX::Bounds TexturedTriangleTree::boundingBox() const {
    NBX::Bounds box;
    if (untexturedGeometry_) box += untexturedGeometry_->boundingBox();
    if (renderTree_) box += renderTree_->root()->content.bounds;
    return box;
}

/// The nodes only watch their atlases; those of the root live in the tree.
void TexturedTriangleTree::takeRootAtlases() {
    if (!renderTree_) return;
    RenderNode & root = renderTree_->root()->content;
    root.textures.assign(rootAtlases_.begin(), rootAtlases_.end());
}

void TexturedTriangleTree::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::RenderObj>(m, this);
    int version = s_treeVersion;
    if (!m.attribute("version", version) && m.isReading()) version = 0;
    if (version < 0 || version > s_treeVersion) throwDamaged(L"it is of no version that is known");
    NBX::attributeWithDefault(m, "renderTree", renderTree_, nullptr);
    NBX::attributeWithDefault(m, "untexturedGeometry", untexturedGeometry_, nullptr);
    NBX::attributeWithDefault(m, "maxDistanceEnabled", maxDistanceEnabled_, false);
    NBX::attributeWithDefault(m, "maxDistance", maxDistance_, 0.0);
    if (!NBX::serializeValue(m, "pagingFiles", pagingFiles_) && m.isReading()) pagingFiles_.clear();
    if (!m.attribute("atlasSize", atlasSize_) && m.isReading()) atlasSize_ = 0;
    if (atlasSize_ < 0 || atlasSize_ > s_maxAtlasSize)
        throwDamaged(L"its atlases are of a size that cannot be");
    if (!NBX::serializeValue(m, "rootAtlases", rootAtlases_) && m.isReading()) rootAtlases_.clear();
    NBX::attributeWithDefault(m, "blendingMode", blendingMode_, false);
    serializeLayers(m, version);
    if (!m.isReading()) return;
    for (NBX::SO<NBX::SharedObj> & atlas : rootAtlases_) {
        if (!isTexture(atlas.get())) atlas = nullptr;
        keepData(atlas.get());
    }
    takeRootAtlases();
    geometryChanged();
}

/// "layerFormats", "qualityFactor" and "layerEnabled"; while reading also what stood in their place before.
void TexturedTriangleTree::serializeLayers(NBX::SerializationManager & m, int version) {
    std::vector<int> formats(layerFormats_.begin(), layerFormats_.end());
    const bool leavesOut = m.isWriting() && m.omitsDefaults();
    if (!leavesOut || !formats.empty())
        if (!NBX::serializeValue(m, "layerFormats", formats) && m.isReading()) formats.clear();
    NBX::attributeWithDefault(m, "qualityFactor", qualityFactor_, 1.0);
    std::vector<std::uint8_t> enabled;
    if (!m.isReading()) enabled.assign(layerEnabled_.begin(), layerEnabled_.end());
    const bool isDefault = std::find(enabled.begin(), enabled.end(), 0) == enabled.end();
    if (version >= 2 && !(leavesOut && isDefault))
        if (!NBX::serializeValue(m, "layerEnabled", enabled) && m.isReading()) enabled.clear();
    if (!m.isReading()) return;
    if (version == 0) {
        bool usesTextureCompression = false;
        NBX::attributeWithDefault(m, "usesTextureCompression", usesTextureCompression, false);
        formats.push_back(usesTextureCompression ? TextureFormatRGBA5551 : TextureFormatRGBA8);
        if (pagingFiles_.size() == 2) formats.push_back(TextureFormatLuminance8);
    }
    layerFormats_.clear();
    for (const int format : formats) {
        if (!isFormat(format)) throwDamaged(L"its textures are of no format that is known");
        layerFormats_.push_back(TextureFormat(format));
    }
    layerFormats_.resize(std::max(layerFormats_.size(), pagingFiles_.size()), TextureFormatRGBA8);
    enabled.resize(std::max(enabled.size(), pagingFiles_.size()), 1);
    layerEnabled_.assign(enabled.begin(), enabled.end());
}

} // namespace ZMT::CORE
