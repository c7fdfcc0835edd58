#include <nbx/data/locator.h>

#include <algorithm>
#include <cctype>

#include <nbx/data/file.h>

namespace NBX {

namespace {

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    const int letter = std::tolower(static_cast<unsigned char>(c));
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

/// Empty where `text` begins with none.
std::string schemeOf(const std::string & text) {
    const std::size_t end = text.find("://");
    if (end == std::string::npos || end == 0 || !std::isalpha(static_cast<unsigned char>(text[0]))) return {};
    std::string scheme;
    for (const char c : text.substr(0, end)) {
        const auto letter = static_cast<unsigned char>(c);
        if (!std::isalnum(letter) && c != '+' && c != '-' && c != '.') return {};
        scheme += static_cast<char>(std::tolower(letter));
    }
    return scheme;
}

/// Where the URL ends in a sentence whose letters from `begin` on are one. An apostrophe with a letter behind
/// it does not end it: passwords and queries may have some.
std::size_t endOfUrl(const std::string & text, std::size_t begin) {
    constexpr const char * stops = " \t\r\n\"'<>";
    std::size_t end = text.find_first_of(stops, begin);
    while (end < text.size() && text[end] == '\'' && end + 1 < text.size() &&
           std::isalnum(static_cast<unsigned char>(text[end + 1])))
        end = text.find_first_of(stops, end + 1);
    end = std::min(end, text.size());
    const std::size_t last = text.find_last_not_of(".,:;)", end - 1);
    return last == std::string::npos || last < begin ? end : last + 1;
}

} // namespace

Locator::Locator(const std::string & text) : text_(text), scheme_(schemeOf(text)) {
    if (scheme_ != "file") return;
    // The host between the slashes is this one.
    const std::size_t path = text.find('/', scheme_.size() + 3);
    text_ = path == std::string::npos ? std::string() : decoded(text.substr(path));
    scheme_.clear();
}

std::string Locator::suffix() const {
    if (isFile()) return File::extensionName(text_);
    const std::string whole = text_.substr(0, text_.find_first_of("?#"));
    const std::size_t path = whole.find('/', scheme_.size() + 3);
    return path == std::string::npos ? std::string() : File::extensionName(whole.substr(path));
}

std::string Locator::withoutLogin() const {
    if (isFile()) return text_;
    const std::size_t begin = scheme_.size() + 3;
    const std::size_t end = std::min(text_.find_first_of("/?#", begin), text_.size());
    const std::size_t at = text_.substr(0, end).rfind('@');
    return at == std::string::npos || at < begin ? text_ : text_.substr(0, begin) + text_.substr(at + 1);
}

std::string Locator::shown() const {
    const std::string whole = withoutLogin();
    return isFile() ? whole : whole.substr(0, whole.find_first_of("?#"));
}

std::string Locator::decoded(const std::string & text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isCode =
            text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0;
        result += isCode ? static_cast<char>(16 * hexDigit(text[i + 1]) + hexDigit(text[i + 2])) : text[i];
        if (isCode) i += 2;
    }
    return result;
}

std::string Locator::shownIn(const std::string & text) {
    return withUrlsIn(text, &Locator::shown);
}

std::string Locator::withoutLoginsIn(const std::string & text) {
    return withUrlsIn(text, &Locator::withoutLogin);
}

std::string Locator::withUrlsIn(const std::string & text, std::string (Locator::*form)() const) {
    std::string result;
    std::size_t done = 0;
    for (std::size_t mark = text.find("://"); mark != std::string::npos; mark = text.find("://", done)) {
        std::size_t begin = mark;
        while (begin > done && std::isalnum(static_cast<unsigned char>(text[begin - 1])))
            --begin;
        const std::size_t end = std::max(endOfUrl(text, begin), mark + 3);
        const Locator url(text.substr(begin, end - begin));
        result += text.substr(done, begin - done);
        result += url.isFile() ? text.substr(begin, end - begin) : (url.*form)();
        done = end;
    }
    return result + text.substr(done);
}

} // namespace NBX
