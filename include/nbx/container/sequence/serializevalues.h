#pragma once

#include <bit>
#include <cstdint>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <nbx/object/serializationmanager.h>

namespace NBX {

static_assert(std::endian::native == std::endian::little, "raw blocks are stored in memory order");

// The stored forms of values and of sequences of values, shared by all containers.

/// A value that `SerializationManager` knows as an attribute.
template <class T>
concept AttributeValue = requires(SerializationManager & m, T & value) {
    m.attribute("", value);
};

/// A value class that stores itself.
template <class T>
concept SerializableValue = !AttributeValue<T> && requires(SerializationManager & m, T & value) {
    value.serialize(m);
};

template <class T> struct IsVector : std::false_type {};
template <class T> struct IsVector<std::vector<T>> : std::true_type {};

/// Without a form of its own a value is stored as its bytes. Addresses mean nothing in a file.
template <class T>
concept RawValue =
    !AttributeValue<T> && !SerializableValue<T> && std::is_trivially_copyable_v<T> && !std::is_pointer_v<T>;

template <class T>
void serializeValues(SerializationManager & m, const char * typeName, std::vector<T> & values);

/// One value under a name; false when reading finds none. Values that store themselves and nested
/// sequences are bracketed as containers with that name.
template <class T> bool serializeValue(SerializationManager & m, const char * name, T & value) {
    if constexpr (AttributeValue<T>) {
        return m.attribute(name, value);
    } else if constexpr (SerializableValue<T>) {
        if (!m.beginContainer(typeid(T).name(), name)) return false;
        value.serialize(m);
        m.endContainer(typeid(T).name(), name);
        return true;
    } else if constexpr (IsVector<T>::value) {
        if (!m.beginContainer(typeid(T).name(), name)) return false;
        serializeValues(m, typeid(typename T::value_type).name(), value);
        m.endContainer(typeid(T).name(), name);
        return true;
    } else {
        static_assert(RawValue<T>, "no stored form for this type");
        return m.rawAttribute(name, &value, sizeof value);
    }
}

/// "Size", "asRaw", then one block "raw" or one "Value" an element, bracketed as a container with the
/// attribute's name "Container". Throws `IOError` where the stream holds less than it tells.
template <class T>
void serializeValues(SerializationManager & m, const char * typeName, std::vector<T> & values) {
    if (!m.beginContainer(typeName, "Container")) return;
    auto size = static_cast<unsigned>(values.size());
    bool asRaw = std::is_arithmetic_v<T> || RawValue<T>;
    m.attribute("Size", size);
    m.attribute("asRaw", asRaw);
    m.separateValues();

    if (m.isReading()) {
        // A value takes at least one byte, and a raw one all of its bytes.
        const std::uint64_t least = asRaw ? std::uint64_t(size) * sizeof(T) : size;
        if (least > m.bytesLeft()) throw IOError(L"stored array is larger than its file");
        values.clear();
        values.resize(size);
    }
    if (asRaw) {
        if constexpr (std::is_trivially_copyable_v<T>) {
            if (!m.rawAttribute("raw", values.data(), std::uint64_t(size) * sizeof(T)) && m.isReading())
                throw IOError(L"stored array has no values");
        } else {
            throw IOError(L"stored array holds bytes where values are expected");
        }
    } else {
        for (T & value : values)
            if (!serializeValue(m, "Value", value) && m.isReading())
                throw IOError(L"stored array is cut short");
    }
    m.endContainer(typeName, "Container");
}

} // namespace NBX
