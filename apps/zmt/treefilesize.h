#pragma once

#include <cstdint>
#include <string>

namespace ZMT::CORE {
class GridData;
}

/// Throws `DataError`, which names `heights`, when the tree over `grid` would take more than `most` bytes in
/// a file: readers take no more than 4 GiB.
void checkTreeFileSize(const std::string & heights, const ZMT::CORE::GridData & grid, unsigned maxVertices,
                       std::uint64_t most = UINT32_MAX);
