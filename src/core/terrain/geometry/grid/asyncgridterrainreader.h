#pragma once

#include <nbx/data/objectreader.h>

namespace ZMT::CORE::GRID {

/// Opens files of `AsyncGridTerrain` in place, from disks and web servers.
class AsyncGridTerrainReader : public NBX::ObjectReader {
    NBX_CLASS(AsyncGridTerrainReader, NBX::ObjectReader)
public:
    bool canProduce(const NBX::ID & className) const override;
    std::string objectFileSuffix() const override;
    std::string objectFormatName() const override;
    NBX::SO<NBX::SharedObj> read(NBX::DataResource * resource) override;
    bool readsFrom(const std::string & scheme) const override;
};

} // namespace ZMT::CORE::GRID
