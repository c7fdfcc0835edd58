// The pixels of the root of a light map tell what it is: luminance is light, colours are normals.

#include <zmt/core/terrain/geometry/grid/asyncgridterrain.h>

#include <cstring>

#include <nbx/data/dataresource.h>
#include <zmt/core/misc/asyncfile.h>

#include "core/terrain/geometry/grid/model/tileblock.h"
#include "core/terrain/texture/streaming/streamingtextureformat.h"

namespace ZMT::CORE::GRID {

namespace {

using NBX::DataResource;
using NBX::SO;

template <class Record> bool take(const SO<DataResource> & data, Record & record) {
    if (!data || data->size() < sizeof record) return false;
    std::memcpy(&record, data->pointer(), sizeof record);
    return true;
}

} // namespace

AsyncGridTerrain::LightMap AsyncGridTerrain::lightMapKind() const {
    const SO<AsyncFile> file = this->file();
    const std::uint64_t offset = lightMapOffset();
    if (!file || file->size() < offset + StreamingTextureFormat::headerSize) return LM_None;
    StreamingTextureFormat::StreamHeader stream;
    if (!take(file->readNow(offset, sizeof stream), stream) || !stream.isSound(file->size() - offset))
        return LM_None;
    const SO<DataResource> stored = file->readNow(offset + stream.root.offset, stream.root.storedSize);
    StreamingTextureFormat::TileHeader root;
    if (!stored || !take(TileBlock::inflated(stream.root, stored), root) ||
        !root.isSound(stream.root, stream.dataSize))
        return LM_None;
    return root.pixelFormat == StreamingTextureFormat::PF_Luminance ? LM_Light : LM_Normals;
}

} // namespace ZMT::CORE::GRID
