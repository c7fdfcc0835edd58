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
    bool isOnWebServer() const { return scheme_ == "http" || scheme_ == "https"; }
    /// The suffix of the last name, without dot, query and fragment.
    std::string suffix() const;
    /// The text without user name and password: as it may be stored.
    std::string withoutLogin() const;
    /// As it may be shown: of a URL also without query and fragment, which may be as good as a password.
    std::string shown() const;

    /// A text for people in which every URL is as `shown` gives it. It ends at a space or a quotation mark,
    /// and in front of what closes a part of a sentence.
    static std::string shownIn(const std::string & text);
    /// The same with every URL as `withoutLogin` gives it: names such as that of a file behind a URL in an
    /// archive, as they may be stored.
    static std::string withoutLoginsIn(const std::string & text);

    /// "%20" becomes a space; what is no such code stays.
    static std::string decoded(const std::string & text);

private:
    static std::string withUrlsIn(const std::string & text, std::string (Locator::*form)() const);

    std::string text_, scheme_;
};

} // namespace NBX
