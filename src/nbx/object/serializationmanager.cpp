#include <nbx/object/serializationmanager.h>

#include <algorithm>
#include <mutex>
#include <unordered_map>

#include <nbx/object/stringutils.h>

#include "registeredclasses.h"

namespace NBX {

namespace {

/// Filled while libraries load, which plug-ins may do at any time; built on first use and never destroyed.
struct Registry {
    std::mutex mutex;
    std::unordered_map<ID, SerializationManager::Factory> factories;

    SerializationManager::Factory find(const ID & name) {
        const std::lock_guard lock(mutex);
        const auto entry = factories.find(name);
        return entry == factories.end() ? nullptr : entry->second;
    }
};

Registry & registry() {
    static Registry & instance = *new Registry;
    return instance;
}

} // namespace

std::vector<ID> registeredClasses() {
    std::vector<ID> names;
    const std::lock_guard lock(registry().mutex);
    for (const auto & [name, factory] : registry().factories)
        names.push_back(name);
    std::sort(names.begin(), names.end(),
              [](const ID & a, const ID & b) { return std::string_view(a.text()) < b.text(); });
    return names;
}

bool SerializationManager::registerClass(const ID & name, Factory factory) {
    const std::lock_guard lock(registry().mutex);
    registry().factories[name] = factory;
    return true;
}

bool SerializationManager::isRegistered(const ID & name) {
    return registry().find(name) != nullptr;
}

SharedObj * SerializationManager::newInstance(const ID & name) {
    const Factory factory = registry().find(name);
    return factory ? factory() : nullptr;
}

void SerializationManager::reportDefault(const char * attributeName, const std::exception & failure) {
    NBX_FAILURE(L"the stored attribute "
                << StringUtils::Utf8String2WString(attributeName ? attributeName : "")
                << L" cannot be read and has its default: "
                << StringUtils::Utf8String2WString(failure.what()));
}

} // namespace NBX
