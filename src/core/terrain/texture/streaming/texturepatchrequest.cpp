// A node has no state of its own beside its request: what the managers still hold says what is to be done.
// Where it leaves the ways of a single read:
// - an image that has gone while its texture lives is read again, since it alone tells how fine the texture
//   is, and with it whether the node's patch has to be split;
// - blocks that are ready wait, unread, for a frame that can make a texture of them.

#include "texturepatchrequest.h"

#include <algorithm>
#include <cstring>

#include "core/terrain/geometry/grid/model/tileblock.h"
#include "core/terrain/texture/borderedtexture.h"
#include <nbx/data/memorydataresource.h>
#include <nbx/engine/graphicsmemorymanager.h>
#include <nbx/engine/mainmemorymanager.h>
#include <zmt/core/terrain/frame/geotransformation.h>

#include "texturetransfers.h"

namespace ZMT::CORE {

NBX_CLASS_IMPL(TexturePatchRequest, NBX::SharedObj)

namespace {

using StreamingTextureFormat::headerSize;
using StreamingTextureFormat::TileHeader;

constexpr double s_unbounded = 1e42;
constexpr double s_anisotropy = 16.0;
/// Of a node's side: patches differ by halves.
constexpr double s_tolerance = 1e-4;
/// In seconds, between two reads for the sake of the image alone, so that a budget that is too small costs
/// little.
constexpr double s_imagePause = 1.0;

/// Maps the scene's x and z on to the image, to the edges of its border pixels.
NBX::Matrix4x4Base<double> textureMatrix(const RASTER::GeoImage & image) {
    using Matrix = NBX::Matrix4x4Base<double>;
    using Point = NBX::Vector3Base<double>;
    const Point urb = GeoTransformation::geo2nbxTf(Point(image.maxX(), 0.0, image.maxY()));
    const Point llf = GeoTransformation::geo2nbxTf(Point(image.minX(), 0.0, image.minY()));
    const double pixelX = image.pixelSizeX(), pixelY = image.pixelSizeY();
    return Matrix::scaling({1.0 / (urb.x - llf.x + pixelX), 1.0 / (urb.z - llf.z + pixelY), 1.0}) *
           Matrix::translation({-llf.x + 0.5 * pixelX, -llf.z + 0.5 * pixelY, 0.0});
}

NBX::SO<NBX::TextureGL> newTexture(const RASTER::GeoImage & image) {
    const NBX::SO<BorderedTexture> texture(new BorderedTexture(image.image()));
    texture->setMinFilter(NBX::TextureGL::FM_Linear);
    texture->setMagFilter(NBX::TextureGL::FM_Linear);
    texture->setAnisotropy(s_anisotropy);
    texture->setMatrix(textureMatrix(image));
    return texture;
}

using Nodes = std::set<const TexturePatchRequest *>;

Nodes & failedNodes() {
    // Never destroyed: textures may go while libraries unload.
    static Nodes & instance = *new Nodes;
    return instance;
}

/// Textures are asked for many times while a picture is drawn.
Nodes & missingNodes() {
    static Nodes & instance = *new Nodes;
    return instance;
}

} // namespace

TexturePatchRequest::TexturePatchRequest(const TextureStream & stream, const TileRef & ref, unsigned level)
    : stream_(stream), ref_(ref), level_(level) {}

TexturePatchRequest::~TexturePatchRequest() {
    dropRequest();
    failedNodes().erase(this);
    missingNodes().erase(this);
}

NBX::SO<NBX::TextureGL> TexturePatchRequest::get(double priority, bool force) {
    const NBX::SO<NBX::TextureGL> texture = find(priority, force);
    if (texture)
        missingNodes().erase(this);
    else
        missingNodes().insert(this);
    return texture;
}

NBX::SO<NBX::TextureGL> TexturePatchRequest::find(double priority, bool force) {
    const NBX::SO<NBX::TextureGL> texture = ensureTexture(force);
    const bool isWhole = texture && (image_ || !hasChildren());
    if (isWhole || (texture && !force && TextureTransfers::now() < imageAgainAt_)) return texture;
    load(priority, force);
    return texture ? texture : ensureTexture(force);
}

NBX::SO<NBX::TextureGL> TexturePatchRequest::ensureTexture(bool force) {
    const NBX::SO<RASTER::GeoImage> image = image_.lock();
    if (image) NBX::MainMemoryManager::instance()->touch(image.get());
    NBX::SO<NBX::TextureGL> texture = texture_.lock();
    if (!texture) {
        if (!image || !TextureTransfers::mayUpload(force)) return nullptr;
        TextureTransfers::countUpload();
        texture = newTexture(*image);
        texture_ = texture;
        sceneOrigin_ = GeoTransformation::nbx2geoOffset();
    }
    followSceneOrigin(*texture);
    NBX::GraphicsMemoryManager::instance()->use(texture.get(), textureSize_);
    return texture;
}

/// Textures may be made before the scene has its origin.
void TexturePatchRequest::followSceneOrigin(NBX::TextureGL & texture) {
    const Point origin = GeoTransformation::nbx2geoOffset();
    if (origin == sceneOrigin_) return;
    const Point shift = origin - sceneOrigin_;
    texture.setMatrix(texture.getMatrix() * NBX::Matrix4x4Base<double>::translation({shift.x, shift.z, 0.0}));
    sceneOrigin_ = origin;
}

void TexturePatchRequest::load(double priority, bool force) {
    // One that was ended to make room is asked for anew.
    if (request_ && !TextureTransfers::contains(request_)) dropRequest();
    if (!request_) {
        startLoad(priority, force);
        if (!force) return;
    }
    if (!request_) return;
    if (!force)
        request_->setPriority(priority);
    else if (!request_->wait())
        request_->setPriority(GRID::BlockRetry::rankOfGivenUp(priority));
    TextureTransfers::want(request_);
    takeLoaded(force);
}

void TexturePatchRequest::startLoad(double priority, bool force) {
    if (TextureTransfers::now() < askAgainAt_) return;
    request_ = stream_.file->request(stream_.offset + ref_.offset, ref_.storedSize,
                                     force ? AsyncFile::topPriority : priority);
    if (request_)
        TextureTransfers::want(request_);
    else
        fail(L"the file is not open", retry_.readFailed());
}

void TexturePatchRequest::takeLoaded(bool force) {
    switch (request_->state()) {
    case AsyncFile::RS_Ready:
        if (TextureTransfers::mayUpload(force) && !finishLoad())
            fail(L"the block is damaged; get the file anew", retry_.blockFailed());
        break;
    case AsyncFile::RS_Failed:
        fail(request_->errorText(), retry_.readFailed());
        break;
    default:
        break;
    }
}

bool TexturePatchRequest::finishLoad() {
    const NBX::SO<NBX::DataResource> stored = request_->data();
    dropRequest();
    if (!stored || stored->size() != ref_.storedSize) return false;
    return takeBlock(GRID::TileBlock::inflated(ref_, plainData(stored)));
}

/// Data may be shared with others, so that they are not changed where they lie.
NBX::SO<NBX::DataResource> TexturePatchRequest::plainData(const NBX::SO<NBX::DataResource> & stored) const {
    if (stream_.key == 0) return stored;
    const NBX::SO<NBX::DataResource> copy(new NBX::MemoryDataResource(stored->pointer(), stored->size()));
    StreamingTextureFormat::scramble(copy->pointer(), copy->size(), stream_.key);
    return copy;
}

bool TexturePatchRequest::takeBlock(const NBX::SO<NBX::DataResource> & block) {
    if (!block || block->size() < headerSize) return false;
    TileHeader header;
    std::memcpy(&header, block->pointer(), sizeof header);
    if (!header.isSound(ref_, stream_.dataSize)) return false;
    const auto * pixels = static_cast<const char *>(block->pointer()) + headerSize;
    const std::uint64_t bytes =
        StreamingTextureFormat::pixelBytes(header.pixelFormat, header.width, header.height);
    if (bytes == 0 || bytes != block->size() - headerSize) return false;
    const NBX::SO<NBX::Image> picture =
        StreamingTextureFormat::newImage(header.pixelFormat, header.width, header.height, pixels);
    if (!picture) return false;

    const NBX::SO<RASTER::GeoImage> image = RASTER::GeoImage::fromOrigin(
        picture.get(), header.image.minX, header.image.minY, header.pixelSizeX(), header.pixelSizeY());
    succeed();
    imageFrame_ = TextureTransfers::frame();
    imageAgainAt_ = TextureTransfers::now() + s_imagePause;
    pixelSizeX_ = header.pixelSizeX();
    pixelSizeY_ = header.pixelSizeY();
    const auto size = static_cast<std::uint32_t>(bytes);
    // Luminance gets an alpha on its way to the card.
    textureSize_ = header.pixelFormat == StreamingTextureFormat::PF_Luminance ? 2 * size : size;
    image_ = image;
    bounds_ = NBX::Bounds({header.patch.minX, -s_unbounded, header.patch.minY},
                          {header.patch.maxX, s_unbounded, header.patch.maxY});
    makeChildren(header);
    // Last, as the image may not survive it.
    NBX::MainMemoryManager::instance()->add(image.get(), size);
    ensureTexture(false);
    return true;
}

void TexturePatchRequest::makeChildren(const TileHeader & header) {
    if (level_ + 1 >= StreamingTextureFormat::maxLevels) return;
    for (std::size_t i = 0; i < children_.size(); ++i)
        if (!children_[i] && header.children[i].rawSize != 0)
            children_[i] = new TexturePatchRequest(stream_, header.children[i], level_ + 1);
}

void TexturePatchRequest::fail(const std::wstring & reason, double pause) {
    dropRequest();
    askAgainAt_ = TextureTransfers::now() + pause;
    failure_ = reason;
    failedNodes().insert(this);
}

void TexturePatchRequest::succeed() {
    retry_.succeeded();
    failure_.clear();
    failedNodes().erase(this);
}

const std::set<const TexturePatchRequest *> & TexturePatchRequest::failed() {
    return failedNodes();
}

unsigned TexturePatchRequest::countMissing() {
    return static_cast<unsigned>(missingNodes().size());
}

void TexturePatchRequest::forgetMissing() {
    missingNodes().clear();
}

bool TexturePatchRequest::isStillFailing() const {
    return GRID::BlockRetry::isStillFailing(request_, TextureTransfers::now() - askAgainAt_);
}

void TexturePatchRequest::dropRequest() {
    if (request_) TextureTransfers::end(request_);
    request_ = nullptr;
}

bool TexturePatchRequest::cameInThisFrame() const {
    return hasImage() && imageFrame_ == TextureTransfers::frame();
}

double TexturePatchRequest::error(const NBX::ViewInfo & viewInfo, const Point & eye) const {
    return image_ ? lastError(viewInfo, eye) : 0.0;
}

double TexturePatchRequest::lastError(const NBX::ViewInfo & viewInfo, const Point & eye) const {
    const Point a(pixelSizeX_ * 0.5, 0.0, 0.0), b(0.0, 0.0, pixelSizeY_ * 0.5);
    return std::max(viewInfo.screenDistance2(eye - a, eye + a), viewInfo.screenDistance2(eye - b, eye + b));
}

bool TexturePatchRequest::contains(const NBX::Bounds & box) const {
    if (!bounds_.isDefined() || !box.isDefined()) return false;
    const Point min = bounds_.getLLF(), max = bounds_.getURB(), margin = (max - min) * s_tolerance;
    return box.getLLF().x >= min.x - margin.x && box.getLLF().z >= min.z - margin.z &&
           box.getURB().x <= max.x + margin.x && box.getURB().z <= max.z + margin.z;
}

bool TexturePatchRequest::isFilledBy(const NBX::Bounds & box) const {
    if (!contains(box)) return false;
    const Point min = bounds_.getLLF(), max = bounds_.getURB(), margin = (max - min) * s_tolerance;
    return box.getLLF().x <= min.x + margin.x && box.getLLF().z <= min.z + margin.z &&
           box.getURB().x >= max.x - margin.x && box.getURB().z >= max.z - margin.z;
}

bool TexturePatchRequest::hasChildren() const {
    return std::any_of(children_.begin(), children_.end(), [](const auto & child) { return bool(child); });
}

NBX::SO<TexturePatchRequest> TexturePatchRequest::childWith(const NBX::Bounds & box) const {
    for (const NBX::SO<TexturePatchRequest> & child : children_)
        if (child && child->contains(box)) return child;
    return nullptr;
}

} // namespace ZMT::CORE
