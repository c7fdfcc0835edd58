#include <nbx/object/id.h>

#include <mutex>
#include <unordered_set>

namespace NBX {

namespace {

/// Identifiers are made while libraries load, so the table is built on first use and never destroyed.
const std::string * intern(const char * text) {
    static std::mutex & mutex = *new std::mutex;
    static auto & texts = *new std::unordered_set<std::string>;
    const std::lock_guard lock(mutex);
    return &*texts.emplace(text ? text : "").first;
}

} // namespace

ID::ID(const char * text) : text_(intern(text)) {}

} // namespace NBX
