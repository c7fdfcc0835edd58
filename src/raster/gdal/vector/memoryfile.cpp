#include "memoryfile.h"

#include <atomic>

#include <cpl_vsi.h>

namespace ZMT::RASTER {

MemoryFile::MemoryFile(const std::string & suffix) {
    static std::atomic<unsigned> counter{0};
    path_ = "/vsimem/zmt-vectors-" + std::to_string(++counter) + "." + suffix;
}

MemoryFile::~MemoryFile() {
    VSIUnlink(path_.c_str());
}

std::span<const std::uint8_t> MemoryFile::bytes() const {
    vsi_l_offset size = 0;
    const GByte * bytes = VSIGetMemFileBuffer(path_.c_str(), &size, FALSE);
    return {bytes, bytes ? static_cast<std::size_t>(size) : 0};
}

} // namespace ZMT::RASTER
