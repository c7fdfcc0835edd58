#pragma once

#include <nbx/data/dataresource.h>

namespace NBX {

/// Compresses whole blocks to zlib streams (RFC 1950) and back. May be used from any thread.
class ZLibFilter {
public:
    /// A new block; null when there is no resource or the result would not fit in a resource. Levels are
    /// 0 (stored) to 9, and up to 12 for the smallest result; larger ones are taken as 12.
    static SO<DataResource> compress(SO<DataResource> resource, unsigned level);
    static SO<DataResource> compress(const void * data, unsigned size, unsigned level);
    /// True only when the stream is sound and exactly `size` bytes came out of it. Bytes behind the
    /// stream's end are not looked at; `usedSize`, where given, is the length of the stream then.
    static bool uncompress(const void * compressed, unsigned compressedSize, void * data, unsigned size,
                           unsigned * usedSize = nullptr);
};

} // namespace NBX
