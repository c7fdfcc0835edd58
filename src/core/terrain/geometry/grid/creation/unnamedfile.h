#pragma once

#include <string>

#include <nbx/data/file.h>
#include <nbx/object/so.h>

namespace ZMT::CORE::GRID {

/// A new file that is gone when it is closed, in the folder of `path`, or where that cannot be, in that for
/// temporary files. Throws `NBX::IOException`.
inline NBX::SO<NBX::File> unnamedFile(const std::string & path) {
    if (NBX::SO<NBX::File> file = NBX::File::createUnnamed(path)) return file;
    const std::string temporary = NBX::File::temporaryFileName("zmt-terrain-");
    NBX::SO<NBX::File> file(new NBX::File(temporary, NBX::WM_Create));
    NBX::File::remove(temporary);
    return file;
}

} // namespace ZMT::CORE::GRID
