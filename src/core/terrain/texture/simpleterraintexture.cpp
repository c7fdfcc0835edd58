#include <zmt/core/terrain/texture/simpleterraintexture.h>

#include <array>
#include <bit>
#include <cstdint>

#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

namespace {

constexpr double s_unbounded = 1e42;

/// Tells apart what compares as equal, such as 0 and -0.
std::array<std::uint64_t, 16> bytesOf(const SimpleTerrainTexture::Matrix & matrix) {
    return std::bit_cast<std::array<std::uint64_t, 16>>(matrix.rows());
}

} // namespace

SimpleTerrainTexture::SimpleTerrainTexture()
    : TerrainTexture(NBX::TextureGL::FM_LinearMipmapLinear, NBX::TextureGL::FM_Linear) {}

SimpleTerrainTexture::SimpleTerrainTexture(NBX::SO<NBX::TextureGL> texture, const NBX::Bounds & bbox,
                                           const Matrix & textureMatrix)
    : TerrainTexture(NBX::TextureGL::FM_LinearMipmapLinear, NBX::TextureGL::FM_Linear), texture_(texture),
      textureMatrix_(textureMatrix) {
    NBX_CHECK(texture, L"no texture");
    SimpleTerrainTexture::setBoundingBox(bbox);
    if (!texture) return;
    minFilter_ = texture->getMinFilter();
    magFilter_ = texture->getMagFilter();
}

bool SimpleTerrainTexture::refine(const GeometryPatch *, const NBX::ViewInfo *, unsigned, unsigned,
                                  const NBX::Vector3Base<double> &, double, bool) const {
    return false;
}

NBX::SO<NBX::TextureGL> SimpleTerrainTexture::requestImpl(const GeometryPatch *, NBX::EngineGL *,
                                                          const NBX::ViewInfo *, unsigned, unsigned, double,
                                                          const NBX::Vector3Base<double> &, double, bool,
                                                          bool, bool &) const {
    return mappingValid_ ? texture_ : nullptr;
}

void SimpleTerrainTexture::setBoundingBox(const NBX::Bounds & box) {
    if (!box.isDefined()) {
        setMapping(textureMatrix_);
        modified();
        return;
    }
    if (mappingValid_ && box == bbox_) return;

    const NBX::Vector3Base<double> llf = box.getLLF(), urb = box.getURB();
    bbox_ = NBX::Bounds(NBX::Vector3Base<double>(urb.x, s_unbounded, urb.z),
                        NBX::Vector3Base<double>(llf.x, -s_unbounded, llf.z));
    const double width = urb.x - llf.x, depth = urb.z - llf.z;
    if (width > 0.0 && depth > 0.0)
        setMapping(textureMatrix_ * Matrix::scaling({1.0 / width, 1.0 / depth, 1.0}) *
                   Matrix::translation({-llf.x, -llf.z, 0.0}));
    else
        mappingValid_ = false;
    modified();
}

void SimpleTerrainTexture::setMapping(const Matrix & mapping) {
    if (texture_) texture_->setMatrix(mapping);
    mappingValid_ = true;
}

void SimpleTerrainTexture::setTextureMatrix(const Matrix & matrix) {
    if (bytesOf(matrix) == bytesOf(textureMatrix_)) return;
    textureMatrix_ = matrix;
    mappingValid_ = false;
    setBoundingBox(bbox_);
}

void SimpleTerrainTexture::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<TerrainTexture>(m, this);
    NBX::attributeWithDefault(m, "texture", texture_, nullptr);
    NBX::attributeWithDefault(m, "bbox", bbox_, NBX::Bounds());
    NBX::attributeWithDefault(m, "textureMatrix", textureMatrix_, Matrix());
    if (!m.isReading()) return;
    mappingValid_ = false;
    setBoundingBox(bbox_);
}

NBX_STORED_CLASS_IMPL(SimpleTerrainTexture, TerrainTexture)

} // namespace ZMT::CORE
