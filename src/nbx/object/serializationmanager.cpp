#include <nbx/object/serializationmanager.h>

#include <unordered_map>

namespace NBX {

namespace {

/// Filled while libraries load, read-only behind.
std::unordered_map<ID, SerializationManager::Factory> & factories() {
    static auto & table = *new std::unordered_map<ID, SerializationManager::Factory>;
    return table;
}

} // namespace

bool SerializationManager::registerClass(const ID & name, Factory factory) {
    factories()[name] = factory;
    return true;
}

bool SerializationManager::isRegistered(const ID & name) {
    return factories().contains(name);
}

SharedObj * SerializationManager::newInstance(const ID & name) {
    const auto entry = factories().find(name);
    return entry == factories().end() ? nullptr : entry->second();
}

} // namespace NBX
