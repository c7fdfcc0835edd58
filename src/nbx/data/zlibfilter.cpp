#include <nbx/data/zlibfilter.h>

#include <algorithm>
#include <cstdint>
#include <memory>

#include <libdeflate.h>

#include <nbx/data/memorydataresource.h>
#include <nbx/object/errorhandler.h>

namespace NBX {

namespace {

constexpr unsigned s_maxLevel = 12;

struct FreeCodec {
    void operator()(libdeflate_compressor * codec) const { libdeflate_free_compressor(codec); }
    void operator()(libdeflate_decompressor * codec) const { libdeflate_free_decompressor(codec); }
};
using Compressor = std::unique_ptr<libdeflate_compressor, FreeCodec>;
using Decompressor = std::unique_ptr<libdeflate_decompressor, FreeCodec>;

/// Codecs are costly to make and belong to one thread, so each thread keeps its own.
libdeflate_compressor * compressor(unsigned level) {
    thread_local Compressor codecs[s_maxLevel + 1];
    Compressor & codec = codecs[std::min(level, s_maxLevel)];
    if (!codec) codec.reset(libdeflate_alloc_compressor(static_cast<int>(std::min(level, s_maxLevel))));
    return codec.get();
}

libdeflate_decompressor * decompressor() {
    thread_local Decompressor codec(libdeflate_alloc_decompressor());
    return codec.get();
}

} // namespace

SO<DataResource> ZLibFilter::compress(SO<DataResource> resource, unsigned level) {
    NBX_CHECK(resource, L"no resource");
    return resource ? compress(resource->pointer(), resource->size(), level) : nullptr;
}

SO<DataResource> ZLibFilter::compress(const void * data, unsigned size, unsigned level) {
    NBX_CHECK(data || size == 0, L"no data");
    libdeflate_compressor * codec = compressor(level);
    if (!codec || (!data && size > 0)) return nullptr;

    const std::size_t bound = libdeflate_zlib_compress_bound(codec, size);
    const auto result = std::make_unique_for_overwrite<std::uint8_t[]>(bound);
    const std::size_t written = libdeflate_zlib_compress(codec, data ? data : "", size, result.get(), bound);
    if (written == 0 || written > UINT32_MAX) return nullptr;
    return new MemoryDataResource(result.get(), static_cast<unsigned>(written));
}

bool ZLibFilter::uncompress(const void * compressed, unsigned compressedSize, void * data, unsigned size,
                            unsigned * usedSize) {
    libdeflate_decompressor * codec = decompressor();
    if (!codec || !compressed || (!data && size > 0)) return false;
    std::uint8_t nowhere = 0;
    std::size_t used = 0, written = 0;
    const libdeflate_result result = libdeflate_zlib_decompress_ex(
        codec, compressed, compressedSize, data ? data : &nowhere, size, &used, &written);
    if (result != LIBDEFLATE_SUCCESS || written != size) return false;
    if (usedSize) *usedSize = static_cast<unsigned>(used);
    return true;
}

} // namespace NBX
