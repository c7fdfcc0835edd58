#pragma once

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <support/silentserializationmanager.h>

/// Plain attributes by name, and the order in which they came. Parents have no part of their own.
class MemoryStream : public SilentSerializationManager {
public:
    using SilentSerializationManager::attribute;

    std::map<std::string, std::vector<unsigned char>> attributes;
    std::vector<std::string> order;
    bool reads = false;
    std::uint64_t left = UINT64_MAX;

    template <class T> void set(const char * name, T value) {
        attributes[name].assign(sizeof value, 0);
        std::memcpy(attributes[name].data(), &value, sizeof value);
    }

    bool isReading() const override { return reads; }
    bool isWriting() const override { return !reads; }
    bool beginContainer(const char *, const char *) override { return true; }
    bool rawAttribute(const char * name, void * pointer, std::uint64_t bytes) override {
        if (!reads) {
            const auto * first = static_cast<const unsigned char *>(pointer);
            attributes[name].assign(first, first + bytes);
            order.push_back(name);
            return true;
        }
        const auto entry = attributes.find(name);
        if (entry == attributes.end() || entry->second.size() != bytes) return false;
        std::memcpy(pointer, entry->second.data(), bytes);
        return true;
    }
    bool attribute(const char * name, bool & value) override { return plain(name, value); }
    bool attribute(const char * name, int & value) override { return plain(name, value); }
    bool attribute(const char * name, unsigned & value) override { return plain(name, value); }
    bool attribute(const char * name, unsigned short & value) override { return plain(name, value); }
    bool attribute(const char * name, std::uint64_t & value) override { return plain(name, value); }
    bool attribute(const char * name, float & value) override { return plain(name, value); }
    bool attribute(const char * name, double & value) override { return plain(name, value); }
    std::uint64_t bytesLeft() const override { return left; }

private:
    template <class T> bool plain(const char * name, T & value) {
        return rawAttribute(name, &value, sizeof value);
    }
};
