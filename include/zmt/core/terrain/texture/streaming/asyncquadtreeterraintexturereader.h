#pragma once

#include <string>

#include <nbx/data/objectreader.h>

namespace ZMT::CORE {

/// Opens streaming textures, of the disk and of web servers, that are not scrambled.
class AsyncQuadtreeTerrainTextureReader : public NBX::ObjectReader {
    NBX_CLASS(AsyncQuadtreeTerrainTextureReader, NBX::ObjectReader)
public:
    bool canProduce(const NBX::ID & className) const override;
    std::string objectFileSuffix() const override;
    std::string objectFormatName() const override;
    /// Takes the name of `resource` for the path or the URL. Null without a name, and for what is no
    /// streaming texture; a null `resource` is reported. On the render thread.
    NBX::SO<NBX::SharedObj> read(NBX::DataResource * resource) override;
    /// "http" and "https".
    bool readsFrom(const std::string & scheme) const override;
};

} // namespace ZMT::CORE
