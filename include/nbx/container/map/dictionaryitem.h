#pragma once

#include <nbx/container/map/nonpersistenthashtable.h>
#include <nbx/container/sequence/serializevalues.h>

namespace NBX {

/// One entry of a dictionary. In its hash table the key alone identifies it.
template <class K, class V> struct DictionaryItem {
    K key{};
    V value{};

    /// Attributes "key" and "value"; throws `IOError` when one is missing.
    void serialize(SerializationManager & m) requires((AttributeValue<K> || SerializableValue<K> ||
                                                       RawValue<K>)&&(AttributeValue<V> ||
                                                                      SerializableValue<V> || RawValue<V> ||
                                                                      IsVector<V>::value)) {
        const bool hasKey = serializeValue(m, "key", key);
        const bool hasValue = serializeValue(m, "value", value);
        if (m.isReading() && !(hasKey && hasValue)) throw IOError(L"stored dictionary entry is incomplete");
    }
};

template <class K, class V> struct HashTableKey<DictionaryItem<K, V>> {
    using Type = K;
    static const K & of(const DictionaryItem<K, V> & item) { return item.key; }
};

} // namespace NBX
