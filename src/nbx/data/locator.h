#pragma once

#include <string>

namespace NBX {

/// Says where an object lies: a path, or a URL such as "http://host/folder/name.ext?query".
class Locator {
public:
    explicit Locator(const std::string & text);

    /// As given; for a URL of the scheme "file" the path that it stands for.
    const std::string & text() const { return text_; }
    /// The scheme of a URL in small letters, "http"; empty for what is a file.
    const std::string & scheme() const { return scheme_; }
    bool isFile() const { return scheme_.empty(); }
    /// The suffix of the last name, without dot, query and fragment.
    std::string suffix() const;

private:
    std::string text_, scheme_;
};

} // namespace NBX
