#include <zmt/core/terrain/texture/terraintexture.h>

#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

NBX_CLASS_IMPL(TerrainTexture, NBX::SharedObj)

void TerrainTexture::minFilter(FilterMode mode) {
    if (mode == minFilter_) return;
    minFilter_ = mode;
    modified();
}

void TerrainTexture::magFilter(FilterMode mode) {
    if (mode == magFilter_) return;
    magFilter_ = mode;
    modified();
}

NBX::SO<NBX::TextureGL> TerrainTexture::request(const GeometryPatch * patch, NBX::EngineGL * engine,
                                                const NBX::ViewInfo * viewInfo, unsigned viewportWidth,
                                                unsigned viewportHeight, double priority,
                                                const NBX::Vector3Base<double> & eye, double textureError,
                                                bool inMotion, bool asynchronous, bool & incomplete) const {
    NBX::SO<NBX::TextureGL> texture =
        requestImpl(patch, engine, viewInfo, viewportWidth, viewportHeight, priority, eye, textureError,
                    inMotion, asynchronous, incomplete);
    if (texture) {
        texture->setMinFilter(minFilter());
        texture->setMagFilter(magFilter());
    }
    return texture;
}

void TerrainTexture::serialize(NBX::SerializationManager & m) {
    m.enterObject();
    NBX::serializeSuperclass<NBX::SharedObj>(m, this);
    int minFilter = minFilter_, magFilter = magFilter_;
    NBX::attributeWithDefault(m, "minFilter", minFilter, 2);
    NBX::attributeWithDefault(m, "magFilter", magFilter, 1);
    minFilter_ = static_cast<FilterMode>(minFilter);
    magFilter_ = static_cast<FilterMode>(magFilter);
}

} // namespace ZMT::CORE
