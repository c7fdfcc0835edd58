// Each geometry patch gets a piece of the level chosen for it, which a worker reads from the pyramid and
// places by a matrix. A piece that cannot be read fails, so that a coarser one is shown in its place; one
// that the pyramid has nothing for is an empty texture. The cache is shared by all objects of the class.

#include <zmt/core/terrain/texture/tiledlodtexture.h>

#include <exception>

#include "lodtexturerequest.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>
#include <nbx/object/serializationmanager.h>
#include <nbx/object/stringutils.h>
#include <nbx/scene/view/viewinfo.h>
#include <zmt/core/terrain/frame/geotransformation.h>
#include <zmt/raster/geoimage.h>
#include <zmt/raster/tiledgeoimage.h>

#include "borderedtexture.h"
#include "texturemanagerholder.h"

namespace ZMT::CORE {

NBX_STORED_CLASS_IMPL(TiledLODTexture, TerrainTexture)
NBX_CLASS_IMPL(TiledLODTexture::Patch, NBX::SharedObj)
NBX_CLASS_IMPL(TiledLODTexture::Mapper, Base)
NBX_CLASS_IMPL(TiledLODTexture::Preparer, Base)

namespace {

using Point = NBX::Vector3Base<double>;
using Levels = LODTextureRequest::Levels;

constexpr double s_idleSleep = 0.0;

unsigned s_maxTextureMemory = usualTextureMemory;

Levels levelsOf(const RASTER::TiledGeoImagePyramid * pyramid) {
    Levels levels;
    const unsigned count = pyramid ? pyramid->overviews() : 0;
    levels.reserve(count);
    for (unsigned i = 0; i < count; ++i) {
        const NBX::SO<RASTER::TiledGeoImage> level = pyramid->overview(i);
        if (!level) break;
        levels.push_back({level->pixelSizeX(), level->pixelSizeY(), level->pixelsX(), level->pixelsY(),
                          level->granularityX(), level->granularityY()});
    }
    return levels;
}

/// Some pyramids give null, and tell so, for what they cannot read.
bool hasFailed(const RASTER::TiledGeoImagePyramid & pyramid) {
    for (unsigned i = 0; i < pyramid.overviews(); ++i)
        if (const NBX::SO<RASTER::TiledGeoImage> level = pyramid.overview(i); level && level->failed())
            return true;
    return false;
}

/// Maps the scene's x and z on to the image, whose extent runs between the centres of its border pixels.
NBX::Matrix4x4Base<double> textureMatrix(const RASTER::GeoImage & image, const Point & origin) {
    using Matrix = NBX::Matrix4x4Base<double>;
    const Point urb = Point(image.maxX(), 0.0, image.maxY()) - origin;
    const Point llf = Point(image.minX(), 0.0, image.minY()) - origin;
    const double pixelX = image.pixelSizeX(), pixelY = image.pixelSizeY();
    return Matrix::scaling({1.0 / (urb.x - llf.x + pixelX), 1.0 / (urb.z - llf.z + pixelY), 1.0}) *
           Matrix::translation({-llf.x + 0.5 * pixelX, -llf.z + 0.5 * pixelY, 0.0});
}

NBX::SO<NBX::TextureGL> makeTexture(const RASTER::GeoImage & image, const Point & origin) {
    const NBX::SO<BorderedTexture> texture(new BorderedTexture(image.image()));
    texture->setMatrix(textureMatrix(image, origin));
    if (image.dataType() == NBX::Image::Half) texture->setInternalFormat(NBX::Texture2DGL::IF_Luminance16F);
    if (image.dataType() == NBX::Image::Float) texture->setInternalFormat(NBX::Texture2DGL::IF_Luminance32F);
    return texture;
}

} // namespace

/// The cache of all objects of the class, and the worker that fills it.
class TiledLODTexture_Manager : public ResourceManager<TiledLODTexture::Patch, NBX::TextureGL> {
    using Base = ResourceManager<TiledLODTexture::Patch, NBX::TextureGL>;
    NBX_TEMPLATE_CLASS(TiledLODTexture_Manager, Base)
public:
    TiledLODTexture_Manager()
        : ResourceManager(s_maxTextureMemory, true, textureRequestAgeLimit, s_idleSleep) {
        NBX_REPORT(2, L"!USE_MULTI_THREADING",
                   L"using multi-threading for TiledLODTexture; may lead to problems?");
    }
    ~TiledLODTexture_Manager() override { shutdown(); }

    double sizeOf(const NBX::SO<TiledLODTexture::Patch> & key) const override {
        return textureBytesPerTexel * key->width * key->height;
    }
};

namespace {

using Holder = TextureManagerHolder<TiledLODTexture_Manager>;

const bool s_isInFrames = Holder::registerFrames(TiledLODTexture::beginFrame, TiledLODTexture::endFrame);

} // namespace

TiledLODTexture::Patch::Patch(RASTER::TiledGeoImagePyramid * patchPyramid, unsigned patchLevel,
                              const NBX::Bounds & patchBounds, unsigned patchWidth, unsigned patchHeight,
                              NBX::EngineGL * patchEngine)
    : pyramid(patchPyramid), level(patchLevel), bounds(patchBounds),
      origin(GeoTransformation::nbx2geoOffset()), width(patchWidth), height(patchHeight),
      engine(patchEngine) {}

TiledLODTexture::Patch::~Patch() = default;

TiledLODTexture::Mapper::Mapper() : NonPersistentDictionary(texturePatchBuckets) {}

TiledLODTexture::Mapper::~Mapper() = default;

NBX::SO<RASTER::GeoImage> TiledLODTexture::Preparer::read(const Patch & patch) {
    const Point min = patch.bounds.getLLF() + patch.origin, max = patch.bounds.getURB() + patch.origin;
    try {
        return patch.pyramid->getGeoImage(min.x, min.z, max.x, max.z, patch.width, patch.height);
    } catch (const std::exception & e) {
        // One report tells enough of a file that has vanished.
        if (!hasReported_)
            NBX_FAILURE(L"cannot read a part of the image: "
                        << NBX::StringUtils::Utf8String2WString(e.what()));
        hasReported_ = true;
        throw;
    }
}

NBX::SO<NBX::TextureGL> TiledLODTexture::Preparer::call(NBX::SO<Patch> patch) {
    const NBX::SO<RASTER::GeoImage> image = read(*patch);
    if (image && image->image()) return makeTexture(*image, patch->origin);
    // Null for nothing there would show a hole in what a coarser level has; the pyramid has reported it.
    if (hasFailed(*patch->pyramid)) throw NBX::IOException(L"a part of the image cannot be read");
    return EmptyTexture::texture();
}

TiledLODTexture::TiledLODTexture() : TiledLODTexture(nullptr) {}

TiledLODTexture::TiledLODTexture(RASTER::TiledGeoImagePyramid * pyramid)
    : TerrainTexture(NBX::TextureGL::FM_Linear, NBX::TextureGL::FM_Linear), pyramid_(pyramid) {}

TiledLODTexture::~TiledLODTexture() = default;

NBX::Bounds TiledLODTexture::boundingBox() const {
    if (!pyramid_) return {};
    return GeoTransformation::geo2nbxTf(
        NBX::Bounds(Point(pyramid_->minX(), -unboundedHeight, pyramid_->minY()),
                    Point(pyramid_->maxX(), unboundedHeight, pyramid_->maxY())));
}

const Levels & TiledLODTexture::levels() const {
    if (levels_.empty()) levels_ = levelsOf(pyramid_.get());
    return levels_;
}

bool TiledLODTexture::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned, unsigned,
                             const Point & eye, double textureError, bool) const {
    NBX_CHECK(patch, L"no geometry patch");
    if (!patch) return false;
    const NBX::Bounds shared = LODTextureRequest::overlap(boundingBox(), patch->boundingBox());
    if (!shared.isDefined()) return false;
    return !levels().empty() && LODTextureRequest::refine(levels(), shared, *viewInfo, eye, textureError);
}

NBX::SO<NBX::TextureGL> TiledLODTexture::requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                                     const NBX::ViewInfo * viewInfo, unsigned, unsigned,
                                                     double priority, const Point & eye, double textureError,
                                                     bool, bool asynchronous, bool & incomplete) const {
    NBX_CHECK(patch, L"no geometry patch");
    const NBX::Bounds box = boundingBox();
    if (!patch || !LODTextureRequest::overlap(box, patch->boundingBox()).isDefined())
        return EmptyTexture::texture();
    if (levels().empty()) return EmptyTexture::texture();

    if (!mapper_) mapper_ = new Mapper;
    const NBX::SO<const GeometryPatch> wanted(patch);
    LODTextureRequest::map(*mapper_, wanted, [&](const GeometryPatch & geometryPatch) {
        const NBX::Bounds shared = LODTextureRequest::overlap(box, geometryPatch.boundingBox());
        const unsigned level = LODTextureRequest::chooseLevel(levels(), shared);
        return NBX::SO<Patch>(new Patch(pyramid_.get(), level, shared,
                                        LODTextureRequest::textureSize(levels()[level].pixelsX),
                                        LODTextureRequest::textureSize(levels()[level].pixelsY), engine));
    });

    if (!Holder::manager()) beginFrame({nullptr, false});
    if (!preparer_) preparer_ = new Preparer;
    const LODTextureRequest request(levels(), *viewInfo, eye, textureError, asynchronous);
    return request.find<Patch>(*Holder::manager(), *mapper_, wanted, preparer_, priority, incomplete);
}

void TiledLODTexture::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexture>(m, this);
    NBX::attributeWithDefault(m, "pyramid", pyramid_, nullptr);
    if (!m.isReading()) return;
    levels_.clear();
    mapper_ = nullptr;
}

void TiledLODTexture::beginFrame(const TerrainPainterFrameManager::Info &) {
    Holder::beginFrame();
}

void TiledLODTexture::endFrame(const TerrainPainterFrameManager::Info &) {
    Holder::endFrame();
}

unsigned TiledLODTexture::usedTextureMemory() {
    return Holder::usedMemory();
}

unsigned TiledLODTexture::pendingRequests() {
    return Holder::pendingRequests();
}

void TiledLODTexture::setMaxTextureMemory(unsigned bytes) {
    s_maxTextureMemory = bytes;
    Holder::setMaxMemory(bytes);
}

void TiledLODTexture::killManager() {
    Holder::kill();
}

} // namespace ZMT::CORE
