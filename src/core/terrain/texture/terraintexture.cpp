#include <zmt/core/terrain/texture/terraintexture.h>

#include <nbx/object/serializationmanager.h>

namespace ZMT::CORE {

namespace {

using FilterMode = TerrainTexture::FilterMode;

/// Stored as its number. A number that means no filter is read as the default.
void serializeFilter(NBX::SerializationManager & m, const char * name, FilterMode & filter,
                     FilterMode defaultFilter) {
    int number = filter;
    NBX::attributeWithDefault(m, name, number, defaultFilter);
    const bool isFilter =
        number >= NBX::TextureGL::FM_Nearest && number <= NBX::TextureGL::FM_NearestMipmapLinear;
    filter = isFilter ? static_cast<FilterMode>(number) : defaultFilter;
}

} // namespace

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
    serializeFilter(m, "minFilter", minFilter_, NBX::TextureGL::FM_LinearMipmapLinear);
    serializeFilter(m, "magFilter", magFilter_, NBX::TextureGL::FM_Linear);
}

} // namespace ZMT::CORE
