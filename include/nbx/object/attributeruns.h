#pragma once

#include <cstdint>

#include <nbx/object/serializationmanager.h>

namespace NBX {

/// What a stream offers besides `SerializationManager` that reads and writes several values of one name in
/// one step.
class AttributeRuns {
public:
    virtual ~AttributeRuns() = default;

    /// False when reading finds fewer.
    virtual bool run(const char * name, int * values, std::uint64_t count) = 0;
    virtual bool run(const char * name, unsigned * values, std::uint64_t count) = 0;
    virtual bool run(const char * name, unsigned short * values, std::uint64_t count) = 0;
    virtual bool run(const char * name, float * values, std::uint64_t count) = 0;
    virtual bool run(const char * name, double * values, std::uint64_t count) = 0;
};

/// The same as `attribute` for each of `count` values of one name, in their order. False when reading finds
/// fewer; the first ones may then have been read.
template <class T>
bool attributes(SerializationManager & m, const char * name, T * values, std::uint64_t count) {
    if (auto * runs = dynamic_cast<AttributeRuns *>(&m)) return runs->run(name, values, count);
    for (std::uint64_t i = 0; i < count; ++i)
        if (!m.attribute(name, values[i])) return false;
    return true;
}

} // namespace NBX
