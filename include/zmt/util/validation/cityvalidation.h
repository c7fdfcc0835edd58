#pragma once

#include <cstdint>
#include <string>

#include <nbx/data/dataresource.h>
#include <nbx/object/so.h>
#include <zmt/core/misc/asyncfile.h>
#include <zmt/util/validation/filevalidation.h>

namespace ZMT::UTIL {

/// Checks whether a city is all that it says: its scene, the table of its models, the nodes and meshes of its
/// trees, and in their paging files each block, which is read, and decoded where it is JPEG. Every byte of
/// those belongs to one block.
class CityValidation {
public:
    /// Whether `file` begins as a stored object, and is none of another class as far as it tells. What cannot
    /// be read is none.
    static bool isCity(CORE::AsyncFile & file);
    /// `locator` is that of `file`, and says where the paging files are. Opens these, and uses all of them on
    /// the calling thread, to which the file belongs. Decoders report what they meet.
    static ValidationReport run(CORE::AsyncFile & file, const std::string & locator);
};

} // namespace ZMT::UTIL
