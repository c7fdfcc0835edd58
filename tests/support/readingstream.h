#pragma once

#include <map>
#include <string>

#include <nbx/math/bounds.h>

#include "silentserializationmanager.h"

/// A stream that has nothing but objects and boxes by the name of their attribute: for reading into an object
/// that has been in use.
class ReadingStream : public SilentSerializationManager {
public:
    using SilentSerializationManager::attribute;

    bool isReading() const override { return true; }
    bool isWriting() const override { return false; }
    bool attribute(const char * name, NBX::SO<NBX::SharedObj> & value) override {
        const auto found = objects.find(name);
        if (found == objects.end()) return false;
        value = found->second;
        return true;
    }

    bool attribute(const char * name, NBX::Bounds & value) override {
        const auto found = boxes.find(name);
        if (found == boxes.end()) return false;
        value = found->second;
        return true;
    }

    std::map<std::string, NBX::SO<NBX::SharedObj>> objects;
    std::map<std::string, NBX::Bounds> boxes;
};
