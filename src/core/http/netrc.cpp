#include "netrc.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include <nbx/data/file.h>
#include <nbx/object/exception.h>

namespace ZMT::CORE::IMPL {

namespace {

/// Larger files are none.
constexpr std::uint64_t s_largestFile = 1 << 20;

constexpr std::string_view s_blanks = " \t\r\n";

/// Cuts the words off the front of a text: blanks part them, quotation marks hold blanks together, comments
/// last up to the end of their line, and a macro up to an empty line.
class Words {
public:
    explicit Words(std::string_view text) : text_(text) {}

    /// The next keyword, behind comments; false behind the last one.
    bool nextKeyword(std::string & word) {
        for (skipBlanks(); text_.starts_with('#'); skipBlanks())
            text_.remove_prefix(std::min(text_.find('\n'), text_.size()));
        return next(word);
    }
    /// The next word, which may look like a comment: passwords do.
    bool next(std::string & word) {
        word.clear();
        skipBlanks();
        if (text_.empty()) return false;
        if (text_.front() == '"')
            takeQuoted(word);
        else
            takePlain(word);
        return true;
    }
    void skipMacro() {
        const std::size_t end = text_.find("\n\n");
        text_.remove_prefix(end == std::string_view::npos ? text_.size() : end);
    }

private:
    void skipBlanks() { text_.remove_prefix(std::min(text_.find_first_not_of(s_blanks), text_.size())); }
    void takePlain(std::string & word) {
        const std::size_t end = std::min(text_.find_first_of(s_blanks), text_.size());
        word = text_.substr(0, end);
        text_.remove_prefix(end);
    }
    void takeQuoted(std::string & word) {
        std::size_t i = 1;
        for (; i < text_.size() && text_[i] != '"'; ++i) {
            if (text_[i] == '\\' && i + 1 < text_.size()) ++i;
            word += text_[i];
        }
        text_.remove_prefix(std::min(i + 1, text_.size()));
    }

    std::string_view text_;
};

} // namespace

std::optional<NetrcLogin> findNetrcLogin(std::string_view text, std::string_view host) {
    Words words(text);
    NetrcLogin login;
    bool isMeant = false;
    for (std::string word; words.nextKeyword(word);) {
        if (word == "machine" || word == "default") {
            if (isMeant) return login;
            std::string name(host);
            if (word == "machine") words.next(name);
            isMeant = name == host;
        } else if (word == "macdef") {
            words.skipMacro();
        } else if (word == "login" || word == "password" || word == "account") {
            std::string value;
            words.next(value);
            if (isMeant && word == "login") login.name = value;
            if (isMeant && word == "password") login.password = value;
        }
    }
    if (!isMeant) return std::nullopt;
    return login;
}

std::optional<NetrcLogin> netrcLogin(std::string_view host) {
    std::string path;
    if (const char * named = std::getenv("NETRC"))
        path = named;
    else if (const char * home = std::getenv("HOME"))
        path = std::string(home) + "/.netrc";
    if (path.empty() || !NBX::File::isFile(path)) return std::nullopt;
    try {
        const std::vector<std::uint8_t> bytes = NBX::File::contents(path, s_largestFile);
        return findNetrcLogin(std::string(bytes.begin(), bytes.end()), host);
    } catch (const NBX::Exception &) {
        return std::nullopt;
    }
}

} // namespace ZMT::CORE::IMPL
