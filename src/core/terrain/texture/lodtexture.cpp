// A pyramid of images, each half of the one before, from which every geometry patch gets the piece that it
// shows: the level is chosen, its pixels are cut with one more on each side for the filter, reduced to the
// size of a texture, and placed by a matrix. The cache and its worker are shared by all objects of the class.

#include <zmt/core/terrain/texture/lodtexture.h>

#include <cmath>

#include "lodtexturerequest.h"
#include <nbx/gl/context/enginegl.h>
#include <nbx/image/memoryimage.h>
#include <nbx/image/subimage.h>
#include <nbx/math/area.h>
#include <nbx/object/errorhandler.h>
#include <nbx/object/serializationmanager.h>

#include "borderedtexture.h"
#include "texturemanagerholder.h"

namespace ZMT::CORE {

NBX_STORED_CLASS_IMPL(LODTexture, TerrainTexture)
NBX_CLASS_IMPL(LODTexture::Patch, NBX::SharedObj)
NBX_CLASS_IMPL(LODTexture::Mapper, Base)
NBX_CLASS_IMPL(LODTexture::Preparer, Base)

namespace {

using Matrix = NBX::Matrix4x4Base<double>;
using Point = NBX::Vector3Base<double>;
using Levels = LODTextureRequest::Levels;

constexpr double s_levelIdleSleep = 0.01;

unsigned s_maxLevelMemory = usualTextureMemory;

NBX::Bounds inPlan(const NBX::Bounds & box) {
    if (!box.isDefined()) return box;
    const Point llf = box.getLLF(), urb = box.getURB();
    return {Point(llf.x, -unboundedHeight, llf.z), Point(urb.x, unboundedHeight, urb.z)};
}

bool hasArea(const NBX::Bounds & box) {
    const Point size = box.diagonal();
    return box.isDefined() && size.x > 0.0 && size.z > 0.0 && std::isfinite(size.x) && std::isfinite(size.z);
}

/// The place in `to` that `box` has in `from`.
NBX::Bounds moved(const NBX::Bounds & box, const NBX::Bounds & from, const NBX::Bounds & to) {
    const Point scale(to.diagonal().x / from.diagonal().x, 1.0, to.diagonal().z / from.diagonal().z);
    const auto move = [&](const Point & p) {
        return Point(to.getLLF().x + (p.x - from.getLLF().x) * scale.x, p.y,
                     to.getLLF().z + (p.z - from.getLLF().z) * scale.z);
    };
    return {move(box.getLLF()), move(box.getURB())};
}

/// The size of a pixel of `image` over `box`; y stands for the scene's z.
Point pixelSize(const NBX::Image & image, const NBX::Bounds & box) {
    const Point size = box.diagonal();
    return {size.x / image.width(), size.z / image.height(), 0.0};
}

/// Boxes from files may be too small for the pixels to have a size.
bool hasPixels(const NBX::Image & image, const NBX::Bounds & box) {
    if (image.width() == 0 || !hasArea(box)) return false;
    const Point size = pixelSize(image, box);
    return size.x > 0.0 && size.y > 0.0;
}

/// The pixels that the box from `min` to `max` touches, and one more on each side for filters. Both are in
/// pixels of `image`.
NBX::Area touchedPixels(const NBX::Image & image, const Point & min, const Point & max) {
    const auto cut = [](double value, int size) {
        return static_cast<int>(std::clamp(value, 0.0, static_cast<double>(size)));
    };
    const int x0 = cut(std::floor(min.x) - 1.0, image.width() - 1);
    const int y0 = cut(std::floor(min.y) - 1.0, image.height() - 1);
    const int x1 = std::max(cut(std::ceil(max.x) + 1.0, image.width()), x0 + 1);
    const int y1 = std::max(cut(std::ceil(max.y) + 1.0, image.height()), y0 + 1);
    return NBX::Area(x0, y0, static_cast<unsigned>(x1 - x0), static_cast<unsigned>(y1 - y0));
}

/// A copy of the pixels, reduced to the size of the texture where there are more.
NBX::SO<NBX::Image> cut(const LODTexture::Patch & patch, const NBX::Area & area) {
    const NBX::SO<NBX::SubImage> part(new NBX::SubImage(patch.image.get(), area));
    const NBX::SO<NBX::Image> result(
        new NBX::MemoryImage(static_cast<int>(std::min(area.getWidth(), patch.width)),
                             static_cast<int>(std::min(area.getHeight(), patch.height)),
                             patch.image->layerSequence(), patch.image->dataType()));
    result->copy(part.get());
    return result;
}

} // namespace

/// The cache of all objects of the class, and the worker that fills it.
class LODTextureManager : public ResourceManager<LODTexture::Patch, NBX::TextureGL> {
    using Base = ResourceManager<LODTexture::Patch, NBX::TextureGL>;
    NBX_TEMPLATE_CLASS(LODTextureManager, Base)
public:
    LODTextureManager() : ResourceManager(s_maxLevelMemory, true, textureRequestAgeLimit, s_levelIdleSleep) {}
    ~LODTextureManager() override { shutdown(); }

    double sizeOf(const NBX::SO<LODTexture::Patch> & key) const override {
        return textureBytesPerTexel * key->width * key->height;
    }
};

namespace {

using LevelHolder = TextureManagerHolder<LODTextureManager>;

const bool s_levelsAreInFrames = LevelHolder::registerFrames(LODTexture::beginFrame, LODTexture::endFrame);

unsigned textureSize(int pixels) {
    return LODTextureRequest::textureSize(static_cast<std::uint64_t>(std::max(pixels, 0)));
}

} // namespace

LODTexture::Patch::Patch(LODTexture_Image * patchImage, const NBX::Bounds & imageBox, unsigned patchLevel,
                         const NBX::Bounds & patchBounds, NBX::EngineGL * patchEngine)
    : image(patchImage), imageBounds(imageBox), level(patchLevel), bounds(patchBounds),
      width(textureSize(patchImage ? patchImage->width() : 0)),
      height(textureSize(patchImage ? patchImage->height() : 0)), engine(patchEngine),
      hasBorder(engine && engine->hasExtension("GL_ARB_texture_border_clamp")) {}

LODTexture::Patch::~Patch() = default;

LODTexture::Mapper::Mapper() : NonPersistentDictionary(texturePatchBuckets) {}

LODTexture::Mapper::~Mapper() = default;

NBX::SO<NBX::TextureGL> LODTexture::Preparer::call(NBX::SO<Patch> patch) {
    NBX_CHECK(patch, L"no patch");
    if (!patch) return EmptyTexture::texture();
    NBX_CHECK(patch->image, L"no image");
    NBX_CHECK(patch->engine, L"");
    if (!patch->image || !hasPixels(*patch->image, patch->imageBounds) || !hasArea(patch->bounds))
        return EmptyTexture::texture();

    const Point llf = patch->imageBounds.getLLF(), size = pixelSize(*patch->image, patch->imageBounds);
    const auto pixel = [&](const Point & p) {
        return Point((p.x - llf.x) / size.x, (p.z - llf.z) / size.y, 0.0);
    };
    const NBX::Area area =
        touchedPixels(*patch->image, pixel(patch->bounds.getLLF()), pixel(patch->bounds.getURB()));
    const NBX::SO<BorderedTexture> texture(new BorderedTexture(cut(*patch, area)));
    texture->setMatrix(
        Matrix::scaling({1.0 / (area.getWidth() * size.x), 1.0 / (area.getHeight() * size.y), 1.0}) *
        Matrix::translation({-llf.x - area.getX() * size.x, -llf.z - area.getY() * size.y, 0.0}));
    if (!patch->hasBorder) texture->setWrap(NBX::TextureGL::WM_ClampToEdge);
    return texture;
}

LODTexture::LODTexture()
    : TerrainTexture(NBX::TextureGL::FM_Linear, NBX::TextureGL::FM_Linear), images_(new Images),
      bboxes_(new Boxes) {}

LODTexture::LODTexture(const NBX::Image * image, const NBX::Bounds & bbox) : LODTexture() {
    NBX_CHECK(image, L"no image");
    NBX_CHECK(bbox.isDefined(), L"undefined bbox");
    if (!image || !hasArea(bbox)) return;
    bbox_ = inPlan(bbox);
    const NBX::Image * source = image;
    int x = image->width(), y = image->height();
    while (x > 0 && y > 0) {
        const NBX::SO<LODTexture_Image> level(new LODTexture_Image(source, x, y));
        if (level->width() == 0) break;
        images_->append(level);
        bboxes_->append(bbox_);
        if (x == 1 && y == 1) break;
        source = level.get();
        x = (x + 1) / 2;
        y = (y + 1) / 2;
    }
    if (images_->size() == 0) return;
    srcSizeX_ = static_cast<unsigned>(image->width());
    srcSizeY_ = static_cast<unsigned>(image->height());
    const Point size = pixelSize(*image, bbox_);
    texelSizeX_ = size.x;
    texelSizeY_ = size.y;
}

LODTexture::~LODTexture() = default;

void LODTexture::setBoundingBox(const NBX::Bounds & box) {
    const NBX::Bounds bbox = inPlan(box);
    NBX_CHECK(bbox.isDefined(), L"undefined bbox");
    if (!bbox.isDefined() || bbox == bbox_) return;
    const bool mayMove = hasArea(bbox_) && hasArea(bbox);
    for (unsigned i = 0; i < bboxes_->size(); ++i)
        bboxes_->set(i, mayMove ? moved(bboxes_->get(i), bbox_, bbox) : bbox);
    bbox_ = bbox;
    texelSizeX_ = srcSizeX_ > 0 ? bbox.diagonal().x / srcSizeX_ : 0.0;
    texelSizeY_ = srcSizeY_ > 0 ? bbox.diagonal().z / srcSizeY_ : 0.0;
    mapper_ = nullptr;
    modified();
}

namespace {

Levels levelsOf(const NBX::Array<NBX::SO<LODTexture_Image>> & images, const NBX::Array<NBX::Bounds> & boxes) {
    Levels levels;
    for (unsigned i = 0; i < images.size(); ++i) {
        const NBX::SO<LODTexture_Image> image = images.get(i);
        const Point size = pixelSize(*image, boxes.get(i));
        levels.push_back({size.x, size.y, static_cast<unsigned>(image->width()),
                          static_cast<unsigned>(image->height()), 1, 1});
    }
    return levels;
}

} // namespace

bool LODTexture::refine(const GeometryPatch * patch, const NBX::ViewInfo * viewInfo, unsigned, unsigned,
                        const Point & eye, double textureError, bool) const {
    NBX_CHECK(patch, L"no geometry patch");
    if (!patch || images_->size() == 0) return false;
    const NBX::Bounds shared = LODTextureRequest::overlap(bbox_, patch->boundingBox());
    return shared.isDefined() &&
           LODTextureRequest::refine(levelsOf(*images_, *bboxes_), shared, *viewInfo, eye, textureError);
}

NBX::SO<LODTexture::Patch> LODTexture::newPatch(const GeometryPatch & geometryPatch,
                                                NBX::EngineGL * engine) const {
    const NBX::Bounds curIntersection = LODTextureRequest::overlap(bbox_, geometryPatch.boundingBox());
    NBX_CHECK(curIntersection.isDefined(), L"");
    const unsigned level = LODTextureRequest::chooseLevel(levelsOf(*images_, *bboxes_), curIntersection);
    return new Patch(images_->get(level).get(), bboxes_->get(level), level, curIntersection, engine);
}

NBX::SO<NBX::TextureGL> LODTexture::requestImpl(const GeometryPatch * patch, NBX::EngineGL * engine,
                                                const NBX::ViewInfo * viewInfo, unsigned, unsigned,
                                                double priority, const Point & eye, double textureError, bool,
                                                bool asynchronous, bool & incomplete) const {
    const auto & MANAGER = LevelHolder::manager();
    NBX_CHECK(patch, L"no geometry patch");
    NBX_CHECK(engine, L"no engine");
    NBX_CHECK(MANAGER, L"manager not started");
    if (!patch || !MANAGER || images_->size() == 0 ||
        !LODTextureRequest::overlap(bbox_, patch->boundingBox()).isDefined())
        return EmptyTexture::texture();

    if (!mapper_) mapper_ = new Mapper;
    if (!preparer_) preparer_ = new Preparer;
    const NBX::SO<const GeometryPatch> wanted(patch);
    LODTextureRequest::map(*mapper_, wanted,
                           [&](const GeometryPatch & unknown) { return newPatch(unknown, engine); });
    const Levels levels = levelsOf(*images_, *bboxes_);
    const LODTextureRequest request(levels, *viewInfo, eye, textureError, asynchronous);
    return request.find<Patch>(*MANAGER, *mapper_, wanted, preparer_, priority, incomplete);
}

bool LODTexture::isConsistent() const {
    if (!images_ || !bboxes_ || images_->size() != bboxes_->size() || !hasArea(bbox_)) return false;
    for (unsigned i = 0; i < images_->size(); ++i) {
        const NBX::SO<LODTexture_Image> image = images_->get(i);
        if (!image || !hasPixels(*image, bboxes_->get(i))) return false;
    }
    return true;
}

void LODTexture::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexture>(m, this);
    NBX::attributeWithDefault(m, "srcSizeX", srcSizeX_, 0U);
    NBX::attributeWithDefault(m, "srcSizeY", srcSizeY_, 0U);
    NBX::attributeWithDefault(m, "bbox", bbox_, NBX::Bounds());
    NBX::attributeWithDefault(m, "images", images_, nullptr);
    NBX::attributeWithDefault(m, "bboxes", bboxes_, nullptr);
    NBX::attributeWithDefault(m, "texelSizeX", texelSizeX_, 0.0);
    NBX::attributeWithDefault(m, "texelSizeY", texelSizeY_, 0.0);
    if (!m.isReading()) return;
    NBX_FAILURE(L"deserialized deprecated class LODTexture");
    mapper_ = nullptr;
    if (isConsistent()) return;
    images_ = new Images;
    bboxes_ = new Boxes;
}

void LODTexture::beginFrame(const TerrainPainterFrameManager::Info &) {
    LevelHolder::beginFrame();
}

void LODTexture::endFrame(const TerrainPainterFrameManager::Info &) {
    LevelHolder::endFrame();
}

unsigned LODTexture::usedTextureMemory() {
    return LevelHolder::usedMemory();
}

unsigned LODTexture::getMaxTextureMemory() {
    return s_maxLevelMemory;
}

void LODTexture::setMaxTextureMemory(unsigned newMaxTextureMemory) {
    NBX_CHECK(newMaxTextureMemory >= 16 * 1024 * 1024,
              L"newMaxTextureMemory must be >= 16*1024*1024: " << newMaxTextureMemory);
    s_maxLevelMemory = newMaxTextureMemory;
    LevelHolder::setMaxMemory(newMaxTextureMemory);
}

void LODTexture::killManager() {
    LevelHolder::kill();
}

} // namespace ZMT::CORE
