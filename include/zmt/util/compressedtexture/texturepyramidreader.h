#pragma once

#include <nbx/data/objectreader.h>

namespace ZMT::UTIL {

/// Reads files of `CompressedTexture`, in place: the file stays open while its `TexturePyramid` lives.
/// Installed with `NBX::ObjectLoader`.
class TexturePyramidReader : public NBX::ObjectReader {
    NBX_CLASS(TexturePyramidReader, NBX::ObjectReader)
public:
    bool canProduce(const NBX::ID & className) const override;
    std::string objectFileSuffix() const override;
    std::string objectFormatName() const override;
    NBX::SO<NBX::SharedObj> read(NBX::DataResource * resource) override;
};

} // namespace ZMT::UTIL
