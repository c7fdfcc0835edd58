#pragma once

#include <exception>
#include <string>

namespace NBX {

/// Base of the failures that a caller must see; thrown by value.
class Exception : public std::exception {
public:
    explicit Exception(const std::wstring & message, const std::string & text = "", int line = 0,
                       const std::wstring & detail = L"");

    const std::wstring & message() const { return message_; }
    const std::wstring & detail() const { return detail_; }
    /// Message, text and detail on one line, in UTF-8.
    const char * what() const noexcept override { return what_.c_str(); }

private:
    std::wstring message_;
    std::wstring detail_;
    std::string what_;
};

class IOException : public Exception {
public:
    using Exception::Exception;
};

/// Input that cannot be used; `path` names the file.
class InputException : public IOException {
public:
    explicit InputException(const std::wstring & message, const std::string & path = "", int line = 0,
                            const std::wstring & detail = L"")
        : IOException(message, path, line, detail), path_(path) {}

    const std::string & path() const { return path_; }

private:
    std::string path_;
};

class FileNotFoundException : public InputException {
public:
    using InputException::InputException;
};

/// Unusable data.
class IOError : public Exception {
public:
    explicit IOError(const std::wstring & message, const std::wstring & detail = L"")
        : Exception(message, "", 0, detail) {}
};

} // namespace NBX
