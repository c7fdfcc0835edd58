#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace NBX {

/// Interned identifier of a class, an attribute or a service. Equal texts share one storage, so that
/// comparison is one of pointers. Copies are free; may be used from any thread.
class ID {
public:
    /// The empty identifier.
    ID() : ID("") {}
    ID(const char * text);
    explicit ID(const std::string & text) : ID(text.c_str()) {}

    /// Zero-terminated, valid for the life of the process.
    const char * text() const { return text_->c_str(); }
    bool isEmpty() const { return text_->empty(); }

    bool operator==(const ID & other) const { return text_ == other.text_; }
    bool operator!=(const ID & other) const { return text_ != other.text_; }
    /// Order of the texts, so that sorted tables look the same in every run.
    bool operator<(const ID & other) const { return text_ != other.text_ && *text_ < *other.text_; }

    std::size_t hash() const { return std::hash<const void *>()(text_); }

private:
    const std::string * text_;
};

} // namespace NBX

template <> struct std::hash<NBX::ID> {
    std::size_t operator()(const NBX::ID & id) const { return id.hash(); }
};
