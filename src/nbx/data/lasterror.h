#pragma once

#include <cerrno>
#include <string>

#include <nbx/object/errorhandler.h>
#include <nbx/object/exception.h>

namespace NBX {

/// Throws for the failure of the last system call, on the file at `path`.
[[noreturn]] inline void throwLastError(const std::wstring & message, const std::string & path) {
    const std::wstring detail = ErrorHandler::getLastError();
    if (errno == ENOENT) throw FileNotFoundException(L"file not found", path, 0, detail);
    throw IOException(message, path, 0, detail);
}

} // namespace NBX
