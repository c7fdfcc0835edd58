#pragma once

#include <bit>
#include <cstdint>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <nbx/object/serializationmanager.h>

namespace NBX {

static_assert(std::endian::native == std::endian::little, "raw blocks are stored in memory order");

/// The stored form of a sequence of values, shared by all arrays: "Size", "asRaw", then one block "raw" or
/// one "Value" an element, bracketed as a container with the attribute's name "Container".

template <class T>
void serializeValues(SerializationManager & m, const char * typeName, std::vector<T> & values) {
    constexpr bool hasOwnForm = requires(T & value) {
        m.attribute("", value);
    };
    static_assert(hasOwnForm || std::is_trivially_copyable_v<T>, "no stored form for this element type");

    if (!m.beginContainer(typeName, "Container")) return;
    auto size = static_cast<unsigned>(values.size());
    bool asRaw = std::is_arithmetic_v<T> || !hasOwnForm;
    m.attribute("Size", size);
    m.attribute("asRaw", asRaw);
    m.separateValues();

    if (m.isReading()) {
        if (size > m.bytesLeft()) throw IOError(L"stored array is larger than its file");
    }
    if (asRaw) {
        if constexpr (std::is_trivially_copyable_v<T>) {
            const std::uint64_t bytes = std::uint64_t(size) * sizeof(T);
            if (m.isReading() && bytes > m.bytesLeft())
                throw IOError(L"stored array is larger than its file");
            values.resize(size);
            if (!m.rawAttribute("raw", values.data(), bytes) && m.isReading())
                throw IOError(L"stored array has no values");
        } else {
            throw IOError(L"stored array holds bytes where values are expected");
        }
    } else if constexpr (hasOwnForm) {
        values.resize(size);
        for (T & value : values)
            if (!m.attribute("Value", value) && m.isReading()) throw IOError(L"stored array is cut short");
    }
    m.endContainer(typeName, "Container");
}

} // namespace NBX
